#include "asn1gen/locate_program.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>

#include "asn1gen/layout.h"
#include "asn1gen/locate_skip.h"

namespace asn1gen {
namespace {

using Verb = LocateEntry::Verb;

/// What follows a call or list in its program.
struct Behind {
    bool last = false;       ///< no place behind it in the root
    bool lastIfRoot = false; ///< but there may be in the additions
};

std::string kindWord(const LocateEntry& entry) {
    return fmt::format("kindWord(PlaceKind::{})", entry.name);
}

class Compiler {
public:
    Compiler(const Model& model, const std::vector<LocateEntry>& entries) : plan(model, entries) {}

    LocatePrograms run() {
        for (const LocateEntry& entry : plan.list()) {
            if (entry.verb == Verb::Root) {
                const int root = program(plan.root(entry.target, entry.position));
                result.roots.push_back(root);
            }
        }
        if (const LocateEntry* entry = plan.unused()) {
            throw SourceError(entry->position, "no message leads to such a member");
        }
        mergeEqualPrograms(result);
        return std::move(result);
    }

private:
    // Programs.

    int program(const LocateNode& node) {
        const auto known = programs.find(node);
        if (known != programs.end()) {
            return known->second;
        }
        const int index = newProgram(node);
        programs.emplace(node, index);
        LocateProgram made;
        if (node.type->kind == Kind::Sequence) {
            sequence(made, node);
        } else if (node.type->kind == Kind::Choice) {
            choice(made, node);
        } else {
            value(made, node, false, {true, false}, 0, "");
            end(made);
        }
        finish(index, std::move(made));
        return index;
    }

    int newProgram(const LocateNode& node) {
        result.programs.emplace_back();
        LocateProgram& program = result.programs.back();
        program.title = node.type->name.empty() ? typeWords(*node.type) : node.type->name;
        program.hasPlaces = plan.hasPlaces(node);
        return static_cast<int>(result.programs.size()) - 1;
    }

    void finish(int index, LocateProgram made) {
        LocateProgram& program = result.programs[static_cast<size_t>(index)];
        program.words = std::move(made.words);
        program.names = std::move(made.names);
    }

    static std::string typeWords(const Type& type) {
        return type.kind == Kind::List ? "list" : "simple type";
    }

    static void end(LocateProgram& made) { add(made, "instruction(LocatorOp::end, 1)"); }

    static void add(LocateProgram& made, const std::string& text) {
        made.words.push_back({text, -1});
    }

    /// A program that consists of what write writes.
    template <typename Write> int stub(const LocateNode& node, Write write) {
        const int index = newProgram(node);
        LocateProgram made;
        write(made);
        end(made);
        finish(index, std::move(made));
        return index;
    }

    // SEQUENCE.

    bool told(const LocateNode& node, const Component& component) {
        return plan.presence(node, component) != nullptr ||
               plan.hasPlaces(plan.member(node, component));
    }

    void sequence(LocateProgram& made, const LocateNode& node) {
        const Type& type = *node.type;
        const auto optional = std::count_if(type.root.begin(), type.root.end(),
                                            [](const Component& c) { return c.optional; });
        constexpr int64_t mostPresenceBits = 56;
        if (optional > mostPresenceBits) {
            throw SourceError(type.position, type.name + " has more than 56 OPTIONAL members");
        }
        if (optional != 0 || type.extensible) {
            add(made, fmt::format("instruction(LocatorOp::sequence, 1, {}{})",
                                  type.extensible ? "extensible | " : "", optional));
        }
        bool additionsTold = false;
        for (const Component& component : type.additions) {
            additionsTold = additionsTold || told(node, component);
        }
        size_t behindLast = 0;
        for (size_t i = 0; i < type.root.size(); ++i) {
            if (plan.isAddress(type) ? startsAddress(type, i) : told(node, type.root[i])) {
                behindLast = i + 1;
            }
        }
        const bool places = behindLast != 0 || additionsTold;
        SkipCode skipped;
        for (size_t i = 0; i < type.root.size(); ++i) {
            if (skipsOn(skipped, node, type.root[i], places && i == behindLast)) {
                continue;
            }
            appendSkip(made.words, std::exchange(skipped, {}));
            if (places && i == behindLast) {
                rest(made, additionsTold);
            }
            if (plan.isAddress(type) && startsAddress(type, i)) {
                add(made, "instruction(LocatorOp::address, 1)");
                ++i;
                behindLast = i + 1;
                continue;
            }
            component(made, node, type.root[i], {i + 1 == behindLast, additionsTold});
        }
        appendSkip(made.words, skipped);
        if (places && behindLast == type.root.size() && (type.extensible || additionsTold)) {
            rest(made, additionsTold);
        }
        if (type.extensible) {
            additions(made, node);
        } else {
            end(made);
        }
        if (plan.isAddress(type) && behindLast == 0) {
            throw SourceError(type.position, type.name + " holds no IPv4 address and port");
        }
    }

