#include "locator/path_names.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "locator/frame_state.h"
#include "locator/name_tables.h"

namespace {

// The name of what is walked at a word; null where that is nothing with a name.
const char* nameAt(uint16_t word) {
    const uint16_t* end = locatorNamedWords + locatorNameCount;
    const uint16_t* found = std::lower_bound(locatorNamedWords, end, word);
    if (found == end || *found != word) {
        return nullptr;
    }
    return locatorNames + locatorNameOffsets[found - locatorNamedWords];
}

// Text of a fixed capacity, whole pieces only.
class Text {
public:
    Text(char* text, size_t capacity) : text(text), capacity(capacity) {}

    bool append(const char* piece, size_t size) {
        if (size + 1 > capacity - length) {
            return false;
        }
        std::memcpy(text + length, piece, size);
        length += size;
        return true;
    }

    bool appendName(const char* name) {
        const size_t before = length;
        if ((length != 0 && !append(".", 1)) || !append(name, std::strlen(name))) {
            length = before;
            return false;
        }
        return true;
    }

    bool appendIndex(uint32_t index) {
        char digits[16] = "[";
        char* end = std::to_chars(digits + 1, digits + sizeof digits - 1, index).ptr;
        *end = ']';
        return append(digits, static_cast<size_t>(end + 1 - digits));
    }

    size_t finish() {
        text[length] = '\0';
        return length;
    }

private:
    char* text;
    size_t capacity;
    size_t length = 0;
};

} // namespace

size_t placePath(const LocatorWalk& walk, char* text, size_t capacity) {
    if (capacity == 0) {
        return 0;
    }
    Text path(text, capacity);
    for (size_t i = 1; i <= walk.top; ++i) {
        const LocatorFrame& frame = walk.frames[i];
        if (frame.state == inList) {
            if (!path.appendIndex(frame.index)) {
                break;
            }
            continue;
        }
        const char* name = nameAt(frame.at);
        if (name != nullptr && !path.appendName(name)) {
            break;
        }
    }
    return path.finish();
}

const char* placeKindName(PlaceKind kind) {
    static constexpr const char* names[placeKindCount] = {
        "address",  "callIdentifier",  "alias",         "messageBody",
        "dataType", "dataApplication", "channelNumber", "token"};
    const auto index = static_cast<size_t>(kind);
    return index < placeKindCount ? names[index] : "unknown";
}
