#include "locator/locator.h"

#include "locator/cursor.h"
#include "locator/frame_state.h"
#include "locator/program.h"

namespace {

constexpr uint16_t noRest = 0xFFFF;
constexpr size_t octetBits = 8;
constexpr size_t addressOctets = 6;

enum FrameFlag : uint8_t {
    extended = 1,      // SEQUENCE: extension additions are there; the value of the bit
    moreElements = 2,  // list: another fragment of it follows
    messageInside = 4, // content: of an octet string
};

// What a step of the walk asks for.
enum class Then : uint8_t {
    goOn,
    pop,    // the program is done
    unwind, // on to the end of the content that frame->rest names
    resume, // the frame goes on as its state says
    refuse, // the message makes no sense here
    give,
    stop,
};

// The walk's state in registers, for one call of nextPlace.
class Walker {
public:
    LOCATOR_INLINE Walker(LocatorWalk& walk, LocatedPlace& place)
        : walk(walk), place(place), cursor(walk), frame(&walk.frames[walk.top]), pc(frame->pc),
          presence(frame->presence) {}

    LOCATOR_INLINE bool run() {
        for (;;) {
            Then then = step();
            while (then != Then::goOn) {
                switch (then) {
                case Then::pop:
                    then = pop();
                    break;
                case Then::unwind:
                    frame = &walk.frames[frame->rest];
                    then = Then::resume;
                    break;
                case Then::resume:
                    then = resume();
                    break;
                case Then::refuse:
                    then = refuse();
                    break;
                case Then::give:
                    frame->pc = static_cast<uint16_t>(pc);
                    frame->presence = presence;
                    walk.top = static_cast<uint16_t>(frame - walk.frames);
                    cursor.store();
                    return true;
                default:
                    return false;
                }
            }
        }
    }

private:
    using Frame = LocatorFrame;

    // Words of the instruction at pc.
    LOCATOR_INLINE uint32_t operand(unsigned index) const { return locatorProgram[pc + index]; }

    LOCATOR_INLINE static uint32_t pathBelow(uint32_t path, uint16_t at) {
        constexpr uint32_t odd = 0x9E3779B1;
        return (path ^ at) * odd;
    }

    // A frame above the current one, which keeps what it needs to go on.
    LOCATOR_INLINE bool push(uint32_t program, uint16_t rest) {
        if (frame == &walk.frames[locatorDepth - 1]) [[unlikely]] {
            walk.status = LocateStatus::tooDeep;
            return false;
        }
        const uint32_t path = pathBelow(frame->path, frame->at);
        frame->presence = presence;
        ++frame;
        frame->path = path;
        frame->rest = rest;
        frame->at = 0;
        frame->state = running;
        frame->flags = 0;
        pc = program;
        return true;
    }

    LOCATOR_INLINE Then pushed(uint32_t program, uint16_t rest) {
        return push(program, rest) ? Then::goOn : Then::stop;
    }

    LOCATOR_INLINE Then on(bool done, unsigned words) {
        pc += words;
        return done ? Then::goOn : Then::refuse;
    }

    // The program is done: on with the one that called it.
    LOCATOR_INLINE Then pop() {
        do {
            --frame;
        } while (frame->state == passing);
        if (frame->state != running) {
            return Then::resume;
        }
        pc = frame->pc;
        presence = frame->presence;
        return Then::goOn;
    }

    uint16_t here() const { return static_cast<uint16_t>(frame - walk.frames); }

    // Whether what the instruction calls is the last thing to be walked in the content around.
    LOCATOR_INLINE uint16_t restOf(uint32_t argument) const {
        const bool isLast = (argument & last) != 0 &&
                            ((argument & lastIfRoot) == 0 || (frame->flags & extended) == 0);
        return isLast ? frame->rest : noRest;
    }

    LOCATOR_INLINE bool isTold(uint32_t kind) const { return (walk.kinds >> kind & 1U) != 0; }

