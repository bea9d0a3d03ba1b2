#pragma once

#include "gateway/live/causes.h"

#include <array>
#include <cstdint>
#include <span>

namespace gateway {

enum class Cause : uint8_t {
#define H323NAT_CAUSE_MEMBER(member, name, text) member,
    H323NAT_GATEWAY_CAUSES(H323NAT_CAUSE_MEMBER)
#undef H323NAT_CAUSE_MEMBER
        count
};

struct CauseText {
    const char* name;
    const char* description;
};

// Name and description of every cause, in the order of `Cause`.
std::span<const CauseText> causeTexts();

// How long packets stayed with the gateway, in buckets that double: bucket i counts times below
// 2^i microseconds, the last one everything longer.
class DelayHistogram {
public:
    static constexpr size_t buckets = 21;

    void add(uint64_t nanoseconds);
    [[nodiscard]] uint64_t total() const { return total_; }
    [[nodiscard]] uint64_t sum() const { return sum_; } // nanoseconds
    [[nodiscard]] uint64_t bucket(size_t index) const { return counts_[index]; }

    // Upper bound in microseconds of the bucket in which the given share (0 to 1) of all packets
    // is reached; 0 when there was no packet.
    [[nodiscard]] uint64_t quantileMicroseconds(double share) const;

private:
    std::array<uint64_t, buckets> counts_{};
    uint64_t total_ = 0;
    uint64_t sum_ = 0;
};

class Counters {
public:
    void add(Cause cause, uint64_t amount = 1) { values_[static_cast<size_t>(cause)] += amount; }
    void set(Cause cause, uint64_t value) { values_[static_cast<size_t>(cause)] = value; }
    [[nodiscard]] uint64_t of(Cause cause) const { return values_[static_cast<size_t>(cause)]; }

    DelayHistogram delay; // of packets that went on alone
    DelayHistogram hold;  // of segments that waited for the rest of their message

private:
    std::array<uint64_t, static_cast<size_t>(Cause::count)> values_{};
};

} // namespace gateway
