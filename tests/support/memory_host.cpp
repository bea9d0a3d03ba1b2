#include "tests/support/memory_host.h"

#include "nat/host_callbacks.h"
#include "nat/listed/rewrite_mode.h"

namespace test_support {

namespace {

MemoryHost* host = nullptr;

std::string addressText(uint32_t address) {
    const std::string text = endpointText(address, 0);
    return text.substr(0, text.find(':'));
}

} // namespace

struct MemoryHostCallbacks {
    static uint32_t openMedia(HostContext* context, uint32_t privateAddress, uint32_t remoteAddress,
                              uint16_t privatePort, uint32_t* publicPort, uint32_t* publicAddress,
                              HostMappingRecord** first, HostMappingRecord** second,
                              uint8_t* skipLinking) {
        if (context != &host->context) {
            host->log.emplace_back("media with another host context");
        }
        host->log.push_back("media " + endpointText(privateAddress, privatePort) + " > " +
                            addressText(remoteAddress));
        if (host->mediaAnswers == 0) {
            *skipLinking = 1;
            return 1;
        }
        --host->mediaAnswers;
        // The upper half is the host's own; the module uses 16 bits.
        *publicPort = 0xabcd0000U | host->nextMediaPort;
        *publicAddress = MemoryHost::publicAddress;
        host->nextMediaPort = static_cast<uint16_t>(host->nextMediaPort + 2);
        host->lastFirst = host->newRecord();
        host->lastSecond = host->newRecord();
        host->lastFirst->previousSibling = host->lastSecond; // stale
        *first = host->recordsAnswered > 0 ? host->lastFirst : nullptr;
        *second = host->recordsAnswered > 1 ? host->lastSecond : nullptr;
        *skipLinking = host->skipLinking;
        return 0;
    }

    static uint8_t openControl(HostContext* context, uint32_t privateAddress,
                               uint32_t remoteAddress, uint16_t privatePort, uint32_t* publicPort,
                               uint32_t* publicAddress, uint32_t*) {
        if (context != &host->context) {
            host->log.emplace_back("control with another host context");
        }
        host->log.push_back("control " + endpointText(privateAddress, privatePort) + " > " +
                            addressText(remoteAddress));
        *publicPort = 0xabcd0000U | MemoryHost::firstControlPort;
        *publicAddress = MemoryHost::publicAddress;
        return host->controlRefusal;
    }

    static HostMappingRecord* findInside(uint32_t insideAddress, uint16_t insidePort,
                                         uint32_t remoteAddress, uint16_t remotePort) {
        host->log.push_back("inside " + endpointText(insideAddress, insidePort) + " > " +
                            endpointText(remoteAddress, remotePort));
        return find({insideAddress, remoteAddress, insidePort, remotePort});
    }

    static HostMappingRecord* findOutside(uint32_t publicAddress, uint16_t publicPort,
                                          uint32_t remoteAddress, uint16_t remotePort) {
        host->log.push_back("outside " + endpointText(publicAddress, publicPort) + " > " +
                            endpointText(remoteAddress, remotePort));
        for (const auto& flow : host->flows_) {
            if (publicAddress == MemoryHost::publicAddress &&
                flow.inside.sourcePort == publicPort &&
                flow.inside.destinationAddress == remoteAddress &&
                flow.inside.destinationPort == remotePort) {
                return flow.record;
            }
        }
        return nullptr;
    }

    static HostMappingRecord* find(const FlowKey& inside) {
        for (const auto& flow : host->flows_) {
            if (flow.inside == inside) {
                return flow.record;
            }
        }
        return nullptr;
    }
};

MemoryHost::MemoryHost() {
    hostCallbacks = {nullptr,
                     nullptr,
                     nullptr,
                     MemoryHostCallbacks::openMedia,
                     MemoryHostCallbacks::openControl,
                     MemoryHostCallbacks::findInside,
                     MemoryHostCallbacks::findOutside};
    host = this;
    context.publicAddress = publicAddress;
    setRewriteMode(REWRITE_ENCODED);
}

MemoryHost::~MemoryHost() {
    setRewriteMode(REWRITE_ENCODED);
    hostCallbacks = {};
    host = nullptr;
}

HostMappingRecord* MemoryHost::newRecord() {
    records_.emplace_back();
    return &records_.back();
}

HostMappingRecord* MemoryHost::addFlow(const FlowKey& flow) {
    HostMappingRecord* record = newRecord();
    record->insideAddress = flow.sourceAddress;
    record->insidePort = flow.sourcePort;
    flows_.push_back({flow, record});
    return record;
}

std::vector<std::string> MemoryHost::takeLog(const std::string& word) {
    std::vector<std::string> lines;
    for (const std::string& line : log) {
        if (line.starts_with(word)) {
            lines.push_back(line);
        }
    }
    log.clear();
    return lines;
}

} // namespace test_support
