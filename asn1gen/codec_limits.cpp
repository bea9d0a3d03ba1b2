#include "asn1gen/codec_limits.h"

#include <bit>
#include <limits>

#include "asn1gen/emitter.h"
#include "asn1gen/layout.h"

namespace asn1gen {
namespace {

// The extension bit goes with the presence bits into one word.
constexpr int maxPresenceBits = 31;

[[noreturn]] void fail(const Type& type, const std::string& message) {
    const std::string name = type.name.empty() ? typeNotation(type) : type.name;
    throw SourceError(type.position, name + " " + message);
}

void checkInteger(const Type& type) {
    const Range& range = *type.values;
    if (range.upper == Range::greatest) {
        fail(type, "has a lower bound alone; a codec needs both or none");
    }
    if (range.lower < 0 && range.upper - range.lower > std::numeric_limits<int32_t>::max()) {
        fail(type, "has a signed range of 2^31 values or more, which codecs do not support");
    }
    if (range.extensible && isUnsigned(type)) {
        fail(type, "has an extension marker behind a bound above 2147483647, which codecs do not "
                   "support");
    }
}

// The runtime's alphabets leave out what the terminals that the codecs were made for never send.
bool codesCharacter(const Type& type, char character) {
    constexpr unsigned char endOfIa5 = 0x60;
    constexpr unsigned char holeBegin = 0x88;
    constexpr unsigned char holeEnd = 0x90;
    const auto octet = static_cast<unsigned char>(character);
    if (octet == 0) {
        return false; // ends a string
    }
    if (type.stringName == "IA5String") {
        return octet < endOfIa5;
    }
    return octet < holeBegin || octet >= holeEnd;
}

// The runtime gives the index of a character one bit more than X.691 when the characters are a
// power of two. Where both sums round up to the same one, nobody sees it.
void checkAlphabet(const Type& type) {
    const size_t characters = type.alphabet->size();
    if (characters <= 16 && std::has_single_bit(characters) && characters != 8) {
        fail(type, "permits " + std::to_string(characters) +
                       " characters, which the runtime does not code as X.691 does");
    }
    for (const char character : *type.alphabet) {
        if (!codesCharacter(type, character)) {
            fail(type, "permits " + quote({character}) + ", which the runtime's " +
                           type.stringName + " does not have");
        }
    }
}

void checkType(const Type& type) {
    if (type.kind == Kind::Sequence && presenceBits(type) > maxPresenceBits) {
        fail(type, "needs " + std::to_string(presenceBits(type)) +
                       " presence bits; codecs support at most 31");
    }
    if (type.kind == Kind::Integer && type.values) {
        checkInteger(type);
    }
    if (type.alphabet) {
        checkAlphabet(type);
    }
    if (type.size && type.size->upper == Range::greatest) {
        fail(type, "has a least size alone; a codec needs the greatest one too");
    }
}

} // namespace

void checkCodecLimits(const Model& model) {
    for (const auto& type : model.types) {
        if (type->alias == nullptr) {
            checkType(*type);
        }
    }
}

} // namespace asn1gen
