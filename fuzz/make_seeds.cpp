// Writes first inputs for the targets `types`, `tree`, `locator`, `hooks` and `full`: every vector,
// and for the last two the recorded calls.
//
//     make_seeds FOLDER VECTORFILE...
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "H.323/registry.h"
#include "cli/located_addresses.h"
#include "fuzz/call_script.h"
#include "nat/q931.h"
#include "tests/support/calls.h"
#include "tests/support/messages.h"
#include "tree/message_tree.h"

using namespace fuzzing;
using namespace test_support;

namespace {

constexpr uint16_t signallingPort = 1720;
constexpr uint16_t partyPort = 50000;
constexpr uint16_t controlPort = 38333;
constexpr uint8_t tcpSynAck = tcpSyn | tcpAck;

class SeedFolder {
public:
    explicit SeedFolder(std::filesystem::path path) : path_(std::move(path)) {
        std::filesystem::create_directories(path_);
    }

    void add(const fuzzing::Octets& octets) {
        std::ofstream file(path_ / ("seed-" + std::to_string(count_++)), std::ios::binary);
        file.write(reinterpret_cast<const char*>(octets.data()),
                   static_cast<std::streamsize>(octets.size()));
    }

private:
    std::filesystem::path path_;
    size_t count_ = 0;
};

/// Inputs of one target each.
struct Seeds {
    SeedFolder types;
    SeedFolder tree;
    SeedFolder locator;
    SeedFolder hooks;
    SeedFolder full;
};

std::map<std::string, size_t> treeIndices() {
    std::map<std::string, size_t> indices;
    for (size_t i = 0; i < tree::messageTypeCount; ++i) {
        indices[tree::messageTypes[i]->name] = i;
    }
    return indices;
}

/// Both octets of a type's number and the message.
fuzzing::Octets numbered(size_t index, const fuzzing::Octets& message) {
    fuzzing::Octets seed(2 + message.size());
    seed[0] = static_cast<uint8_t>(index >> 8);
    seed[1] = static_cast<uint8_t>(index);
    std::copy(message.begin(), message.end(), seed.begin() + 2);
    return seed;
}

std::map<std::string, size_t> typeIndices() {
    std::map<std::string, size_t> indices;
    for (size_t i = 0; i < registeredTypeCount(); ++i) {
        indices[registeredType(i).name] = i;
    }
    return indices;
}

Step tcp(StepKind kind, uint16_t localPort, uint16_t remotePort, Framing framing,
         const fuzzing::Octets& payload) {
    Step step;
    step.kind = kind;
    step.localPort = localPort;
    step.remotePort = remotePort;
    step.framing = framing;
    step.payload = payload;
    return step;
}

Step connection(StepKind kind, uint16_t localPort, uint16_t remotePort, uint8_t flags) {
    Step step = tcp(kind, localPort, remotePort, Framing::None, {});
    step.flags = flags;
    return step;
}

Step settings(uint8_t flags) {
    Step step;
    step.kind = StepKind::Settings;
    step.flags = flags;
    return step;
}

Step publish() {
    Step step;
    step.kind = StepKind::Publish;
    return step;
}

// One signalling message in all four places where the module reads them.
std::vector<Step> signallingScript(uint8_t flags, const fuzzing::Octets& message) {
    const auto userInformation = Framing::UserInformation;
    return {settings(flags),
            publish(),
            connection(StepKind::TcpReceived, partyPort, signallingPort, tcpSynAck),
            tcp(StepKind::TcpSent, partyPort, signallingPort, userInformation, message),
            tcp(StepKind::TcpReceived, partyPort, signallingPort, userInformation, message),
            connection(StepKind::TcpReceived, signallingPort, partyPort, tcpSyn),
            tcp(StepKind::TcpReceived, signallingPort, partyPort, userInformation, message),
            tcp(StepKind::TcpSent, signallingPort, partyPort, userInformation, message)};
}

// One H.245 message on the connections of an outbound and of an inbound call.
std::vector<Step> controlScript(uint8_t flags, const fuzzing::Octets& message) {
    const auto outside = answer(Answer::connect, ipv4(outsideParty, controlPort));
    const auto inside = answer(Answer::connect, ipv4(privateParty, controlPort));
    const auto userInformation = Framing::UserInformation;
    return {settings(flags),
            publish(),
            connection(StepKind::TcpReceived, partyPort, signallingPort, tcpSynAck),
            tcp(StepKind::TcpReceived, partyPort, signallingPort, userInformation, outside),
            tcp(StepKind::TcpSent, partyPort, controlPort, Framing::Tpkt, message),
            connection(StepKind::TcpReceived, signallingPort, partyPort, tcpSyn),
            tcp(StepKind::TcpSent, signallingPort, partyPort, userInformation, inside),
            tcp(StepKind::TcpSent, controlPort, partyPort, Framing::Tpkt, message)};
}

std::vector<Step> rasScript(uint8_t flags, const fuzzing::Octets& message) {
    return {settings(flags), tcp(StepKind::UdpSent, 1719, 1719, Framing::None, message)};
}

using ScriptMaker = std::vector<Step> (*)(uint8_t, const fuzzing::Octets&);

const std::map<std::string, ScriptMaker> scriptMakers = {
    {"H225H323_UserInformation", signallingScript},
    {"H245MultimediaSystemControlMessage", controlScript},
    {"H225RasMessage", rasScript},
};

void addVectors(const std::string& fileName, Seeds& seeds) {
    static const std::map<std::string, size_t> indices = typeIndices();
    static const std::map<std::string, size_t> indicesOfTree = treeIndices();
    std::ifstream file(fileName);
    if (!file) {
        throw std::runtime_error(fileName + ": cannot be read");
    }
    uint8_t mode = 0;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string type;
        std::string hex;
        if (!(words >> type >> hex)) {
            continue;
        }
        if (const auto known = indicesOfTree.find(type); known != indicesOfTree.end()) {
            seeds.tree.add(numbered(known->second, fromHex(hex)));
        }
        if (!indices.contains(type)) {
            continue;
        }
        const fuzzing::Octets message = fromHex(hex);
        if (const auto located = cli::locatedTypeNamed(type)) {
            fuzzing::Octets seed{static_cast<uint8_t>(*located)};
            seed.insert(seed.end(), message.begin(), message.end());
            seeds.locator.add(seed);
        }
        mode ^= settingLossless;
        fuzzing::Octets seed = numbered(indices.at(type), message);
        seed.insert(seed.begin(), mode != 0 ? 0x80 : 0);
        seeds.types.add(seed);
        if (const auto maker = scriptMakers.find(type); maker != scriptMakers.end()) {
            seeds.hooks.add(formatScript(maker->second(mode, message)));
            seeds.full.add(formatScript(maker->second(mode, message)));
        }
    }
}

