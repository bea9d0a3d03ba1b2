// What is told beside addresses: octets, numbers and aliases.
#include "locator/walk.h"

namespace locating {

Then Walk::tellOctets(uint32_t argument) {
    cursor.align();
    const uint32_t kind = operand(1);
    const bool whole = argument * octetBits <= cursor.end - cursor.position;
    frame->at = static_cast<uint16_t>(pc);
    if (whole && isTold(kind)) {
        found(kind, operand(2), argument);
        cursor.position += argument * octetBits;
        pc += 3;
        return Then::give;
    }
    return on(cursor.skip(argument * octetBits), 3);
}

Then Walk::tellNumber() {
    const uint32_t kind = operand(1) & 0xFFU;
    uint64_t number = 0;
    frame->at = static_cast<uint16_t>(pc);
    const uint32_t form = operand(1) >> 8;
    if (form >= aligned8) {
        cursor.align();
    }
    const size_t start = cursor.position / octetBits;
    if (!readLength(form, number)) {
        return Then::refuse;
    }
    const uint32_t field = operand(2);
    const uint32_t value = static_cast<uint32_t>(number) + operand(3);
    pc += 4;
    if (!isTold(kind)) {
        return Then::goOn;
    }
    found(kind, field, form >= aligned8 ? form - aligned8 + 1U : 0U);
    place.offset = start;
    place.value = value;
    return Then::give;
}

Then Walk::tellString(uint32_t argument) {
    constexpr auto kind = static_cast<uint16_t>(PlaceKind::alias);
    uint64_t items = 0;
    if (!readLength(argument & lengthForm, items)) {
        return Then::refuse;
    }
    items += operand(1);
    if ((operand(2) & stringAligned) != 0) {
        cursor.align();
    }
    const uint32_t itemBits = operand(2) & 0xFFU;
    const uint64_t bits = items * itemBits;
    frame->at = static_cast<uint16_t>(pc);
    if (bits <= cursor.end - cursor.position && cursor.position % octetBits == 0 && isTold(kind)) {
        found(kind, operand(3), static_cast<size_t>((bits + octetBits - 1) / octetBits));
        place.value = static_cast<uint32_t>(items);
        place.characterBits = static_cast<uint8_t>(itemBits);
        cursor.position += static_cast<size_t>(bits);
        pc += 4;
        return Then::give;
    }
    return on(cursor.skip(bits), 4);
}

} // namespace locating

size_t aliasCharacters(const uint8_t* octets, const LocatedPlace& place, char* text,
                       size_t capacity) {
    constexpr uint8_t digitBits = 4;
    constexpr char digits[] = "#*,0123456789"; // in the order of their codes
    const bool packed = place.characterBits == digitBits;
    const size_t count = packed ? place.value : place.length;
    for (size_t i = 0; i < count && i < capacity; ++i) {
        const uint8_t octet = octets[place.offset + (packed ? i / 2 : i)];
        if (!packed) {
            text[i] = static_cast<char>(octet);
            continue;
        }
        const unsigned digit = i % 2 == 0 ? octet >> digitBits : octet & 0x0FU;
        text[i] = digit + 1 < sizeof digits ? digits[digit] : '?';
    }
    return count;
}