    // Neighbours that are always there and have no places are stepped over together.
    bool skipsOn(SkipCode& skipped, const LocateNode& node, const Component& component,
                 bool isRest) {
        if (component.optional || isRest || plan.isAddress(*node.type) || told(node, component)) {
            return false;
        }
        SkipCode further = skipped;
        skipInto(further, component.type->definition());
        if (!further.isWhole) {
            return false;
        }
        skipped = std::move(further);
        return true;
    }

    static void rest(LocateProgram& made, bool additionsTold) {
        add(made,
            fmt::format("instruction(LocatorOp::rest, 1, {})", additionsTold ? "lastIfRoot" : "0"));
    }

    void component(LocateProgram& made, const LocateNode& node, const Component& component,
                   const Behind& behind) {
        const LocateNode member = plan.member(node, component);
        const LocateEntry* presence = plan.presence(node, component);
        if (presence == nullptr) {
            value(made, member, component.optional, behind,
                  result.fields.of(plan, node, component, member), component.identifier);
            return;
        }
        const int whole = stub(member, [&](LocateProgram& inner) {
            tellPresence(inner, *presence, node, component);
            value(inner, member, false, {false, false},
                  result.fields.of(plan, node, component, member), "");
        });
        result.programs[static_cast<size_t>(whole)].hasPlaces = true;
        call(made, whole, component.optional, behind, 0, component.identifier);
    }

    void tellPresence(LocateProgram& made, const LocateEntry& entry, const LocateNode& node,
                      const Component& component) {
        add(made, "instruction(LocatorOp::tellPresence, 3)");
        add(made, kindWord(entry));
        add(made, std::to_string(result.fields.number(*node.type, component)));
    }

    void additions(LocateProgram& made, const LocateNode& node) {
        constexpr size_t maskBits = 16;
        constexpr size_t mostAdditions = 64;
        const std::vector<Component>& members = node.type->additions;
        if (members.size() > mostAdditions) {
            throw SourceError(node.type->position,
                              node.type->name + " has more than 64 extension additions");
        }
        std::vector<uint16_t> mask;
        std::vector<size_t> entries;
        for (size_t i = 0; i < members.size(); ++i) {
            if (told(node, members[i])) {
                mask.resize(i / maskBits + 1);
                mask.back() = static_cast<uint16_t>(mask.back() | 0x8000U >> i % maskBits);
                entries.push_back(i);
            }
        }
        add(made, fmt::format("instruction(LocatorOp::additions, 1, {})", mask.size()));
        for (const uint16_t word : mask) {
            add(made, fmt::format("{:#06x}", word));
        }
        for (const size_t i : entries) {
            made.names[made.words.size()] = members[i].identifier;
            add(made, std::to_string(i));
            made.words.push_back({"", additionProgram(node, members[i])});
        }
        add(made, "endOfAdditions");
    }

    // The content of an open type: what is behind the places is not walked.
    int additionProgram(const LocateNode& node, const Component& component) {
        const LocateNode member = plan.member(node, component);
        const LocateEntry* presence = plan.presence(node, component);
        const uint16_t held = result.fields.of(plan, node, component, member);
        if (presence == nullptr && held == 0) {
            return program(member);
        }
        return stub(member, [&](LocateProgram& inner) {
            if (presence != nullptr) {
                tellPresence(inner, *presence, node, component);
            }
            if (plan.hasPlaces(member)) {
                value(inner, member, false, {true, false}, held, "");
            }
        });
    }

