#include "report/pcapng_writer.h"

#include <algorithm>
#include <cstring>

namespace report {
namespace {

constexpr uint32_t sectionHeader = 0x0A0D0D0A;
constexpr uint32_t interfaceDescription = 1;
constexpr uint32_t enhancedPacket = 6;
constexpr uint32_t byteOrderMagic = 0x1A2B3C4D;
constexpr uint16_t linkTypeRaw = 101;
constexpr uint16_t optionComment = 1;
constexpr uint16_t optionTimeResolution = 9;
constexpr size_t longestComment = 65000;

// In this machine's byte order: the section header tells which one that is.
template <typename Number> void put(std::string& block, Number number) {
    char octets[sizeof number];
    std::memcpy(octets, &number, sizeof number);
    block.append(octets, sizeof number);
}

void pad(std::string& block) {
    block.append((4 - block.size() % 4) % 4, '\0');
}

void putOption(std::string& block, uint16_t code, const std::string& value) {
    const std::string cut = value.substr(0, longestComment);
    put(block, code);
    put(block, static_cast<uint16_t>(cut.size()));
    block += cut;
    pad(block);
}

void endOptions(std::string& block) {
    put<uint32_t>(block, 0);
}

std::string wrapped(uint32_t type, const std::string& body) {
    constexpr size_t frame = 12;
    const auto length = static_cast<uint32_t>(body.size() + frame);
    std::string block;
    put(block, type);
    put(block, length);
    block += body;
    put(block, length);
    return block;
}

} // namespace

std::string pcapngHeader(const std::string& comment) {
    std::string section;
    put(section, byteOrderMagic);
    put<uint16_t>(section, 1);
    put<uint16_t>(section, 0);
    put<int64_t>(section, -1);
    if (!comment.empty()) {
        putOption(section, optionComment, comment);
        endOptions(section);
    }
    std::string interface;
    put(interface, linkTypeRaw);
    put<uint16_t>(interface, 0);
    put<uint32_t>(interface, 0);
    putOption(interface, optionTimeResolution, "\x09");
    endOptions(interface);
    return wrapped(sectionHeader, section) + wrapped(interfaceDescription, interface);
}

std::string pcapngPacket(int64_t time, std::span<const uint8_t> packet,
                         const std::string& comment) {
    const auto stamp = static_cast<uint64_t>(time);
    const auto length = static_cast<uint32_t>(packet.size());
    std::string body;
    put<uint32_t>(body, 0);
    put(body, static_cast<uint32_t>(stamp >> 32));
    put(body, static_cast<uint32_t>(stamp));
    put(body, length);
    put(body, length);
    body.append(packet.begin(), packet.end());
    pad(body);
    if (!comment.empty()) {
        putOption(body, optionComment, comment);
        endOptions(body);
    }
    return wrapped(enhancedPacket, body);
}

} // namespace report
