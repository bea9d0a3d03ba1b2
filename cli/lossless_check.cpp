#include "cli/lossless_check.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <stdexcept>

#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "cli/settable_fields.h"
#include "cli/status_text.h"
#include "nat/listed/rewrite_mode.h"

namespace cli {
namespace {

/// Octets of a message.
struct Place {
    size_t offset = 0;
    size_t length = 0;

    friend bool operator==(const Place&, const Place&) = default;
};

std::string text(const Place& place) {
    return std::to_string(place.offset) + ":" + std::to_string(place.length);
}

size_t number(std::string_view digits) {
    size_t value = 0;
    const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (end.ec != std::errc() || end.ptr != digits.data() + digits.size()) {
        throw std::runtime_error("expected a number in the list of fields, found \"" +
                                 std::string(digits) + "\"");
    }
    return value;
}

/// Whether the third field lists places. Otherwise it is an encoding, of interest elsewhere.
bool isList(const std::string& third) {
    return third.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos;
}

/// FIELD=OFFSET:LENGTH,...
std::map<std::string, Place> readList(std::string_view list) {
    std::map<std::string, Place> places;
    while (!list.empty()) {
        const std::string_view item = list.substr(0, list.find(','));
        const size_t equals = item.find('=');
        const size_t colon = item.find(':', equals);
        if (colon == std::string_view::npos) {
            throw std::runtime_error("expected FIELD=OFFSET:LENGTH, found \"" + std::string(item) +
                                     "\"");
        }
        places[std::string(item.substr(0, equals))] = {
            number(item.substr(equals + 1, colon - equals - 1)), number(item.substr(colon + 1))};
        list.remove_prefix(std::min(list.size(), item.size() + 1));
    }
    return places;
}

/// The places that the decoder found, both parts of each field. A field whose place cannot be told
/// is left out: the module leaves it as it is.
std::map<std::string, Place> placesOf(const EditedMessage& message) {
    std::map<std::string, Place> places;
    for (const SettableField& field : message.fields()) {
        const int64_t offset = message.offsetOf(field);
        if (offset >= 0) {
            const auto start = static_cast<size_t>(offset);
            places[field.name + ".ip"] = {start, addressOctets};
            places[field.name + ".port"] = {start + addressOctets, endpointOctets - addressOctets};
        }
    }
    return places;
}

std::string compare(const std::map<std::string, Place>& listed,
                    const std::map<std::string, Place>& found) {
    for (const auto& [name, place] : listed) {
        const auto at = found.find(name);
        if (at == found.end()) {
            return name + " is listed at " + text(place) + ", the decoder found none";
        }
        if (!(at->second == place)) {
            return name + " is listed at " + text(place) + ", the decoder found it at " +
                   text(at->second);
        }
    }
    for (const auto& [name, place] : found) {
        if (!listed.contains(name)) {
            return "the decoder found " + name + " at " + text(place) + ", the list lacks it";
        }
    }
    return "";
}

/// Inverts every bit of every field.
void invertFields(const EditedMessage& message) {
    for (const SettableField& field : message.fields()) {
        const Endpoint old = readEndpoint(field.field);
        setEndpoint(*field.edit, field.field, {~old.address, static_cast<uint16_t>(~old.port)});
    }
}

/// What is wrong with a message whose octets at `places`, and no others, are to be inverted.
std::string differenceFrom(const std::vector<uint8_t>& original,
                           const std::map<std::string, Place>& places,
                           const std::vector<uint8_t>& changed) {
    std::vector<uint8_t> expected = original;
    for (const auto& [name, place] : places) {
        for (size_t i = 0; i < place.length; ++i) {
            expected[place.offset + i] = static_cast<uint8_t>(~expected[place.offset + i]);
        }
    }
    const auto ends = std::mismatch(expected.begin(), expected.end(), changed.begin());
    if (ends.first == expected.end()) {
        return "";
    }
    return "octet " + std::to_string(ends.first - expected.begin()) +
           " is not what setting the fields should give";
}

std::string decodingStatus(const TypeDescription& type, const std::vector<uint8_t>& octets) {
    MessageValue value(type);
    pu_setLenient(value.context(), 1);
    return statusText(value.decode(octets));
}

} // namespace

std::string losslessFaultOf(const VectorLine& line) {
    const TypeDescription* type = findType(line.type);
    if (type == nullptr) {
        return "no type has this name";
    }
    setRewriteMode(REWRITE_LOSSLESS);
    std::vector<uint8_t> octets = line.encoding;
    std::map<std::string, Place> places;
    {
        const EditedMessage message(*type, octets);
        if (!message.isOpen()) {
            return "decoding gives " + decodingStatus(*type, octets);
        }
        places = placesOf(message);
        if (isList(line.third)) {
            std::string fault = compare(readList(line.third), places);
            if (!fault.empty()) {
                return fault;
            }
        }
        invertFields(message);
    }
    std::string fault = differenceFrom(line.encoding, places, octets);
    if (!fault.empty()) {
        return fault;
    }
    const EditedMessage message(*type, octets);
    if (!message.isOpen()) {
        return "the changed message does not decode";
    }
    invertFields(message);
    return octets == line.encoding ? "" : "setting the fields back does not give the original";
}

} // namespace cli