    // Values.

    void value(LocateProgram& made, const LocateNode& node, bool optional, const Behind& behind,
               uint16_t held, const std::string& name) {
        if (!plan.hasPlaces(node)) {
            skip(made, node, optional);
            return;
        }
        if (node.type->kind == Kind::List) {
            list(made, node, optional, behind, held, name);
            return;
        }
        if (node.told != nullptr && node.told->verb != Verb::Alternative) {
            tell(made, node, optional, held, name);
            return;
        }
        call(made, choiceField(node, held), optional, behind, held, name);
    }

    // A CHOICE that is told at a member has that member as its field: a program of its own.
    int choiceField(const LocateNode& node, uint16_t held) {
        if (node.told == nullptr || held == 0) {
            return program(node);
        }
        const auto key = std::make_pair(node, held);
        const auto known = heldChoices.find(key);
        if (known != heldChoices.end()) {
            return known->second;
        }
        const int index = newProgram(node);
        heldChoices.emplace(key, index);
        LocateProgram made;
        choice(made, node, held);
        finish(index, std::move(made));
        return index;
    }

    void call(LocateProgram& made, int target, bool optional, const Behind& behind, uint16_t held,
              const std::string& name) {
        named(made, name);
        add(made, fmt::format("instruction(LocatorOp::call, {}, {}{})", held != 0 ? 3 : 2,
                              flags(behind, held), optional ? ", true" : ""));
        made.words.push_back({"", target});
        if (held != 0) {
            add(made, std::to_string(held));
        }
    }

    static std::string flags(const Behind& behind, uint16_t held) {
        std::string text = held != 0 ? "withField" : "0";
        if (behind.last) {
            text += behind.lastIfRoot ? " | last | lastIfRoot" : " | last";
        }
        return text;
    }

    static void named(LocateProgram& made, const std::string& name) {
        if (!name.empty()) {
            made.names[made.words.size()] = name;
        }
    }

    void list(LocateProgram& made, const LocateNode& node, bool optional, const Behind& behind,
              uint16_t held, const std::string& name) {
        named(made, name);
        const LocateNode element = plan.element(node);
        const SizeForm form = sizeForm(*node.type);
        add(made, fmt::format("instruction(LocatorOp::list, {}, {} | {}{})", held != 0 ? 4 : 3,
                              form.form, flags(behind, held), optional ? ", true" : ""));
        add(made, std::to_string(form.lower));
        made.words.push_back({"", elementProgram(*node.type, element)});
        if (held != 0) {
            add(made, std::to_string(held));
        }
    }

    int elementProgram(const Type& list, const LocateNode& element) {
        if (minimalBits(*element.type) == 0) {
            throw SourceError(list.position, "the elements of a list may take no bits: work on "
                                             "them would have no bound");
        }
        return program(element);
    }

    void tell(LocateProgram& made, const LocateNode& node, bool optional, uint16_t held,
              const std::string& name) {
        named(made, name);
        const Type& type = *node.type;
        const LocateEntry& entry = *node.told;
        const char* isOptional = optional ? ", true" : "";
        switch (entry.verb) {
        case Verb::Inside: {
            if (type.kind != Kind::OctetString || type.size) {
                throw SourceError(entry.position, "not an OCTET STRING without size");
            }
            add(made, fmt::format("instruction(LocatorOp::container, 2, 0{})", isOptional));
            made.words.push_back({"", program(plan.root(entry.target, entry.position))});
            return;
        }
        case Verb::Octets: {
            constexpr int64_t most = 255;
            if (type.kind != Kind::OctetString || !type.size ||
                type.size->lower != type.size->upper || type.size->upper > most ||
                type.size->upper <= 2) {
                throw SourceError(entry.position, "not an OCTET STRING of one size, 3 to 255");
            }
            add(made, fmt::format("instruction(LocatorOp::tellOctets, 3, {}{})", type.size->upper,
                                  isOptional));
            add(made, kindWord(entry));
            add(made, std::to_string(held));
            return;
        }
        case Verb::Number: {
            if (type.kind != Kind::Integer || !type.values || type.values->extensible ||
                type.values->lower < 0 || type.values->upper > 65535) {
                throw SourceError(entry.position, "not an INTEGER within 0 to 65535");
            }
            add(made, fmt::format("instruction(LocatorOp::tellNumber, 4, 0{})", isOptional));
            add(made,
                fmt::format("{} | {} << argumentShift", kindWord(entry), rangeForm(*type.values)));
            add(made, std::to_string(held));
            add(made, std::to_string(type.values->lower));
            return;
        }
        default: {
            const std::optional<SizedItems> items = sizedItems(type);
            if (!items || entry.name != "alias") {
                throw SourceError(entry.position, "not a sized string, or not of kind alias");
            }
            add(made, fmt::format("instruction(LocatorOp::tellString, 4, {}{})", items->form,
                                  isOptional));
            add(made, std::to_string(items->lower));
            add(made, items->unit());
            add(made, std::to_string(held));
        }
        }
    }

