#include "asn1gen/locate_plan.h"

namespace asn1gen {
namespace {

using Verb = LocateEntry::Verb;

bool isString(const Type& type) {
    return type.kind == Kind::CharacterString || type.kind == Kind::BmpString;
}

bool matches(const std::string& pattern, const std::string& name) {
    return pattern == "*" || pattern == name;
}

} // namespace

bool startsAddress(const Type& type, size_t index) {
    constexpr int64_t addressOctets = 4;
    constexpr int64_t greatestPort = 65535;
    if (index + 1 >= type.root.size()) {
        return false;
    }
    const Type& first = type.root[index].type->definition();
    const Type& second = type.root[index + 1].type->definition();
    return !type.root[index].optional && !type.root[index + 1].optional &&
           first.kind == Kind::OctetString && first.size && first.size->lower == addressOctets &&
           first.size->upper == addressOctets && second.kind == Kind::Integer && second.values &&
           second.values->lower == 0 && second.values->upper == greatestPort;
}

LocatePlan::LocatePlan(const Model& model, const std::vector<LocateEntry>& entries)
    : entries(entries) {
    for (const auto& type : model.types) {
        if (!type->name.empty()) {
            types.emplace(type->name, &type->definition());
        }
    }
    for (const LocateEntry& entry : entries) {
        if (!entry.target.empty()) {
            const Type& target = find(entry.target, entry.position);
            if (entry.verb == Verb::Address) {
                addresses.insert(&target);
            } else if (entry.verb == Verb::Part) {
                parts.insert(&target);
            }
        }
        if (!entry.type.empty() && entry.type != "*") {
            find(entry.type, entry.position);
        }
    }
}

const Type& LocatePlan::find(const std::string& name, const Position& position) const {
    const auto found = types.find(name);
    if (found == types.end()) {
        throw SourceError(position, "the modules have no type " + name);
    }
    return *found->second;
}

// The type with the entries that begin at it.
LocateNode LocatePlan::begin(const Type& type) const {
    LocateNode node{&type, {}, nullptr};
    for (const LocateEntry& entry : entries) {
        if (entry.type.empty() || !matches(entry.type, type.name) || entry.verb == Verb::Presence) {
            continue;
        }
        if (entry.members.empty()) {
            node.told = &entry;
            used.insert(&entry);
        } else {
            node.passing.emplace(&entry, 0);
        }
    }
    return node;
}

LocateNode LocatePlan::root(const std::string& typeName, const Position& position) const {
    return begin(find(typeName, position));
}

LocateNode LocatePlan::member(const LocateNode& node, const Component& component) const {
    const Type& type = component.type->definition();
    LocateNode result = begin(type);
    for (const auto& [entry, depth] : node.passing) {
        if (!matches(entry->members[depth], component.identifier)) {
            continue;
        }
        if (depth + 1 < entry->members.size()) {
            result.passing.emplace(entry, depth + 1);
        } else if (entry->verb != Verb::String || isString(type) || type.kind == Kind::List) {
            result.told = entry;
            used.insert(entry);
        }
    }
    return result;
}

LocateNode LocatePlan::element(const LocateNode& node) const {
    LocateNode result = begin(node.type->element->definition());
    result.passing.insert(node.passing.begin(), node.passing.end());
    if (node.told != nullptr) {
        result.told = node.told;
    }
    return result;
}

const LocateEntry* LocatePlan::presence(const LocateNode& node, const Component& component) const {
    for (const LocateEntry& entry : entries) {
        if (entry.verb == Verb::Presence && entry.members.size() == 1 &&
            matches(entry.type, node.type->name) &&
            matches(entry.members[0], component.identifier)) {
            used.insert(&entry);
            return &entry;
        }
    }
    return nullptr;
}

bool LocatePlan::search(const LocateNode& node, std::set<LocateNode>& seen) const {
    if (!seen.insert(node).second) {
        return false;
    }
    const auto ready = known.find(node);
    if (ready != known.end()) {
        return ready->second;
    }
    if (isAddress(*node.type) || (node.told != nullptr && node.type->kind != Kind::List)) {
        return true;
    }
    if (node.type->kind == Kind::List) {
        return search(element(node), seen);
    }
    for (const auto* list : {&node.type->root, &node.type->additions}) {
        for (const Component& component : *list) {
            if (presence(node, component) != nullptr || search(member(node, component), seen)) {
                return true;
            }
        }
    }
    return false;
}

bool LocatePlan::hasPlaces(const LocateNode& node) const {
    std::set<LocateNode> seen;
    const bool result = search(node, seen);
    known[node] = result;
    return result;
}

const LocateEntry* LocatePlan::unused() const {
    for (const LocateEntry& entry : entries) {
        if (!entry.type.empty() && used.count(&entry) == 0) {
            return &entry;
        }
    }
    return nullptr;
}

} // namespace asn1gen
