// What the walk through one message stands on: a program of the tables, and a frame for each
// program that called another. locator.cpp runs the programs; extension additions and what is told
// beside addresses have files of their own.
#pragma once

#include "locator/cursor.h"
#include "locator/frame_state.h"
#include "locator/locator.h"
#include "locator/program.h"

namespace locating {

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

// The walk's state in registers, for one call of nextPlace, and what each of its steps needs.
class Walk {
public:
    LOCATOR_INLINE Walk(LocatorWalk& walk, LocatedPlace& place)
        : walk(walk), place(place), cursor(walk), frame(&walk.frames[walk.top]), pc(frame->pc),
          presence(frame->presence) {}

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

    // A number of a range, in one of the forms of bounded lengths.
    LOCATOR_INLINE bool readLength(uint32_t form, uint64_t& number) {
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

    bool skipOpenType() { return cursor.skipVariable(octetBits); }

    // additions.cpp
    bool smallNumber(uint64_t& number);
    bool octetsOfNumber(size_t octets, uint64_t& number);
    Then beginAdditions(uint32_t argument);
    Then nextAddition();

    // told_values.cpp
    Then tellOctets(uint32_t argument);
    Then tellNumber();
    Then tellString(uint32_t argument);

    LocatorWalk& walk;
    LocatedPlace& place;
    LocatorCursor cursor;
    Frame* frame;
    size_t pc;
    uint64_t presence;
};

} // namespace locating
