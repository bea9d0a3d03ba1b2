#include "asn1gen/locate_skip.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <map>

namespace asn1gen {
namespace {

constexpr int64_t octetBits = 8;
constexpr int64_t greatestArgument = 255;
constexpr int64_t greatestBoundedLength = 65535;

void add(SkipCode& code, SkipInstruction instruction) {
    if (instruction.run > 0 && !code.instructions.empty()) {
        SkipInstruction& before = code.instructions.back();
        if (before.run > 0 && before.operation == instruction.operation &&
            before.run + instruction.run <= greatestArgument) {
            before.run += instruction.run;
            before.argument = std::to_string(before.run);
            return;
        }
    }
    code.instructions.push_back(std::move(instruction));
}

void skipRun(SkipCode& code, const char* operation, int64_t number) {
    while (number > 0) {
        const int64_t part = std::min(number, greatestArgument);
        add(code, {operation, std::to_string(part), {}, false, part});
        number -= part;
    }
}

void variable(SkipCode& code, const std::string& argument) {
    add(code, {"variable", argument, {}, false, 0});
}

// Puts an extension bit before the last instruction, which codes one value.
void makeExtensible(SkipCode& code, const Type& type, size_t before) {
    if (code.instructions.size() != before + 1) {
        throw SourceError(type.position, "an extension marker is not supported in this constraint");
    }
    code.instructions.back().orVariable = true;
    code.instructions.back().run = 0;
}

void skipInteger(SkipCode& code, const Type& type) {
    if (!type.values || type.values->upper == Range::greatest ||
        type.values->lower == Range::least) {
        variable(code, "1");
        return;
    }
    SkipCode number;
    const uint64_t span =
        static_cast<uint64_t>(type.values->upper) - static_cast<uint64_t>(type.values->lower);
    constexpr uint64_t octetSpan = 255;
    constexpr uint64_t twoOctetSpan = 65535;
    if (span < octetSpan) {
        skipRun(number, "skip", static_cast<int64_t>(std::bit_width(span)));
    } else if (span <= twoOctetSpan) {
        skipRun(number, "skipOctets", span == octetSpan ? 1 : 2);
    } else {
        const auto octets = static_cast<uint64_t>((std::bit_width(span) + 7) / 8);
        add(number, {"longInteger", std::to_string(std::bit_width(octets - 1)), {}, false, 0});
    }
    if (type.values->extensible) {
        makeExtensible(number, type, 0);
    }
    for (SkipInstruction& instruction : number.instructions) {
        add(code, std::move(instruction));
    }
}

// Bits of an item: in the aligned variant a power of two.
int64_t itemBits(const Type& type) {
    constexpr int64_t bmpBits = 16;
    constexpr unsigned numericCharacters = 11;
    constexpr unsigned printableCharacters = 74;
    switch (type.kind) {
    case Kind::BitString:
        return 1;
    case Kind::BmpString:
        return bmpBits;
    case Kind::CharacterString: {
        size_t characters = 128;
        if (type.alphabet) {
            characters = type.alphabet->size();
        } else if (type.stringName == "NumericString") {
            characters = numericCharacters;
        } else if (type.stringName == "PrintableString") {
            characters = printableCharacters;
        }
        return static_cast<int64_t>(
            std::bit_ceil(static_cast<unsigned>(std::bit_width(characters - 1))));
    }
    default:
        return octetBits;
    }
}

void skipString(SkipCode& code, const Type& type) {
    constexpr int64_t longestUnaligned = 16;
    const int64_t bits = itemBits(type);
    const std::optional<SizedItems> items = sizedItems(type);
    if (!items) {
        if (bits != 1 && bits % octetBits != 0) {
            throw SourceError(type.position, "strings without an upper bound whose characters have "
                                             "no whole octets are not supported");
        }
        variable(code, std::to_string(bits / octetBits));
        return;
    }
    if (type.size->extensible) {
        throw SourceError(type.position, "an extensible SIZE is not supported");
    }
    if (items->form != "0") {
        add(code, {"sized", items->form, {std::to_string(items->lower), items->unit()}, false, 0});
    } else if (items->lower * bits <= longestUnaligned) {
        skipRun(code, "skip", items->lower * bits);
    } else {
        skipRun(code, "skipOctets", items->lower * bits / octetBits);
        skipRun(code, "skip", items->lower * bits % octetBits);
    }
}

bool isOfNulls(const Type& choice) {
    constexpr size_t most = 255;
    return choice.root.size() <= most &&
           std::all_of(choice.root.begin(), choice.root.end(), [](const Component& component) {
               return component.type->definition().kind == Kind::Null;
           });
}

void skipSequence(SkipCode& code, const Type& type) {
    const bool hasPreamble =
        type.extensible || std::any_of(type.root.begin(), type.root.end(),
                                       [](const Component& c) { return c.optional; });
    if (hasPreamble) {
        code.isWhole = false;
        return;
    }
    for (const Component& component : type.root) {
        skipInto(code, component.type->definition());
        if (!code.isWhole) {
            return;
        }
    }
}

void skipList(SkipCode& code, const Type& type) {
    SkipCode element;
    skipInto(element, type.element->definition());
    const bool octets = element.isWhole && element.instructions.size() == 1 &&
                        element.instructions[0].operation == "skipOctets";
    if (!octets || sizeForm(type).form != "openLength") {
        code.isWhole = false;
        return;
    }
    variable(code, element.instructions[0].argument);
}

std::string firstWord(const SkipInstruction& instruction, bool optional) {
    return fmt::format(
        "instruction(LocatorOp::{}, {}, {}{})", instruction.operation, instruction.words.size() + 1,
        instruction.argument.empty() ? "0" : instruction.argument, optional ? ", true" : "");
}

} // namespace

std::string rangeForm(const Range& range) {
    constexpr int64_t octetSpan = 255;
    const int64_t span = range.upper - range.lower;
    if (span < octetSpan) {
        return std::to_string(std::bit_width(static_cast<uint64_t>(span)));
    }
    return span == octetSpan ? "aligned8" : "aligned16";
}

SizeForm sizeForm(const Type& list) {
    if (!list.size || list.size->upper > greatestBoundedLength) {
        return {"openLength", 0};
    }
    if (list.size->extensible) {
        throw SourceError(list.position, "an extensible SIZE is not supported");
    }
    return {rangeForm(*list.size), list.size->lower};
}

std::string SizedItems::unit() const {
    return fmt::format("{}{}", bits, aligned ? " | stringAligned" : "");
}

std::optional<SizedItems> sizedItems(const Type& type) {
    if (!type.size || type.size->upper > greatestBoundedLength) {
        return std::nullopt;
    }
    constexpr int64_t shortString = 16;
    SizedItems items;
    items.form = rangeForm(*type.size);
    items.lower = type.size->lower;
    items.bits = itemBits(type);
    const bool isString = type.kind == Kind::CharacterString || type.kind == Kind::BmpString;
    items.aligned = !isString || type.size->upper * items.bits >= shortString;
    return items;
}

void skipInto(SkipCode& code, const Type& type) {
    switch (type.kind) {
    case Kind::Boolean:
        skipRun(code, "skip", 1);
        return;
    case Kind::Null:
        return;
    case Kind::Integer:
        skipInteger(code, type);
        return;
    case Kind::Enumerated:
        add(code, {type.extensible ? "enumeration" : "boundedIndex",
                   std::to_string(type.values->upper),
                   {},
                   false,
                   0});
        return;
    case Kind::OctetString:
    case Kind::BitString:
    case Kind::CharacterString:
    case Kind::BmpString:
        skipString(code, type);
        return;
    case Kind::ObjectIdentifier:
    case Kind::OpenType:
        variable(code, "1");
        return;
    case Kind::Sequence:
        skipSequence(code, type);
        return;
    case Kind::Choice:
        if (!isOfNulls(type)) {
            code.isWhole = false;
            return;
        }
        add(code, {type.extensible ? "nullChoice" : "boundedIndex",
                   std::to_string(type.root.size() - 1),
                   {},
                   false,
                   0});
        return;
    case Kind::List:
        skipList(code, type);
        return;
    }
}

void appendSkip(std::vector<LocateWord>& words, const SkipCode& code) {
    for (const SkipInstruction& instruction : code.instructions) {
        if (instruction.orVariable) {
            words.push_back({fmt::format("instruction(LocatorOp::orVariable, {})",
                                         instruction.words.size() + 2),
                             -1});
        }
        words.push_back({firstWord(instruction, false), -1});
        for (const std::string& word : instruction.words) {
            words.push_back({word, -1});
        }
    }
}

void appendOptional(std::vector<LocateWord>& words, const SkipCode& code) {
    if (code.instructions.empty()) {
        words.push_back({"instruction(LocatorOp::skip, 1, 0, true)", -1});
        return;
    }
    const SkipInstruction& instruction = code.instructions.front();
    if (instruction.orVariable) {
        words.push_back({fmt::format("instruction(LocatorOp::orVariable, {}, 0, true)",
                                     instruction.words.size() + 2),
                         -1});
    }
    words.push_back({firstWord(instruction, !instruction.orVariable), -1});
    for (const std::string& word : instruction.words) {
        words.push_back({word, -1});
    }
}

void mergeEqualPrograms(LocatePrograms& programs) {
    // Programs are equal until their words, with what they refer to, tell them apart.
    std::vector<size_t> groups(programs.programs.size(), 0);
    for (size_t count = 0;;) {
        std::map<std::string, size_t> numbers;
        std::vector<size_t> next(groups.size());
        for (size_t i = 0; i < groups.size(); ++i) {
            const LocateProgram& program = programs.programs[i];
            std::string key = program.hasPlaces ? fmt::format("{};", i) : std::string();
            for (const LocateWord& word : program.words) {
                key += word.program < 0
                           ? word.text + ","
                           : fmt::format("@{},", groups[static_cast<size_t>(word.program)]);
            }
            next[i] = numbers.emplace(key, numbers.size()).first->second;
        }
        groups = std::move(next);
        if (numbers.size() == count) {
            break;
        }
        count = numbers.size();
    }
    std::map<size_t, int> numberOf;
    std::vector<int> replacement(groups.size());
    std::vector<LocateProgram> kept;
    for (size_t i = 0; i < groups.size(); ++i) {
        const auto [entry, isNew] = numberOf.emplace(groups[i], static_cast<int>(kept.size()));
        replacement[i] = entry->second;
        if (isNew) {
            kept.push_back(programs.programs[i]);
        }
    }
    for (LocateProgram& program : kept) {
        for (LocateWord& word : program.words) {
            if (word.program >= 0) {
                word.program = replacement[static_cast<size_t>(word.program)];
            }
        }
    }
    for (int& root : programs.roots) {
        root = replacement[static_cast<size_t>(root)];
    }
    programs.programs = std::move(kept);
}

} // namespace asn1gen
