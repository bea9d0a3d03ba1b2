#include "H.323/registry.h"

#include "H.323/type_tables.h"

size_t registeredTypeCount() {
    return generatedTypeCount;
}

const TypeDescription& registeredType(size_t index) {
    return *generatedTypes[index];
}

const TypeDescription* findType(std::string_view name) {
    for (size_t i = 0; i < generatedTypeCount; ++i) {
        if (name == generatedTypes[i]->name) {
            return generatedTypes[i];
        }
    }
    return nullptr;
}
