#include "locator/locator.h"

#include "locator/walk.h"

namespace {

using namespace locating;

// Runs the programs from one place to the next.
class Walker : Walk {
public:
    using Walk::Walk;

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

    LOCATOR_INLINE Then step();
    LOCATOR_INLINE Then sequence(uint32_t argument);
    Then choice(uint32_t argument);
    Then alternativeAddition(uint32_t argument, size_t targets);
    Then list(uint32_t argument);
    LOCATOR_INLINE Then container();
    LOCATOR_INLINE Then address();
    LOCATOR_INLINE Then sized(uint32_t argument);
    LOCATOR_INLINE Then index(uint32_t argument, LocatorOp operation);

    Then resume();
    Then nextElement();
    Then refuse();
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

Then Walker::index(uint32_t argument, LocatorOp operation) {
    const auto bits = static_cast<uint32_t>(std::bit_width(argument));
    const uint32_t extension = operation == LocatorOp::boundedIndex ? 0 : 1;
    uint64_t number = 0;
    if (bits + extension != 0 && !cursor.take(bits + extension, number)) {
        return Then::refuse;
    }
    // The analyser takes the width of 0 for -1.
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult)
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
