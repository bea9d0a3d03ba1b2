#include "fuzz/script_host.h"

#include <algorithm>

#include "fuzz/call_script.h"
#include "fuzz/require.h"

namespace fuzzing {

namespace {

constexpr size_t mostFlows = 64;

ScriptHost* current = nullptr;

} // namespace

struct ScriptHost::Callbacks {
    static uint32_t openMedia(HostContext* context, uint32_t, uint32_t, uint16_t,
                              uint32_t* publicPort, uint32_t* publicAddress,
                              HostMappingRecord** first, HostMappingRecord** second,
                              uint8_t* skipLinking) {
        require(context == &current->context, "the host gets its own context back");
        const bool linkable = (current->settings & settingSkipLinking) == 0;
        *skipLinking = linkable ? 0 : 1;
        if (linkable) {
            *first = current->newRecord();
            *second = current->newRecord();
        }
        if ((current->settings & settingSilentMedia) != 0) {
            // What the module put there before it asked.
            current->offer(0, *publicPort);
            current->addresses.insert(*publicAddress);
            return 1;
        }
        *publicPort = (current->settings & settingLastPort) != 0 ? 65535 : current->nextPort_;
        *publicAddress = ScriptHost::publicAddress;
        current->nextPort_ = static_cast<uint16_t>(current->nextPort_ + 2);
        current->offer(ScriptHost::publicAddress, *publicPort);
        // Only the low 16 bits count.
        *publicPort |= 0xABCD0000;
        return 0;
    }

    static uint8_t openControl(HostContext* context, uint32_t, uint32_t, uint16_t,
                               uint32_t* publicPort, uint32_t* publicAddress, uint32_t*) {
        require(context == &current->context, "the host gets its own context back");
        if ((current->settings & settingRefuseControl) != 0) {
            return 1;
        }
        *publicPort = current->nextPort_++;
        *publicAddress = ScriptHost::publicAddress;
        current->offer(ScriptHost::publicAddress, *publicPort);
        return 0;
    }

    static HostMappingRecord* findInside(uint32_t address, uint16_t port, uint32_t remoteAddress,
                                         uint16_t remotePort) {
        for (const Flow& flow : current->flows_) {
            if (flow.inside == FlowKey{address, remoteAddress, port, remotePort}) {
                return flow.record;
            }
        }
        return nullptr;
    }

    static HostMappingRecord* findOutside(uint32_t address, uint16_t port, uint32_t remoteAddress,
                                          uint16_t remotePort) {
        for (const Flow& flow : current->flows_) {
            if (address == publicAddress && flow.inside.sourcePort == port &&
                flow.inside.destinationAddress == remoteAddress &&
                flow.inside.destinationPort == remotePort) {
                return flow.record;
            }
        }
        return nullptr;
    }
};

const HostCallbackTable ScriptHost::callbacks{
    nullptr,
    nullptr,
    nullptr,
    Callbacks::openMedia,
    Callbacks::openControl,
    Callbacks::findInside,
    Callbacks::findOutside,
};

ScriptHost::ScriptHost() {
    current = this;
    context.publicAddress = publicAddress;
    addresses.insert(publicAddress);
    addresses.insert(0); // what a call from outside gets while no host is published
}

void ScriptHost::offer(uint32_t address, uint32_t port) {
    addresses.insert(address);
    ports.insert(static_cast<uint16_t>(port));
    ports.insert(static_cast<uint16_t>(port + 1));
}

void ScriptHost::addFlow(const FlowKey& inside) {
    if ((settings & settingUnknownFlows) != 0 || flows_.size() == mostFlows ||
        Callbacks::findInside(inside.sourceAddress, inside.sourcePort, inside.destinationAddress,
                              inside.destinationPort) != nullptr) {
        return;
    }
    HostMappingRecord* record = newRecord();
    record->insideAddress = inside.sourceAddress;
    record->insidePort = inside.sourcePort;
    flows_.push_back({inside, record});
}

void ScriptHost::requireOnlyHandedOut(const Octets& before, const Octets& after) const {
    const auto number = [&](size_t offset, size_t octets) {
        uint32_t value = 0;
        for (size_t i = offset; i < offset + octets; ++i) {
            value = value << 8 | after[i];
        }
        return value;
    };
    size_t explained = 0; // all octets before it are
    for (size_t i = 0; i < after.size(); ++i) {
        if (i + 4 <= after.size() && addresses.contains(number(i, 4))) {
            const bool port =
                i + 6 <= after.size() && ports.contains(static_cast<uint16_t>(number(i + 4, 2)));
            explained = std::max(explained, i + (port ? 6u : 4u));
        }
        require(i < explained || before[i] == after[i],
                "lossless rewriting writes addresses and ports of the host alone");
    }
}

HostMappingRecord* ScriptHost::newRecord() {
    return &records_.emplace_back();
}

void ScriptHost::requireWholeLists() const {
    for (const HostMappingRecord& parent : records_) {
        const HostMappingRecord* previous = nullptr;
        size_t length = 0;
        for (const HostMappingRecord* record = parent.firstMediaRecord; record != nullptr;
             record = record->nextSibling) {
            require(record->parent == &parent, "a linked record names the list's owner");
            require(record->previousSibling == previous, "a linked record knows the one before");
            require(++length <= records_.size(), "a list of media records ends");
            previous = record;
        }
    }
}

} // namespace fuzzing
