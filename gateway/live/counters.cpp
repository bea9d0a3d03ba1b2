#include "gateway/live/counters.h"

#include <algorithm>
#include <bit>

namespace gateway {
namespace {

constexpr CauseText texts[] = {
#define H323NAT_CAUSE_TEXT(member, name, text) {name, text},
    H323NAT_GATEWAY_CAUSES(H323NAT_CAUSE_TEXT)
#undef H323NAT_CAUSE_TEXT
};

} // namespace

std::span<const CauseText> causeTexts() {
    return texts;
}

void DelayHistogram::add(uint64_t nanoseconds) {
    const auto width = static_cast<size_t>(std::bit_width(nanoseconds / 1000));
    ++counts_[std::min(width, buckets - 1)];
    ++total_;
    sum_ += nanoseconds;
}

uint64_t DelayHistogram::quantileMicroseconds(double share) const {
    uint64_t seen = 0;
    for (size_t index = 0; index < buckets; ++index) {
        seen += counts_[index];
        if (seen != 0 && static_cast<double>(seen) >= share * static_cast<double>(total_)) {
            return uint64_t{1} << index;
        }
    }
    return 0;
}

} // namespace gateway
