// A NAT host that lives in memory: answers the module's calls from tables and keeps a log of them.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "tests/support/fake_clock.h"
#include "tests/support/pools.h"
#include "tests/support/segment.h"

namespace test_support {

/// One host of this kind exists at a time. It starts with fresh pools, no call and rewrite mode 0.
///
/// The log has one line per call of the module, as it was asked:
///     media 10.0.0.5:5000 > 203.0.113.9
///     control 10.0.0.5:47231 > 203.0.113.9
///     inside 10.0.0.5:35738 > 203.0.113.9:38333
///     outside 203.0.113.1:59058 > 203.0.113.9:1720
class MemoryHost {
public:
    static constexpr uint32_t publicAddress = address(203, 0, 113, 1);
    static constexpr uint16_t firstMediaPort = 40000;
    static constexpr uint16_t firstControlPort = 30000;

    MemoryHost();
    ~MemoryHost();
    MemoryHost(const MemoryHost&) = delete;
    MemoryHost& operator=(const MemoryHost&) = delete;

    Delivered send(const Segment& segment) { return sendSegment(context, segment); }
    Delivered receive(const Segment& segment) { return receiveSegment(context, segment); }

    /// A flow that the host translates: the record that both lookups find. `flow` is as the private
    /// host sends it; its public port is the private one.
    HostMappingRecord* addFlow(const FlowKey& flow);

    FakeClock clock{1'000'000};
    HostContext context = {};
    uint32_t now = 1'000'000;     // seconds
    uint8_t skipLinking = 0;      // answered to every media mapping
    unsigned mediaAnswers = ~0U;  // media mappings after so many write no out value
    uint8_t controlRefusal = 0;   // answered to every control mapping
    unsigned recordsAnswered = 2; // of the pair; the others stay null
    uint16_t nextMediaPort = firstMediaPort;
    std::vector<std::string> log;

    /// The records of the pair that the last media mapping answered.
    HostMappingRecord* lastFirst = nullptr;
    HostMappingRecord* lastSecond = nullptr;

    /// The log's lines that begin with `word`; the log is empty afterwards.
    std::vector<std::string> takeLog(const std::string& word);

private:
    friend struct MemoryHostCallbacks;

    struct Flow {
        FlowKey inside;
        HostMappingRecord* record;
    };

    HostMappingRecord* newRecord();

    FreshState state_;
    std::list<HostMappingRecord> records_;
    std::vector<Flow> flows_;
};

} // namespace test_support
