#include "asn1gen/locate_fields.h"

#include <algorithm>

#include "asn1gen/naming.h"

namespace asn1gen {
namespace {

std::string memberName(const Type& type, const Component& component) {
    return type.name + "_" + cName(component.identifier);
}

} // namespace

uint16_t LocateFields::numberOf(const std::string& name) {
    const auto known = std::find(names.begin(), names.end(), name);
    const auto index = known - names.begin();
    if (known == names.end()) {
        names.push_back(name);
    }
    return static_cast<uint16_t>(index + 1);
}

uint16_t LocateFields::number(const Type& type) {
    return numberOf(type.name);
}

uint16_t LocateFields::number(const Type& type, const Component& component) {
    return numberOf(memberName(type, component));
}

uint16_t LocateFields::of(const LocatePlan& plan, const LocateNode& node,
                          const Component& component, const LocateNode& member) {
    const Type* type = member.type;
    while (type->kind == Kind::List) {
        type = &type->element->definition();
    }
    const bool holdsAddress =
        plan.isPart(*type) && !plan.isPart(*node.type) && plan.hasPlaces(member);
    const bool isTold = member.told != nullptr && !member.told->members.empty() &&
                        member.told->verb != LocateEntry::Verb::Inside;
    return holdsAddress || isTold ? number(*node.type, component) : uint16_t{0};
}

void LocateFields::addAlternatives(const Type& choice) {
    for (const auto* list : {&choice.root, &choice.additions}) {
        for (const Component& component : *list) {
            const std::pair<std::string, uint32_t> entry{memberName(choice, component),
                                                         component.alternative};
            if (std::find(alternatives.begin(), alternatives.end(), entry) == alternatives.end()) {
                alternatives.push_back(entry);
            }
        }
    }
}

} // namespace asn1gen
