// Capture files and what the gateway reads in their frames: link layer, headers, and the segments
// that it keeps until a message is whole.
#include <sys/mman.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "fuzz/require.h"
#include "gateway/capture_file.h"
#include "gateway/ipv4_packet.h"
#include "gateway/link_layer.h"
#include "gateway/segment_hold.h"

namespace {

constexpr uint64_t mostFrames = 512;

// libpcap reads from files alone.
class MemoryFile {
public:
    MemoryFile(const uint8_t* data, size_t size) : descriptor_(memfd_create("capture", 0)) {
        fuzzing::require(descriptor_ >= 0, "the system gives a file in memory");
        fuzzing::require(write(descriptor_, data, size) == static_cast<ssize_t>(size),
                         "the system takes the octets");
    }
    ~MemoryFile() { close(descriptor_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    [[nodiscard]] std::string path() const {
        return "/proc/self/fd/" + std::to_string(descriptor_);
    }

private:
    int descriptor_;
};

// What was held must come back, each piece once and as it was.
class Holder {
public:
    void take(const gateway::FlowId& flow, std::span<const uint8_t> packet,
              const gateway::PacketLayout& layout) {
        gateway::ReleasedSegments released;
        const uint64_t token = next_++;
        switch (hold_.take(flow, packet, layout, token, static_cast<gateway::Milliseconds>(token),
                           released)) {
        case gateway::SegmentHold::Decision::Held:
            held_.emplace(token, std::vector<uint8_t>(packet.begin(), packet.end()));
            break;
        case gateway::SegmentHold::Decision::Release:
            held_.emplace(token, std::vector<uint8_t>(packet.begin(), packet.end()));
            check(released);
            break;
        case gateway::SegmentHold::Decision::Pass:
        case gateway::SegmentHold::Decision::Drop:
            break;
        }
    }

    void finish() {
        gateway::ReleasedSegments released;
        while (hold_.expire(0, true, released)) {
            check(released);
        }
        fuzzing::require(held_.empty() && hold_.heldOctets() == 0, "nothing stays behind");
    }

private:
    void check(gateway::ReleasedSegments& released) {
        fuzzing::require(!released.segments.empty(), "a release has segments");
        if (released.joint) {
            const std::vector<uint8_t> joint = gateway::joinSegments(released.segments);
            gateway::splitJoint(joint, released.segments);
            fuzzing::require(gateway::joinSegments(released.segments) == joint,
                             "segments carry what was shown");
        }
        for (const gateway::HeldSegment& segment : released.segments) {
            const auto found = held_.find(segment.token);
            fuzzing::require(found != held_.end(), "what comes back was held");
            fuzzing::require(found->second.size() == segment.packet.size(), "a length stays");
            held_.erase(found);
        }
        released = {};
    }

    gateway::SegmentHold hold_{{300, 4096, 16384, 64}};
    std::map<uint64_t, std::vector<uint8_t>> held_;
    uint64_t next_ = 1;
};

void examine(int linkType, const gateway::CapturedFrame& frame, Holder& holder) {
    const gateway::NetworkLayer network = gateway::networkLayer(linkType, frame.octets);
    fuzzing::require(network.offset <= frame.octets.size(), "an offset lies in its frame");
    if (network.protocol != gateway::NetworkProtocol::Ipv4) {
        return;
    }
    const auto packet = std::span<const uint8_t>(frame.octets).subspan(network.offset);
    gateway::PacketLayout layout;
    if (gateway::classifyPacket(packet, layout) == gateway::PacketKind::Tcp) {
        holder.take({layout.protocol, sourceOf(packet, layout), destinationOf(packet, layout)},
                    packet, layout);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const MemoryFile file(data, size);
    try {
        gateway::CaptureReader reader(file.path());
        Holder holder;
        gateway::CapturedFrame frame;
        while (reader.next(frame) && frame.number < mostFrames) {
            examine(reader.linkType(), frame, holder);
        }
        holder.finish();
    } catch (const gateway::CaptureError& error) {
        fuzzing::require(*error.what() != '\0', "an error says what is wrong");
    }
    return 0;
}
