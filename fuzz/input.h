// Reads a fuzzer's input front to back. Behind its end everything is zero.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace fuzzing {

using Octets = std::vector<uint8_t>;

class Input {
public:
    Input(const uint8_t* data, size_t size) : rest_(data, size) {}

    [[nodiscard]] bool atEnd() const { return rest_.empty(); }

    uint8_t octet() {
        if (rest_.empty()) {
            return 0;
        }
        const uint8_t value = rest_.front();
        rest_ = rest_.subspan(1);
        return value;
    }

    uint16_t number16() {
        const unsigned high = octet();
        return static_cast<uint16_t>(high << 8 | octet());
    }

    uint32_t number32() {
        const uint32_t high = number16();
        return high << 16 | number16();
    }

    /// At most `count` octets: fewer at the end.
    Octets octets(size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }

    Octets remainder() { return octets(rest_.size()); }

private:
    std::span<const uint8_t> rest_;
};

} // namespace fuzzing
