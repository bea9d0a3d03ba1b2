#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "gateway/capture_file.h"
#include "gateway/endpoint.h"

namespace cli {

/// A PER encoding found in a capture.
struct CapturedMessage {
    uint64_t frame = 0; ///< that brought its last octet
    gateway::CaptureTime time;
    gateway::CaptureTime captureStart;
    gateway::Endpoint source;
    gateway::Endpoint destination;
    std::string type; ///< as "H225RasMessage"
    std::vector<uint8_t> encoding;
};

/// "frame 12  0.012345  10.0.0.5:1720 → 203.0.113.8:4021"; the time counts from the capture's
/// start.
std::string placeText(const CapturedMessage& message);

/// The H.323 messages of a capture in the order of their last octets: RAS datagrams of ports 1718
/// and 1719, and TPKT frames in TCP connections whatever their ports. A connection counts as H.323
/// from its first frame that reads as Q.931 or H.245. Segments are put in order; a gap is given up
/// when more than 64 KB stand behind it. Holds one frame and the unfinished messages.
class CaptureMessages {
public:
    /// Throws gateway::CaptureError like the reader.
    explicit CaptureMessages(const std::string& path) : reader(path) {}

    /// The next message; false at the end of the capture. Throws gateway::CaptureError.
    bool next(CapturedMessage& message);

private:
    struct Stream {
        bool started = false;
        bool isH323 = false;
        uint32_t next = 0; ///< sequence number expected
        std::vector<uint8_t> octets;
        std::map<uint32_t, std::vector<uint8_t>> ahead; ///< segments behind a gap
        size_t aheadOctets = 0;
    };
    using Ends = std::pair<uint64_t, uint64_t>;

    void takeFrame(const gateway::CapturedFrame& frame);
    void takeSegment(Stream& stream, uint32_t sequence, std::span<const uint8_t> payload,
                     const CapturedMessage& place);
    void takeFrames(Stream& stream, const CapturedMessage& place);
    bool takeTpkt(Stream& stream, std::span<const uint8_t> frame, const CapturedMessage& place);

    gateway::CaptureReader reader;
    gateway::CapturedFrame current;
    std::map<Ends, Stream> streams;
    std::deque<CapturedMessage> found;
};

} // namespace cli
