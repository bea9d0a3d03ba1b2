#include "gateway/plain_capture/frame_source.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <vector>

#include "gateway/plain_capture/formats.h"

namespace gateway::plain_capture {
namespace {

constexpr uint32_t byteOrderMark = 0x1A2B3C4D;
constexpr uint32_t blockInterface = 1;
constexpr uint32_t blockSimplePacket = 3;
constexpr uint32_t blockEnhancedPacket = 6;
constexpr uint16_t optionEnd = 0;
constexpr uint16_t optionTimeResolution = 9;
constexpr uint16_t optionTimeOffset = 14;

struct Interface {
    uint32_t snapshotLength = 0; // 0: no limit
    // Times count units of 2^-exponent or 10^-exponent seconds; microseconds unless told.
    bool binary = false;
    unsigned exponent = 6;
    int64_t offsetSeconds = 0;
};

CaptureTime binaryTime(unsigned exponent, uint64_t units) {
    const uint64_t seconds = exponent > 63 ? 0 : units >> exponent;
    uint64_t fraction = exponent > 63 ? units : units - (seconds << exponent);
    // 32 bits of it are finer than a nanosecond, and the product below then fits.
    for (; exponent > 32; --exponent) {
        fraction >>= 1;
    }
    return {static_cast<int64_t>(seconds),
            static_cast<int32_t>((fraction * nanosecondsPerSecond) >> exponent)};
}

CaptureTime decimalTime(unsigned exponent, uint64_t units) {
    for (; exponent > 9; --exponent) {
        units /= 10;
    }
    uint32_t perSecond = 1;
    for (unsigned power = 0; power < exponent; ++power) {
        perSecond *= 10;
    }
    return {static_cast<int64_t>(units / perSecond),
            static_cast<int32_t>((units % perSecond) * (nanosecondsPerSecond / perSecond))};
}

CaptureTime timeOf(const Interface& interface, uint64_t units) {
    CaptureTime time = interface.binary ? binaryTime(interface.exponent, units)
                                        : decimalTime(interface.exponent, units);
    // Wraps on nonsense instead of overflowing.
    time.seconds = static_cast<int64_t>(static_cast<uint64_t>(time.seconds) +
                                        static_cast<uint64_t>(interface.offsetSeconds));
    return time;
}

class PcapngSource : public FrameSource {
public:
    // The link type stands in the first interface, before any packet.
    explicit PcapngSource(InputFile& file) : file_(file) {
        readSection();
        while (interfaces_.empty()) {
            const std::optional<uint32_t> type = nextBlock();
            if (!type) {
                throw CaptureError("it describes no interface");
            }
            if (*type == blockInterface) {
                addInterface();
            } else if (*type == blockEnhancedPacket || *type == blockSimplePacket) {
                throw CaptureError("a packet stands before the description of its interface");
            }
        }
    }

    bool next(CapturedFrame& frame) override {
        while (const std::optional<uint32_t> type = nextBlock()) {
            switch (*type) {
            case blockInterface:
                addInterface();
                break;
            case blockEnhancedPacket:
                takeEnhancedPacket(frame);
                return true;
            case blockSimplePacket:
                takeSimplePacket(frame);
                return true;
            default:
                break; // statistics, names, sections, and what later versions add
            }
        }
        return false;
    }

private:
    // Reads the body of the next block into block_.
    std::optional<uint32_t> nextBlock() {
        std::array<uint8_t, 4> octets{};
        if (!file_.read(octets.data(), octets.size())) {
            return std::nullopt;
        }
        const uint32_t type = file_.number32(octets.data());
        if (type == pcapngSection) {
            readSection();
            return type;
        }
        file_.readAll(octets.data(), octets.size());
        readBody(file_.number32(octets.data()), 8);
        return type;
    }

