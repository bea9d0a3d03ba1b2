// What the runtime's tests share: contexts that release themselves, and hex.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "asn1per/asn1per.h"

using Octets = std::vector<uint8_t>;

constexpr uint8_t VARIANTS[] = {1, 0}; // aligned, unaligned

inline Octets fromHex(const std::string& hex) {
    Octets octets;
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') {
            digits += c;
        }
    }
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        octets.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return octets;
}

inline std::string toHex(const uint8_t* data, size_t octets) {
    static const char DIGITS[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < octets; ++i) {
        hex += DIGITS[data[i] >> 4];
        hex += DIGITS[data[i] & 15];
    }
    return hex;
}

// An encoder into an owned buffer.
struct Writer : PerContext {
    explicit Writer(uint8_t aligned = 1) : PerContext{} {
        (void)pu_initContext(this, nullptr, 0, aligned);
    }
    Writer(Octets* target, uint8_t aligned) : PerContext{} {
        (void)pu_initContext(this, target->data(), static_cast<uint32_t>(target->size()), aligned);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() { pu_freeContext(this); }
    // For a call whose encoder ends with the statement.
    PerContext* self() { return this; }

    Octets octets() const {
        uint32_t length = 0;
        const uint8_t* start = pe_getMsgPtr(this, &length);
        return start == nullptr ? Octets() : Octets(start, start + length);
    }
    std::string hex() const {
        const Octets all = octets();
        return toHex(all.data(), all.size());
    }
};

// A decoder over its own copy of the octets, in memory of exactly that size, so that the address
// sanitizer sees a read behind them.
struct Reader : PerContext {
    explicit Reader(const Octets& message, uint8_t aligned = 1)
        : PerContext{}, copy(std::make_unique<uint8_t[]>(message.size() + 1)) {
        // One octet before, none behind: the message ends with the allocation.
        for (size_t i = 0; i < message.size(); ++i) {
            copy[i + 1] = message[i];
        }
        (void)pu_initContext(this, copy.get() + 1, static_cast<uint32_t>(message.size()), aligned);
    }
    explicit Reader(const std::string& hex, uint8_t aligned = 1) : Reader(fromHex(hex), aligned) {}
    // For a call whose decoder ends with the statement.
    PerContext* self() { return this; }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() { pu_freeContext(this); }
    std::unique_ptr<uint8_t[]> copy;
};