    void skip(LocateProgram& made, const LocateNode& node, bool optional) {
        SkipCode code;
        skipInto(code, *node.type);
        if (code.isWhole) {
            if (!optional) {
                appendSkip(made.words, code);
                return;
            }
            if (code.instructions.size() <= 1) {
                appendOptional(made.words, code);
                return;
            }
        }
        if (node.type->kind == Kind::List) {
            list(made, node, optional, {false, false}, 0, "");
            return;
        }
        const int target =
            code.isWhole ? stub(node, [&](LocateProgram& inner) { appendSkip(inner.words, code); })
                         : program(node);
        call(made, target, optional, {false, false}, 0, "");
    }

    // CHOICE.

    void choice(LocateProgram& made, const LocateNode& node, uint16_t held = 0) {
        const Type& type = *node.type;
        constexpr size_t most = 127;
        if (type.root.size() > most || type.additions.size() > most) {
            throw SourceError(type.position, type.name + " has more than 127 alternatives");
        }
        const bool isTold = node.told != nullptr;
        const auto bits = std::bit_width(type.root.size() - 1);
        add(made, fmt::format("instruction(LocatorOp::choice, 2, {}{}{})", bits,
                              type.extensible ? " | extensible" : "", isTold ? " | told" : ""));
        add(made,
            fmt::format("{} | {} << argumentShift", type.root.size() - 1, type.additions.size()));
        if (isTold) {
            if (held == 0) {
                held = result.fields.number(type);
            }
            add(made, kindWord(*node.told));
            add(made, std::to_string(held));
            result.fields.addAlternatives(type);
        }
        for (const auto* list : {&type.root, &type.additions}) {
            for (const Component& component : *list) {
                made.names[made.words.size()] = component.identifier;
                made.words.push_back({"", alternative(node, component)});
            }
        }
        std::erase_if(made.names, [&](const auto& entry) {
            const LocateWord& word = made.words[entry.first];
            return !isTold && !(word.program >= 0 && hasPlaces(word.program));
        });
        for (LocateWord& word : made.words) {
            if (word.text.empty() && word.program < 0) {
                word.text = "endProgram";
            }
        }
    }

    bool hasPlaces(int program) const {
        return result.programs[static_cast<size_t>(program)].hasPlaces;
    }

    // -1: nothing to walk.
    int alternative(const LocateNode& node, const Component& component) {
        const LocateNode member = plan.member(node, component);
        const uint16_t held = result.fields.of(plan, node, component, member);
        if (plan.hasPlaces(member)) {
            if (held == 0) {
                return program(member);
            }
            return stub(member, [&](LocateProgram& inner) {
                value(inner, member, false, {true, false}, held, "");
            });
        }
        SkipCode code;
        skipInto(code, *member.type);
        if (component.addition || (code.isWhole && code.instructions.empty())) {
            return -1; // an open type without places is stepped over by its length
        }
        return program(member);
    }

    LocatePlan plan;
    LocatePrograms result;
    std::map<LocateNode, int> programs;
    std::map<std::pair<LocateNode, uint16_t>, int> heldChoices;
};

} // namespace

LocatePrograms makeLocatePrograms(const Model& model, const std::vector<LocateEntry>& entries) {
    return Compiler(model, entries).run();
}

} // namespace asn1gen
