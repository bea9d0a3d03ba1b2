// The locator on any octets: places inside them, the same answer twice, and addresses written into
// the places are just what the next walk finds.
//
// Input: type, the message.
#include <algorithm>
#include <memory>
#include <tuple>

#include "fuzz/input.h"
#include "fuzz/require.h"
#include "locator/path_names.h"

namespace fuzzing {
namespace {

constexpr uint8_t typeCount = 4;
constexpr size_t addressOctets = 6;

using Place = std::tuple<PlaceKind, uint16_t, uint16_t, size_t, size_t, uint32_t>;

struct Answer {
    std::vector<Place> places;
    std::vector<std::pair<uint32_t, uint16_t>> addresses; // of the places that are one
    LocateStatus status = LocateStatus::more;
    uint32_t splitAddresses = 0;
    uint32_t refusedElements = 0;

    bool operator==(const Answer&) const = default;
};

void requireInside(const LocatedPlace& place, const uint8_t* octets, size_t count) {
    require(place.offset <= count && place.length <= count - place.offset, "places are inside");
    if (place.kind == PlaceKind::address) {
        require(place.length == addressOctets, "an address has six octets");
        uint64_t value = 0;
        for (size_t i = 0; i < addressOctets; ++i) {
            value = value << 8 | octets[place.offset + i];
        }
        require(value == (uint64_t{place.address} << 16 | place.port),
                "an address is what stands at its place");
    }
}

Answer locate(LocatedType type, const uint8_t* octets, size_t count, uint32_t kinds) {
    Answer answer;
    LocatorWalk walk;
    LocatedPlace place{};
    size_t behind = 0; // the last address
    startLocating(walk, type, octets, count, kinds);
    while (nextPlace(walk, place)) {
        requireInside(place, octets, count);
        require((kinds & placeKindBit(place.kind)) != 0, "no kind is told that was not asked for");
        require(place.offset >= behind, "places are in order, addresses apart");
        behind = place.offset;
        if (place.kind == PlaceKind::address) {
            behind += place.length;
            answer.addresses.emplace_back(place.address, place.port);
        }
        char text[256];
        require(placePath(walk, text, sizeof text) < sizeof text, "a path fits its capacity");
        require(placeIndexes(walk, nullptr, 0) < locatorDepth, "indexes are those of frames");
        if (place.kind == PlaceKind::alias) {
            aliasCharacters(octets, place, text, sizeof text);
        }
        answer.places.emplace_back(place.kind, place.field, place.alternative, place.offset,
                                   place.length, place.path);
    }
    require(!nextPlace(walk, place), "the end stays the end");
    require(walk.status != LocateStatus::more, "a walk ends");
    require(answer.places.size() <= count * 8 + 1, "places cost bits");
    answer.status = walk.status;
    answer.splitAddresses = walk.splitAddresses;
    answer.refusedElements = walk.refusedElements;
    return answer;
}

/// Another address and port at every place; returns them in order.
std::vector<std::pair<uint32_t, uint16_t>> writeOthers(const Answer& answer, uint8_t* octets) {
    std::vector<std::pair<uint32_t, uint16_t>> written;
    for (const Place& place : answer.places) {
        if (std::get<PlaceKind>(place) == PlaceKind::address) {
            uint8_t* at = octets + std::get<3>(place);
            std::transform(at, at + addressOctets, at,
                           [](uint8_t octet) { return static_cast<uint8_t>(~octet); });
            const auto& [address, port] = answer.addresses[written.size()];
            written.emplace_back(~address, static_cast<uint16_t>(~port));
        }
    }
    return written;
}

} // namespace
} // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    Input input(data, size);
    const auto type = static_cast<LocatedType>(input.octet() % typeCount);
    const Octets message = input.remainder();
    const auto octets = std::make_unique<uint8_t[]>(message.size());
    std::copy(message.begin(), message.end(), octets.get());

    const Answer answer = locate(type, octets.get(), message.size(), allPlaceKinds);
    require(locate(type, octets.get(), message.size(), allPlaceKinds) == answer,
            "the same octets give the same answer");
    const Answer addressesOnly =
        locate(type, octets.get(), message.size(), placeKindBit(PlaceKind::address));
    require(addressesOnly.addresses == answer.addresses && addressesOnly.status == answer.status,
            "what is asked for does not change the walk");

    Answer expected = answer;
    expected.addresses = writeOthers(answer, octets.get());
    require(locate(type, octets.get(), message.size(), allPlaceKinds) == expected,
            "addresses written into the places are what is found");
    return 0;
}