    LOCATOR_INLINE void found(uint32_t kind, uint32_t field, size_t length) {
        place.kind = static_cast<PlaceKind>(kind);
        place.field = static_cast<uint16_t>(field);
        place.alternative = walk.alternative;
        place.port = 0;
        place.address = 0;
        place.value = 0;
        place.offset = cursor.position / octetBits;
        place.length = length;
        place.characterBits = 0;
        place.path = pathBelow(frame->path, frame->at);
    }

    LOCATOR_INLINE Then step();
    LOCATOR_INLINE Then sequence(uint32_t argument);
    Then choice(uint32_t argument);
    Then alternativeAddition(uint32_t argument, size_t targets);
    Then list(uint32_t argument);
    Then beginAdditions(uint32_t argument);
    LOCATOR_INLINE Then container();
    LOCATOR_INLINE Then address();
    Then tellOctets(uint32_t argument);
    Then tellNumber();
    LOCATOR_INLINE bool readLength(uint32_t form, uint64_t& number);
    LOCATOR_INLINE Then sized(uint32_t argument);
    Then tellString(uint32_t argument);
    LOCATOR_INLINE Then index(uint32_t argument, LocatorOp operation);
    bool smallNumber(uint64_t& number);
    bool octetsOfNumber(size_t octets, uint64_t& number);
    bool skipOpenType() { return cursor.skipVariable(octetBits); }

    Then resume();
    Then nextElement();
    Then nextAddition();
    Then refuse();

