#include "asn1gen/bit_run.h"

#include <algorithm>

namespace asn1gen {
namespace {

constexpr int maxRun = 32;

} // namespace

std::vector<const Component*> booleanRun(const std::vector<Component>& root, size_t first,
                                         size_t limit) {
    std::vector<const Component*> run;
    for (size_t i = first; i < root.size() && run.size() < limit; ++i) {
        const Component& component = root[i];
        if (component.optional || !component.type->name.empty() ||
            component.type->kind != Kind::Boolean) {
            break;
        }
        run.push_back(&component);
    }
    return run;
}

LeadingBits leadingBits(const Type& sequence) {
    LeadingBits bits;
    bits.presence = static_cast<int>(
        std::count_if(sequence.root.begin(), sequence.root.end(),
                      [](const Component& component) { return component.optional; }));
    bits.extension = sequence.extensible;
    bits.booleans = booleanRun(sequence.root, 0, static_cast<size_t>(maxRun - bits.count()));
    return bits;
}

} // namespace asn1gen
