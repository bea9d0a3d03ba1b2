#include "asn1gen/name_check.h"

#include <map>
#include <set>

#include "asn1gen/emitter.h"

namespace asn1gen {
namespace {

// Names of asn1per/ and macros of generated sources that a type without a prefix could get.
const std::set<std::string> runtimeNames = {"BMPStringValue",
                                            "CHECK",
                                            "DynBitString",
                                            "DynOctetString",
                                            "ErrorInfo",
                                            "FAIL",
                                            "FieldList",
                                            "FieldNode",
                                            "FieldRecord",
                                            "MemBlock",
                                            "MemberDescription",
                                            "MemHeap",
                                            "NULL",
                                            "ObjectIdentifier",
                                            "OpenTypeValue",
                                            "PerAdditions",
                                            "PerAllocator",
                                            "PerBlockPool",
                                            "PerBufferState",
                                            "PerContext",
                                            "PerIA5Set",
                                            "PerKeptContent",
                                            "PerOpenType",
                                            "PerOwnedBuffer",
                                            "PerSpanChunk",
                                            "PerStatus",
                                            "PermittedAlphabet",
                                            "PermittedAlphabet16",
                                            "PermittedCharacters16",
                                            "SizeConstraint",
                                            "TypeDescription",
                                            "TypeKind"};

struct Owner {
    std::string what;
    Position position;
};

class NameCheck {
public:
    void run(const Model& model) {
        for (const auto& module : model.modules) {
            add(module->options.prefix + "MemoryPerOctet",
                {"module " + module->name, module->position});
            for (const Type* type : module->types) {
                addType(*type);
            }
        }
        for (const auto& type : model.types) {
            for (const auto* list : {&type->root, &type->additions}) {
                for (const Component& component : *list) {
                    checkMember(*type, component);
                }
            }
        }
    }

private:
    void add(const std::string& name, const Owner& owner) {
        if (runtimeNames.count(name) != 0) {
            throw SourceError(owner.position, "the C++ name " + name + " of " + owner.what +
                                                  " is one of the runtime's; --prefix gives the "
                                                  "names of a module a beginning of their own");
        }
        const auto [known, isNew] = names.emplace(name, owner);
        if (!isNew) {
            const Owner& other = known->second;
            throw SourceError(owner.position,
                              "the C++ name " + name + " of " + owner.what + " is that of " +
                                  other.what + " in " + *other.position.file + ":" +
                                  std::to_string(other.position.line) +
                                  " too; another --prefix or identifier tells them apart");
        }
    }

    void addType(const Type& type) {
        add(type.name, {"a type", type.position});
        if (type.alias != nullptr) {
            return;
        }
        for (const std::string& item : type.items) {
            add(itemName(type, item), {"item " + item, type.position});
        }
        for (const auto* list : {&type.root, &type.additions}) {
            for (const Component& component : *list) {
                const Owner owner{"the constant for " + component.identifier, type.position};
                if (type.kind == Kind::Choice) {
                    add(alternativeName(type, component), owner);
                } else if (component.presenceBit >= 0) {
                    add(presenceName(type, component), owner);
                }
            }
        }
        if (type.kind == Kind::Choice && type.extensible) {
            add(type.name + "_UnknownChosen", {"an unknown alternative", type.position});
        }
    }

    /// A member that is called like a type hides it inside the record.
    void checkMember(const Type& type, const Component& component) {
        const auto known = names.find(component.member);
        if (known != names.end()) {
            throw SourceError(type.position, "the member " + component.member + " is called like " +
                                                 known->second.what +
                                                 "; another --prefix tells them apart");
        }
    }

    std::map<std::string, Owner> names;
};

} // namespace

void checkNames(const Model& model) {
    NameCheck().run(model);
}

} // namespace asn1gen
