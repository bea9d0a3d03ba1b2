// What a frame of a walk is in the middle of.
#pragma once

#include <cstdint>

enum FrameState : uint8_t {
    running,   // its program goes on at pc
    inList,    // a list; pc is the element's program
    additions, // in an open type behind the root; pc is its entry in the table, index the
               // instruction, remaining how many unknown ones come behind the known
    content,   // in an octet string or open type; the program goes on at pc behind it
    passing,   // a CHOICE: nothing of it comes behind the alternative
    outermost,
};