    LocatorWalk& walk;
    LocatedPlace& place;
    LocatorCursor cursor;
    Frame* frame;
    size_t pc;
    uint64_t presence;
};

Then Walker::step() {
    const uint32_t word = operand(0);
    if ((word & optionalInstruction) != 0) {
        const bool present = presence >> 63 != 0;
        presence <<= 1;
        if (!present) {
            pc += (word >> sizeShift & 3U) + 1U;
            return Then::goOn;
        }
    }
    const uint32_t argument = word >> argumentShift;
    const auto operation = static_cast<LocatorOp>(word & operationMask);
    switch (operation) {
    case LocatorOp::end:
        return pop();
    case LocatorOp::skip:
        return on(cursor.skip(argument), 1);
    case LocatorOp::skipOctets:
        cursor.align();
        return on(cursor.skip(argument * octetBits), 1);
    case LocatorOp::longInteger: {
        uint64_t octets = 0;
        if (!cursor.take(argument, octets)) {
            return Then::refuse;
        }
        cursor.align();
        return on(cursor.skip((octets + 1) * octetBits), 1);
    }
    case LocatorOp::variable:
        return on(cursor.skipVariable(argument == 0 ? 1U : argument * uint32_t{octetBits}), 1);
    case LocatorOp::sized:
        return sized(argument);
    case LocatorOp::orVariable: {
        uint64_t outside = 0;
        if (!cursor.take(1, outside)) {
            return Then::refuse;
        }
        if (outside == 0) {
            return on(true, 1);
        }
        return on(cursor.skipVariable(octetBits), (word >> sizeShift & 3U) + 1U);
    }
    case LocatorOp::boundedIndex:
    case LocatorOp::nullChoice:
    case LocatorOp::enumeration:
        return index(argument, operation);
    case LocatorOp::sequence:
        return sequence(argument);
    case LocatorOp::choice:
        return choice(argument);
    case LocatorOp::call: {
        const bool held = (argument & withField) != 0;
        const uint16_t rest = restOf(argument);
        frame->at = static_cast<uint16_t>(pc);
        frame->pc = static_cast<uint16_t>(pc + (held ? 3 : 2));
        if (held) {
            walk.field = static_cast<uint16_t>(operand(2));
        }
        return pushed(operand(1), rest);
    }
    case LocatorOp::list:
        return list(argument);
    case LocatorOp::container:
        return container();
    case LocatorOp::address:
        return address();
    case LocatorOp::field:
        walk.field = static_cast<uint16_t>(operand(1));
        return on(true, 2);
    case LocatorOp::rest:
        if (frame->rest != noRest &&
            ((argument & lastIfRoot) == 0 || (frame->flags & extended) == 0)) {
            return Then::unwind;
        }
        return on(true, 1);
    case LocatorOp::additions:
        return (frame->flags & extended) == 0 ? pop() : beginAdditions(argument);
    case LocatorOp::jump:
        pc = operand(1);
        return Then::goOn;
    case LocatorOp::tellOctets:
        return tellOctets(argument);
    case LocatorOp::tellNumber:
        return tellNumber();
    case LocatorOp::tellString:
        return tellString(argument);
    case LocatorOp::tellPresence: {
        const uint32_t kind = operand(1);
        const uint32_t field = operand(2);
        frame->at = static_cast<uint16_t>(pc);
        pc += 3;
        if (!isTold(kind)) {
            return Then::goOn;
        }
        found(kind, field, 0);
        return Then::give;
    }
    }
    __builtin_unreachable(); // the tables hold no other operation
}

Then Walker::sequence(uint32_t argument) {
    const uint32_t isExtensible = (argument & extensible) != 0 ? 1 : 0;
    const uint32_t bits = (argument & (extensible - 1U)) + isExtensible;
    uint64_t preamble = 0;
    if (!cursor.takeHigh(bits, preamble)) {
        return Then::refuse;
    }
    frame->flags = static_cast<uint8_t>(preamble >> 63 & isExtensible); // extended
    presence = preamble << isExtensible;
    return on(true, 1);
}

// X.691 10.6: a number that is usually small.
bool Walker::smallNumber(uint64_t& number) {
    uint64_t bits = 0;
    if (!cursor.take(1, bits)) {
        return false;
    }
    if (bits == 0) {
        return cursor.take(6, number);
    }
    size_t octets = 0;
    bool more = false;
    return cursor.length(octets, more) && !more && octetsOfNumber(octets, number);
}

bool Walker::octetsOfNumber(size_t octets, uint64_t& number) {
    constexpr size_t most = 4;
    number = 0;
    return octets == 0 ||
           (octets <= most && cursor.take(static_cast<uint32_t>(octets * octetBits), number));
}

Then Walker::index(uint32_t argument, LocatorOp operation) {
    const auto bits = static_cast<uint32_t>(std::bit_width(argument));
    const uint32_t extension = operation == LocatorOp::boundedIndex ? 0 : 1;
    uint64_t number = 0;
    if (bits + extension != 0 && !cursor.take(bits + extension, number)) {
        return Then::refuse;
    }
    if (extension != 0 && number >> bits != 0) {
        cursor.position -= bits;
        const bool done =
            smallNumber(number) && (operation == LocatorOp::enumeration || skipOpenType());
        return on(done, 1);
    }
    return on(number <= argument, 1);
}

Then Walker::choice(uint32_t argument) {
    const uint32_t bits = (argument & lengthForm) + (argument / extensible);
    uint64_t number = 0;
    if (bits != 0 && !cursor.take(bits, number)) {
        return Then::refuse;
    }
    const size_t targets = pc + ((argument & told) != 0 ? 4 : 2);
    if (number > (operand(1) & 0xFFU)) [[unlikely]] {
        const uint32_t rootBits = argument & lengthForm;
        if (number >> rootBits == 0) {
            return Then::refuse;
        }
        cursor.position -= rootBits; // the extension bit was 1
        return alternativeAddition(argument, targets);
    }
    walk.alternative = static_cast<uint16_t>(number + 1);
    frame->at = static_cast<uint16_t>(targets + number);
    const bool give = (argument & told) != 0 && isTold(operand(2));
    if (give) {
        found(operand(2), operand(3), 0);
    }
    const uint32_t program = locatorProgram[targets + number];
    if (program >= locatorProgramsWithPlaces) {
        frame->state = passing;
        if (!push(program, frame->rest)) {
            return Then::stop;
        }
    } else {
        pc = frame->rest != noRest ? restProgram : program;
    }
    return give ? Then::give : Then::goOn;
}

// An alternative behind the extension marker: an open type, which is stepped over when it has no
// place or is not known.
Then Walker::alternativeAddition(uint32_t argument, size_t targets) {
    uint64_t number = 0;
    size_t length = 0;
    bool more = false;
    if (!smallNumber(number)) {
        return Then::refuse;
    }
    const uint32_t roots = (operand(1) & 0xFFU) + 1;
    const bool known = number < operand(1) >> 8;
    frame->at = known ? static_cast<uint16_t>(targets + roots + number) : uint16_t{0};
    walk.alternative = static_cast<uint16_t>(known ? roots + number + 1 : 0);
    const bool give = (argument & told) != 0 && isTold(operand(2));
    if (give) {
        cursor.align();
        found(operand(2), operand(3), 0);
    }
    const uint32_t program = known ? locatorProgram[frame->at] : endProgram;
    if (program >= locatorProgramsWithPlaces) {
        if (!cursor.length(length, more) || !cursor.enter(length, more, frame->outerEnd)) {
            return Then::refuse;
        }
        frame->pc = endProgram;
        frame->state = content;
        if (!push(program, here())) {
            return Then::stop;
        }
    } else if (frame->rest != noRest) {
        pc = restProgram;
    } else if (skipOpenType()) {
        pc = endProgram;
    } else {
        return Then::refuse;
    }
    return give ? Then::give : Then::goOn;
}

// A number of a range, in one of the forms of bounded lengths.
bool Walker::readLength(uint32_t form, uint64_t& number) {
    number = 0;
    if (form == 0) {
        return true;
    }
    if (form < aligned8) {
        return cursor.take(form, number);
    }
    cursor.align();
    return cursor.take(form == aligned8 ? 8 : 16, number);
}

Then Walker::sized(uint32_t argument) {
    uint64_t items = 0;
    if (!readLength(argument & lengthForm, items)) {
        return Then::refuse;
    }
    items += operand(1);
    if ((operand(2) & stringAligned) != 0 && items != 0) {
        cursor.align();
    }
    return on(cursor.skip(items * (operand(2) & 0xFFU)), 3);
}

Then Walker::list(uint32_t argument) {
    const unsigned words = (argument & withField) != 0 ? 4 : 3;
    uint64_t elements = 0;
    bool more = false;
    if ((argument & lengthForm) == openLength) {
        size_t length = 0;
        if (!cursor.length(length, more)) {
            return Then::refuse;
        }
        elements = length;
    } else {
        if (!readLength(argument & lengthForm, elements)) {
            return Then::refuse;
        }
        elements += operand(1);
    }
    if (elements == 0 && !more) {
        return on(true, words);
    }
    if (words == 4) {
        walk.field = static_cast<uint16_t>(operand(3));
    }
    frame->at = static_cast<uint16_t>(pc);
    frame->pc = static_cast<uint16_t>(pc + words);
    if (!push(operand(2), restOf(argument))) {
        return Then::stop;
    }
    frame->state = inList;
    frame->flags = more ? moreElements : 0;
    frame->pc = static_cast<uint16_t>(pc);
    frame->remaining = static_cast<uint32_t>(elements);
    frame->index = UINT32_MAX;
    return nextElement();
}

Then Walker::nextElement() {
    while (frame->remaining == 0) {
        if ((frame->flags & moreElements) == 0) {
            return Then::pop;
        }
        size_t elements = 0;
        bool more = false;
        if (!cursor.length(elements, more)) {
            return Then::refuse;
        }
        frame->remaining = static_cast<uint32_t>(elements);
        frame->flags = more ? moreElements : 0;
    }
    --frame->remaining;
    ++frame->index;
    const bool isLast = frame->remaining == 0 && frame->flags == 0;
    return pushed(frame->pc, isLast ? frame->rest : noRest);
}

Then Walker::beginAdditions(uint32_t argument) {
    constexpr uint64_t maskBits = 64;
    uint64_t count = 0;
    if (!cursor.take(7, count)) {
        return Then::refuse;
    }
    ++count;
    if (count > maskBits) { // the first bit says that a length determinant follows (X.691 10.9.3.4)
        cursor.position -= 6;
        size_t length = 0;
        bool more = false;
        if (!cursor.length(length, more) || more) {
            return Then::refuse;
        }
        count = length;
        if (length <= maskBits) {
            // No count of additions, but the octets of one that is coded as a number (X.691 10.6),
            // which is how the codecs read it.
            if (!octetsOfNumber(length, count)) {
                return Then::refuse;
            }
            ++count;
        }
    }
    uint64_t known = count < maskBits ? count : maskBits;
    uint64_t unknown = count - known;
    uint64_t mask = 0;
    for (uint64_t left = known; left != 0;) {
        const auto bits = static_cast<uint32_t>(left < 57 ? left : 32);
        uint64_t part = 0;
        if (!cursor.take(bits, part)) {
            return Then::refuse;
        }
        left -= bits;
        mask |= part << (maskBits - known + left);
    }
    frame->remaining = 0;
    for (; unknown != 0; --unknown) {
        uint64_t bit = 0;
        if (!cursor.take(1, bit)) {
            return Then::refuse;
        }
        frame->remaining += static_cast<uint32_t>(bit);
    }
    frame->presence = mask;
    frame->index = static_cast<uint32_t>(pc);
    frame->pc = static_cast<uint16_t>(pc + 1 + argument);
    return nextAddition();
}

// On in the additions of the frame: their presence bits stand in it, those behind the current one.
Then Walker::nextAddition() {
    constexpr unsigned wordBits = 16;
    uint64_t mask = frame->presence;
    uint64_t withPlaces = 0;
    const unsigned maskWords = locatorProgram[frame->index] >> argumentShift;
    for (unsigned i = 1; i <= maskWords; ++i) {
        withPlaces |= uint64_t{locatorProgram[frame->index + i]} << (64 - wordBits * i);
    }
    unsigned entry = frame->pc;
    for (;;) {
        if ((mask & withPlaces) == 0 && frame->rest != noRest) {
            return Then::unwind;
        }
        if (mask == 0) {
            break;
        }
        const auto number = static_cast<uint16_t>(std::countl_zero(mask));
        mask &= ~(uint64_t{1} << (63 - number));
        while (locatorProgram[entry] < number) {
            entry += 2;
        }
        if (locatorProgram[entry] == number) {
            size_t length = 0;
            bool more = false;
            if (!cursor.length(length, more) || !cursor.enter(length, more, frame->outerEnd)) {
                return Then::refuse;
            }
            presence = mask;
            frame->at = static_cast<uint16_t>(entry);
            frame->pc = static_cast<uint16_t>(entry);
            frame->state = additions;
            return pushed(locatorProgram[entry + 1], here());
        }
        if (!skipOpenType()) {
            return Then::refuse;
        }
    }
    for (; frame->remaining != 0; --frame->remaining) {
        if (!skipOpenType()) {
            return Then::refuse;
        }
    }
    return Then::pop;
}

Then Walker::container() {
    size_t length = 0;
    bool more = false;
    if (!cursor.length(length, more) || !cursor.enter(length, more, frame->outerEnd)) {
        return Then::refuse;
    }
    frame->state = content;
    frame->flags |= messageInside;
    frame->pc = static_cast<uint16_t>(pc + 2);
    return pushed(operand(1), here());
}

Then Walker::address() {
    cursor.align();
    constexpr size_t bits = addressOctets * octetBits;
    frame->at = static_cast<uint16_t>(pc);
    pc += 1;
    if (bits > cursor.end - cursor.position) [[unlikely]] {
        if (!cursor.skip(bits)) {
            return Then::refuse;
        }
        ++walk.splitAddresses;
        return Then::goOn;
    }
    constexpr auto kind = static_cast<uint16_t>(PlaceKind::address);
    if (isTold(kind)) {
        found(kind, walk.field, addressOctets);
        const uint8_t* octets = cursor.octets + place.offset;
        place.address = uint32_t{octets[0]} << 24 | uint32_t{octets[1]} << 16 |
                        uint32_t{octets[2]} << 8 | octets[3];
        place.port = static_cast<uint16_t>(octets[4] << 8 | octets[5]);
        cursor.position += bits;
        return Then::give;
    }
    cursor.position += bits;
    return Then::goOn;
}

Then Walker::tellOctets(uint32_t argument) {
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

Then Walker::tellNumber() {
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

Then Walker::tellString(uint32_t argument) {
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
        found(kind, operand(3), (bits + octetBits - 1) / octetBits);
        place.value = static_cast<uint32_t>(items);
        place.characterBits = static_cast<uint8_t>(itemBits);
        cursor.position += bits;
        pc += 4;
        return Then::give;
    }
    return on(cursor.skip(bits), 4);
}

Then Walker::resume() {
    switch (frame->state) {
    case inList:
        return nextElement();
    case additions:
        cursor.leave(frame->outerEnd);
        frame->state = running;
        return nextAddition();
    case content:
        cursor.leave(frame->outerEnd);
        frame->state = running;
        frame->flags = 0;
        break;
    default:
        walk.status = LocateStatus::complete;
        return Then::stop;
    }
    pc = frame->pc;
    presence = frame->presence;
    return Then::goOn;
}

// Behind the octet string around, if there is one: a message in it that makes no sense does not
// keep the rest from being walked.
Then Walker::refuse() {
    if (walk.status == LocateStatus::tooDeep) {
        return Then::stop;
    }
    size_t contentEnd = walk.seamCount != 0 ? walk.contentEnd : cursor.end;
    for (; frame->state != outermost; --frame) {
        const bool inContent = frame->state == content || frame->state == additions;
        if ((frame->flags & messageInside) != 0) {
            ++walk.refusedElements;
            if (walk.seamCount != 0) {
                walk.contentEnd = contentEnd;
            } else {
                cursor.end = contentEnd;
            }
            return Then::resume;
        }
        if (inContent) {
            contentEnd = frame->outerEnd;
        }
    }
    walk.status = LocateStatus::malformed;
    return Then::stop;
}

} // namespace

void startLocating(LocatorWalk& walk, LocatedType type, const uint8_t* octets, size_t count,
                   uint32_t kinds) {
    walk.octets = octets;
    walk.count = count;
    walk.position = 0;
    walk.end = count * octetBits;
    walk.contentEnd = walk.end;
    walk.kinds = kinds;
    walk.top = 1;
    walk.field = 0;
    walk.alternative = 0;
    walk.seam = 0;
    walk.seamCount = 0;
    walk.status = LocateStatus::more;
    walk.splitAddresses = 0;
    walk.refusedElements = 0;
    walk.frames[0].state = outermost;
    walk.frames[0].flags = 0;
    walk.frames[0].at = 0;
    walk.frames[0].path = 0;
    walk.frames[1].presence = 0;
    walk.frames[1].path = static_cast<uint32_t>(type) + 1;
    walk.frames[1].pc = locatorRoots[static_cast<size_t>(type)];
    walk.frames[1].at = 0;
    walk.frames[1].rest = 0;
    walk.frames[1].state = running;
    walk.frames[1].flags = 0;
}

bool nextPlace(LocatorWalk& walk, LocatedPlace& place) {
    return walk.status == LocateStatus::more && Walker(walk, place).run();
}

size_t placeIndexes(const LocatorWalk& walk, uint32_t* indexes, size_t capacity) {
    size_t count = 0;
    for (size_t i = 1; i <= walk.top; ++i) {
        if (walk.frames[i].state != inList) {
            continue;
        }
        if (count < capacity) {
            indexes[count] = walk.frames[i].index;
        }
        ++count;
    }
    return count;
}

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
