#include <algorithm>

#include "asn1gen/syntax.h"

namespace asn1gen {
namespace {

void narrow(std::optional<Range>& range, const std::optional<Range>& further,
            const Position& position) {
    if (!further) {
        return;
    }
    if (!range) {
        range = further;
        return;
    }
    range->lower = std::max(range->lower, further->lower);
    range->upper = std::min(range->upper, further->upper);
    range->extensible = further->extensible;
    if (range->upper < range->lower) {
        throw SourceError(position, "the constraints leave nothing that satisfies all of them");
    }
}

} // namespace

void Constraints::intersect(const Constraints& further, const Position& position) {
    narrow(values, further.values, position);
    narrow(size, further.size, position);
    if (!alphabet || !further.alphabet) {
        alphabet = alphabet ? alphabet : further.alphabet;
        return;
    }
    std::string both;
    for (const char character : *alphabet) {
        if (further.alphabet->find(character) != std::string::npos) {
            both += character;
        }
    }
    if (both.empty()) {
        throw SourceError(position, "the FROM constraints have no character in common");
    }
    alphabet = both;
}

} // namespace asn1gen
