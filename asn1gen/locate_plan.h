#pragma once

#include <compare>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "asn1gen/locate_list.h"
#include "asn1gen/model.h"

namespace asn1gen {

/// A type where it stands, with what the list asks of it there.
struct LocateNode {
    const Type* type = nullptr; ///< a definition

    /// Entries whose path leads through here, with the members that are behind us.
    std::set<std::pair<const LocateEntry*, size_t>> passing;

    /// Entry whose path ends here, if one does.
    const LocateEntry* told = nullptr;

    auto operator<=>(const LocateNode&) const = default;
};

/// Whether an address and its port are the member of the root with this index and the next one.
bool startsAddress(const Type& type, size_t index);

/// What a list of places says about the types of a model.
class LocatePlan {
public:
    /// Throws SourceError for a type that the model does not have.
    LocatePlan(const Model& model, const std::vector<LocateEntry>& entries);

    const std::vector<LocateEntry>& list() const { return entries; }

    /// A type at which a message begins.
    LocateNode root(const std::string& typeName, const Position& position) const;
    LocateNode member(const LocateNode& node, const Component& component) const;
    LocateNode element(const LocateNode& node) const;

    /// The entry that tells that the member is present, if one does.
    const LocateEntry* presence(const LocateNode& node, const Component& component) const;

    /// Whether a value of the type can hold anything that is told.
    bool hasPlaces(const LocateNode& node) const;

    bool isAddress(const Type& type) const { return addresses.count(&type) != 0; }

    /// Part of an address, or an address.
    bool isPart(const Type& type) const { return parts.count(&type) != 0 || isAddress(type); }

    /// An entry whose path was not met by hasPlaces, root and member: it names nothing.
    const LocateEntry* unused() const;

private:
    const Type& find(const std::string& name, const Position& position) const;
    LocateNode begin(const Type& type) const;
    bool search(const LocateNode& node, std::set<LocateNode>& seen) const;

    const std::vector<LocateEntry>& entries;
    std::map<std::string, const Type*> types;
    std::set<const Type*> addresses;
    std::set<const Type*> parts;
    mutable std::map<LocateNode, bool> known;
    mutable std::set<const LocateEntry*> used;
};

} // namespace asn1gen
