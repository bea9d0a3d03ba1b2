// Capture files and what the gateway reads in their frames: link layer, headers, and the messages
// that its report finds.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "fuzz/require.h"
#include "gateway/capture_file.h"
#include "gateway/ipv4_packet.h"
#include "gateway/link_layer.h"
#include "gateway/message_tracker.h"

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

void examine(int linkType, const gateway::CapturedFrame& frame, gateway::MessageTracker& tracker) {
    const gateway::NetworkLayer network = gateway::networkLayer(linkType, frame.octets);
    fuzzing::require(network.offset <= frame.octets.size(), "an offset lies in its frame");
    if (network.protocol != gateway::NetworkProtocol::Ipv4) {
        return;
    }
    const auto packet = std::span<const uint8_t>(frame.octets).subspan(network.offset);
    gateway::PacketLayout layout;
    const gateway::PacketKind kind = gateway::classifyPacket(packet, layout);
    if (kind != gateway::PacketKind::Tcp && kind != gateway::PacketKind::Udp) {
        return;
    }
    gateway::ObservedPayload payload;
    payload.insideView = {layout.protocol, sourceOf(packet, layout), destinationOf(packet, layout)};
    payload.before = packet.subspan(layout.payloadOffset, layout.payloadLength);
    payload.after = payload.before;
    if (kind == gateway::PacketKind::Tcp) {
        payload.sequence = sequenceNumber(packet, layout);
        payload.tcpFlags = tcpFlags(packet, layout);
    }
    for (const gateway::ObservedMessage& message : tracker.observe(payload)) {
        fuzzing::require(!message.rewritten && message.changes.empty(),
                         "nothing is said to be changed that was not");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const MemoryFile file(data, size);
    try {
        gateway::CaptureReader reader(file.path());
        gateway::MessageTracker tracker;
        gateway::CapturedFrame frame;
        while (reader.next(frame) && frame.number < mostFrames) {
            examine(reader.linkType(), frame, tracker);
        }
    } catch (const gateway::CaptureError& error) {
        fuzzing::require(*error.what() != '\0', "an error says what is wrong");
    }
    return 0;
}