// A captured payload as framed as the script can say it, so that its fields can be mutated.
void setPayload(Step& step, const Segment& segment) {
    step.payload = segment.payload;
    constexpr size_t header = 4;
    if (segment.udp || segment.payload.size() <= header ||
        tpktLength(segment.payload.data()) != segment.payload.size()) {
        return;
    }
    const auto from = [&](size_t begin, size_t octets) {
        const auto first = segment.payload.begin() + static_cast<ptrdiff_t>(begin);
        return fuzzing::Octets(first, first + static_cast<ptrdiff_t>(octets));
    };
    const FlowKey& flow = segment.flow;
    if (flow.sourcePort != signallingPort && flow.destinationPort != signallingPort) {
        step.framing = Framing::Tpkt;
        step.payload = from(header, segment.payload.size() - header);
        return;
    }
    Q931Walk walk = walkQ931(segment.payload.data(), segment.payload.size());
    OctetRange range = {};
    if (nextUserInformation(walk, range) == Q931Element::UserInformation) {
        step.framing = Framing::UserInformation;
        step.payload = from(range.offset, range.octets);
    }
}

constexpr uint8_t hostSettings[] = {
    0,
    settingLossless,
    settingSkipLinking,
    settingLossless | settingLastPort,
    settingLossless | settingSilentMedia | settingRefuseControl,
    settingUnknownFlows,
};

std::vector<Step> captureScript(uint8_t flags, const std::string& name) {
    std::vector<Step> script{settings(flags), publish()};
    for (const CapturedPacket& packet : readCapture(name)) {
        const Segment& segment = packet.segment;
        const FlowKey& flow = segment.flow;
        const bool sent = packet.sent;
        Step step;
        step.kind = segment.udp ? (sent ? StepKind::UdpSent : StepKind::UdpReceived)
                                : (sent ? StepKind::TcpSent : StepKind::TcpReceived);
        const uint32_t remote = sent ? flow.destinationAddress : flow.sourceAddress;
        step.parties = remote == gatekeeper ? 0x02 : 0x00;
        step.localPort = sent ? flow.sourcePort : flow.destinationPort;
        step.remotePort = sent ? flow.destinationPort : flow.sourcePort;
        step.flags = segment.flags;
        setPayload(step, segment);
        script.push_back(step);
    }
    // A data conference with the outside party of the call.
    script.push_back(connection(StepKind::TcpReceived, partyPort, 1503, tcpSynAck));
    return script;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2) {
        std::cerr << "usage: make_seeds FOLDER VECTORFILE...\n";
        return 2;
    }
    const std::filesystem::path folder = arguments[1];
    Seeds seeds{SeedFolder(folder / "types"), SeedFolder(folder / "tree"),
                SeedFolder(folder / "locator"), SeedFolder(folder / "hooks"),
                SeedFolder(folder / "full")};
    try {
        for (int i = 2; i < count; ++i) {
            addVectors(arguments[i], seeds);
        }
        for (const char* name : {"h245", "fast-h245", "fast-tun", "gk-direct", "gk-routed",
                                 "in-h245", "in-fast-tun"}) {
            for (const uint8_t flags : hostSettings) {
                seeds.hooks.add(formatScript(captureScript(flags, name)));
                seeds.full.add(formatScript(captureScript(flags, name)));
            }
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