    // What follows the type of a section's header. It sets the byte order of the section, its own
    // length included.
    void readSection() {
        std::array<uint8_t, 8> octets{};
        file_.readAll(octets.data(), octets.size());
        file_.setSwapped(false);
        file_.setSwapped(file_.number32(&octets[4]) != byteOrderMark);
        if (file_.number32(&octets[4]) != byteOrderMark) {
            throw CaptureError("the byte-order mark of a section is wrong");
        }
        interfaces_.clear();
        readBody(file_.number32(octets.data()), 12);
    }

    // The rest of a block of `length` octets of which `done` are read. Its end repeats the length.
    void readBody(uint32_t length, uint32_t done) {
        if (length < done + 4 || length % 4 != 0 || length > maxBlock) {
            throw CaptureError("the length of a block is " + std::to_string(length) + " octets");
        }
        block_.resize(length - done);
        file_.readAll(block_.data(), block_.size());
        const size_t body = block_.size() - 4;
        if (file_.number32(&block_[body]) != length) {
            throw CaptureError("the two lengths of a block differ");
        }
        block_.resize(body);
    }

    void needBlock(size_t octets) const {
        if (block_.size() < octets) {
            throw CaptureError("a block is shorter than its content");
        }
    }

    void addInterface() {
        needBlock(8);
        const int linkType = file_.number16(block_.data());
        Interface interface;
        interface.snapshotLength = file_.number32(&block_[4]);
        if (linkType_ < 0) {
            linkType_ = linkType;
            snapshotLength_ = interface.snapshotLength;
        } else if (linkType != linkType_) {
            throw CaptureError("its interfaces have different link types, " +
                               std::to_string(linkType_) + " and " + std::to_string(linkType));
        }
        readOptions(interface);
        interfaces_.push_back(interface);
    }

    void readOptions(Interface& interface) const {
        for (size_t at = 8; at + 4 <= block_.size();) {
            const uint16_t code = file_.number16(&block_[at]);
            const size_t length = file_.number16(&block_[at + 2]);
            at += 4;
            if (code == optionEnd) {
                return;
            }
            needBlock(at + length);
            if (code == optionTimeResolution && length == 1) {
                interface.binary = (block_[at] & 0x80) != 0;
                interface.exponent = block_[at] & 0x7F;
            } else if (code == optionTimeOffset && length == 8) {
                interface.offsetSeconds = static_cast<int64_t>(file_.number64(&block_[at]));
            }
            at += (length + 3) & ~size_t{3};
        }
    }

    [[nodiscard]] const Interface& interfaceAt(size_t index) const {
        if (index >= interfaces_.size()) {
            throw CaptureError("it names an interface that the file does not describe");
        }
        return interfaces_[index];
    }

    void takeEnhancedPacket(CapturedFrame& frame) {
        needBlock(20);
        const Interface& interface = interfaceAt(file_.number32(block_.data()));
        const uint64_t high = file_.number32(&block_[4]);
        frame.time = timeOf(interface, (high << 32) | file_.number32(&block_[8]));
        frame.wireLength = file_.number32(&block_[16]);
        takeFrame(frame, 20, file_.number32(&block_[12]));
    }

    // Has no time, and a length only for the wire.
    void takeSimplePacket(CapturedFrame& frame) {
        needBlock(4);
        const uint32_t limit = interfaceAt(0).snapshotLength;
        frame.time = {};
        frame.wireLength = file_.number32(block_.data());
        takeFrame(frame, 4, limit == 0 ? frame.wireLength : std::min(limit, frame.wireLength));
    }

    void takeFrame(CapturedFrame& frame, size_t at, uint32_t length) {
        needBlock(at + checkedFrame(length));
        const auto first = block_.begin() + static_cast<std::ptrdiff_t>(at);
        frame.octets.assign(first, first + static_cast<std::ptrdiff_t>(length));
    }

    InputFile& file_;
    std::vector<Interface> interfaces_;
    std::vector<uint8_t> block_;
};

} // namespace

std::unique_ptr<FrameSource> openPcapng(InputFile& file) {
    return std::make_unique<PcapngSource>(file);
}

} // namespace gateway::plain_capture
