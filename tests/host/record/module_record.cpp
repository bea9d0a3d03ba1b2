// The listed scope's record: what a built module asks its host for and which octets it leaves, over
// the recorded calls and the scripts of the hook fuzzer. Hosts rely on both, so neither may change.
//
//     module_record MODULE RECORD CORPUS           compares the module with the record
//     module_record MODULE RECORD CORPUS --write   writes the record
//     module_record MODULE INPUT CORPUS --show     prints one input's transcripts
//
// The module is loaded at run time, so any build of any version can be compared.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include "H.323/H323-MESSAGES.h"
#include "fuzz/script_packets.h"
#include "fuzz/script_player.h"
#include "tests/support/capture.h"

namespace {

time_t now = 1'000'000;

} // namespace

// The module's clock: a program's symbols come before those of the C library.
extern "C" __attribute__((visibility("default"))) time_t time(time_t* out) noexcept {
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

namespace {

using namespace fuzzing;

struct Module {
    decltype(&H323InitializeDLL) initialize;
    decltype(&H323SetRewriteMode) setRewriteMode;
    decltype(&TarvexActivateInboundMapping) activate;
    decltype(&TarvexPacketOnReceiving) receiving;
    decltype(&TarvexPacketOnSending) sending;
};

Module module;
std::ostringstream transcript;
std::vector<HostMappingRecord*> knownRecords; // in the order in which the module met them

std::string nameOf(const HostMappingRecord* record) {
    if (record == nullptr) {
        return "-";
    }
    const auto known = std::ranges::find(knownRecords, record);
    return known == knownRecords.end() ? "?" : std::to_string(known - knownRecords.begin());
}

HostMappingRecord* met(HostMappingRecord* record) {
    if (record != nullptr && nameOf(record) == "?") {
        // Values of its own, so that a copy into another record shows.
        const auto number = static_cast<uint32_t>(knownRecords.size()) + 1;
        record->inherited24 = number * 0x01010101;
        record->inherited28 = static_cast<uint16_t>(number * 0x0101);
        record->inherited2A = number * 0x10101010;
        knownRecords.push_back(record);
    }
    return record;
}

// Callbacks that note the question and let the script's host answer.
HostCallbackTable notingCallbacks() {
    HostCallbackTable table = ScriptHost::callbacks;
    table.HostOpenMediaMapping = [](HostContext* context, uint32_t address, uint32_t remote,
                                    uint16_t port, uint32_t* publicPort, uint32_t* publicAddress,
                                    HostMappingRecord** first, HostMappingRecord** second,
                                    uint8_t* skip) -> uint32_t {
        transcript << " media " << address << ':' << port << '>' << remote << " had "
                   << *publicAddress << ':' << *publicPort << ' ' << (*first == nullptr)
                   << (*second == nullptr) << unsigned{*skip};
        const uint32_t result = ScriptHost::callbacks.HostOpenMediaMapping(
            context, address, remote, port, publicPort, publicAddress, first, second, skip);
        met(*first);
        met(*second);
        return result;
    };
    table.HostOpenControlMapping = [](HostContext* context, uint32_t address, uint32_t remote,
                                      uint16_t port, uint32_t* publicPort, uint32_t* publicAddress,
                                      uint32_t* reserved) -> uint8_t {
        transcript << " control " << address << ':' << port << '>' << remote;
        return ScriptHost::callbacks.HostOpenControlMapping(context, address, remote, port,
                                                            publicPort, publicAddress, reserved);
    };
    table.HostFindInsideMapping = [](uint32_t address, uint16_t port, uint32_t remote,
                                     uint16_t remotePort) {
        transcript << " inside " << address << ':' << port << '>' << remote << ':' << remotePort;
        return met(ScriptHost::callbacks.HostFindInsideMapping(address, port, remote, remotePort));
    };
    table.HostFindOutsideMapping = [](uint32_t address, uint16_t port, uint32_t remote,
                                      uint16_t remotePort) {
        transcript << " outside " << address << ':' << port << '>' << remote << ':' << remotePort;
        return met(ScriptHost::callbacks.HostFindOutsideMapping(address, port, remote, remotePort));
    };
    return table;
}

// How an input is played.
struct Variant {
    const char* name;
    uint32_t mode;
    bool inOrder; // sequence numbers follow each other; else as the input has them
};

constexpr Variant variants[] = {{"given, encoded", H323NAT_REWRITE_ENCODED, false},
                                {"given, lossless", H323NAT_REWRITE_LOSSLESS, false},
                                {"in order, encoded", H323NAT_REWRITE_ENCODED, true},
                                {"in order, lossless", H323NAT_REWRITE_LOSSLESS, true}};

class Play final : public ScriptPlayer {
public:
    explicit Play(uint32_t mode) {
        static const HostCallbackTable table = notingCallbacks();
        now = 1'000'000;
        module.initialize(&table);
        module.setRewriteMode(mode);
        knownRecords.clear();
        transcript << "start\n";
    }

    using ScriptPlayer::play;

    void play(const test_support::CapturedPacket& packet) {
        const test_support::Segment& segment = packet.segment;
        const FlowKey& flow = segment.flow;
        host.addFlow(packet.sent ? flow
                                 : FlowKey{test_support::privateParty, flow.sourceAddress,
                                           flow.destinationPort, flow.sourcePort});
        exchange(packet.sent,
                 segment.udp ? udpPacket(flow, segment.payload)
                             : tcpPacket({flow, segment.sequence, segment.flags}, segment.payload));
    }

private:
    [[nodiscard]] FlowKey insideFlow(const Step& step) const override {
        FlowKey flow = partiesOf(step, ScriptHost::publicAddress);
        if (step.localPort == 0) {
            flow.sourcePort = publishedControlPort_;
        }
        if (step.remotePort == 0 && announced_.port != 0) {
            flow.destinationAddress = announced_.address;
            flow.destinationPort = announced_.port;
        }
        return flow;
    }

    // The H.245 address of a message, for steps that leave a port to what was announced.
    void noteAnnouncement(const Step& step) {
        Octets octets = step.payload;
        if (step.framing == Framing::None || step.framing == Framing::Tpkt || octets.empty()) {
            return;
        }
        PerContext context{};
        H225H323_UserInformation message;
        pu_initContext(&context, octets.data(), static_cast<uint32_t>(octets.size()), 1);
        if (asn1PD_H225H323_UserInformation(&context, &message) == PER_OK) {
            const auto& body = message.h323_uu_pdu.h323_message_body;
            if (body.alternative == H225H323_UU_PDU_h323_message_body_connectChosen &&
                (body.value.connect->presence & H225Connect_UUIE_h245AddressPresent) != 0 &&
                body.value.connect->h245Address.alternative ==
                    H225TransportAddress_ipAddressChosen) {
                const auto& endpoint = *body.value.connect->h245Address.value.ipAddress;
                const auto port = static_cast<uint16_t>(endpoint.port);
                if (step.kind == StepKind::TcpSent) {
                    publishedControlPort_ = port;
                } else {
                    const uint8_t* ip = endpoint.ip.data;
                    announced_ = {
                        static_cast<uint32_t>(ip[0] << 24 | ip[1] << 16 | ip[2] << 8 | ip[3]),
                        port};
                }
            }
        }
        pu_freeContext(&context);
    }

    void exchangeTcp(const Step& step) override {
        ScriptPlayer::exchangeTcp(step);
        noteAnnouncement(step);
    }

    void wait(int32_t seconds) override { now += seconds; }

    void publish(uint32_t address) override { module.activate(address); }

    void exchange(bool sent, const Octets& given) override {
        constexpr size_t ipHeader = 20;
        Octets packet = given;
        packet.resize(std::max(packet.size(), ipHeader));
        PacketDescriptor descriptor{};
        descriptor.flags = 0x81;
        if (sent) {
            descriptor.moduleIpHeader = packet.data();
            descriptor.transportHeader = packet.data() + ipHeader;
            descriptor.transportLength = static_cast<uint16_t>(packet.size() - ipHeader);
        } else {
            uint16_t totalLength = 0;
            std::memcpy(&totalLength, packet.data() + 2, sizeof totalLength);
            packet.resize(std::max<size_t>(totalLength, ipHeader));
            descriptor.ipHeader = packet.data();
        }
        const Octets before = packet;
        transcript << (sent ? "sent" : "received");
        const auto beforeCalls = transcript.tellp();
        const uint32_t result =
            (sent ? module.sending : module.receiving)(&host.context, &descriptor);
        const bool asked = transcript.tellp() != beforeCalls;
        transcript << " result " << result << " flags " << std::hex << descriptor.flags << std::dec
                   << " lengths " << descriptor.ipHeaderLength << ' ' << descriptor.transportLength;
        for (size_t i = 0; i < packet.size(); ++i) {
            if (packet[i] != before[i]) {
                transcript << ' ' << i << '=' << unsigned{packet[i]};
            }
        }
        transcript << '\n';
        if (asked) {
            noteRecords();
        }
    }

    static void noteRecords() {
        for (const HostMappingRecord* record : knownRecords) {
            transcript << "  " << nameOf(record) << ": " << std::hex << record->inherited24 << ' '
                       << record->inherited28 << ' ' << record->inherited2A << std::dec
                       << " parent " << nameOf(record->parent) << " siblings "
                       << nameOf(record->previousSibling) << ' ' << nameOf(record->nextSibling)
                       << " control " << nameOf(record->controlLink) << " first "
                       << nameOf(record->firstMediaRecord) << '\n';
        }
    }

    uint16_t publishedControlPort_ = 0;
    EndpointKey announced_{};
};

// ---- inputs
// --------------------------------------------------------------------------------------

constexpr const char* captures[] = {"fast-h245", "fast-tun",    "gk-direct", "gk-in", "gk-routed",
                                    "h245",      "in-fast-tun", "in-h245",   "tun"};

template <typename Steps> void playSteps(const Variant& variant, const Steps& steps) {
    Play play(variant.mode);
    for (const auto& step : steps) {
        play.play(step);
    }
}

// Cut into small segments, one by one and as recorded.
void playCapture(const Variant& variant, const std::string& name) {
    const auto packets = test_support::readCapture(name);
    for (const size_t piece : {size_t{0}, size_t{1}, size_t{40}, size_t{150}}) {
        std::vector<test_support::CapturedPacket> cut;
        for (const auto& packet : packets) {
            const Octets& payload = packet.segment.payload;
            const size_t step = piece == 0 || packet.segment.udp ? payload.size() : piece;
            size_t sent = 0;
            do {
                const size_t count = std::min(step, payload.size() - sent);
                cut.push_back(packet);
                cut.back().segment.sequence += static_cast<uint32_t>(sent);
                cut.back().segment.payload.assign(payload.begin() + static_cast<ptrdiff_t>(sent),
                                                  payload.begin() +
                                                      static_cast<ptrdiff_t>(sent + count));
                sent += count;
            } while (sent < payload.size());
        }
        // Swapped neighbours and repeated segments, for the streams' own order.
        for (size_t i = 0; !variant.inOrder && i + 3 < cut.size(); i += 3) {
            std::swap(cut[i], cut[i + 1]);
            cut[i + 2] = cut[i];
        }
        Play play(variant.mode);
        module.activate(test_support::privateParty);
        for (const auto& packet : cut) {
            play.play(packet);
        }
    }
}

std::vector<Step> changedCopy(std::vector<Step> steps, std::minstd_rand& random) {
    for (Step& step : steps) {
        if (!step.payload.empty() && random() % 3 == 0) {
            step.payload[random() % step.payload.size()] ^=
                static_cast<uint8_t>(1u << random() % 8);
        }
        if (random() % 4 == 0) {
            step.cut = static_cast<uint8_t>(random() % 5 == 0 ? 0 : random());
        }
    }
    return steps;
}

void playScript(const Variant& variant, const std::filesystem::path& path, size_t changes) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::cerr << "cannot read " << path << ", which the record names\n";
        std::_Exit(1);
    }
    const std::vector<char> read{std::istreambuf_iterator<char>(file), {}};
    auto steps = parseScript(reinterpret_cast<const uint8_t*>(read.data()), read.size());
    if (variant.inOrder) {
        std::erase_if(steps, [](const Step& step) { return step.kind == StepKind::RawSent; });
        for (Step& step : steps) {
            step.shift = 0;
        }
    }
    playSteps(variant, steps);
    std::minstd_rand random(static_cast<uint32_t>(read.size()) + 1);
    for (size_t i = 0; i < changes; ++i) {
        playSteps(variant, changedCopy(steps, random));
    }
}

uint64_t fnv(const std::string& text) {
    uint64_t hash = 0xCBF29CE484222325;
    for (const char character : text) {
        hash = (hash ^ static_cast<uint8_t>(character)) * 0x100000001B3;
    }
    return hash;
}

class Recorder {
public:
    Recorder(std::filesystem::path corpus, size_t changes)
        : corpus_(std::move(corpus)), changes_(changes) {}

    [[nodiscard]] std::vector<std::string> inputs() const {
        std::vector<std::string> names(std::begin(captures), std::end(captures));
        for (const auto& entry : std::filesystem::directory_iterator(corpus_)) {
            names.push_back("hooks/" + entry.path().filename().string());
        }
        std::sort(names.begin() + std::size(captures), names.end());
        return names;
    }

    // The input's name and a hash of every variant's transcript. In a process of its own: what a
    // start leaves allocated goes with it.
    std::string lineOf(const std::string& input, bool show = false) const {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            return input + " no pipe";
        }
        std::cout.flush();
        const pid_t child = fork();
        if (child == 0) {
            Hashes hashes{};
            for (size_t i = 0; i < hashes.size(); ++i) {
                hashes[i] = play(input, variants[i], show);
            }
            std::_Exit(write(ends[1], &hashes, sizeof hashes) == sizeof hashes ? 0 : 1);
        }
        close(ends[1]);
        Hashes hashes{};
        const bool whole = read(ends[0], &hashes, sizeof hashes) == sizeof hashes;
        close(ends[0]);
        int status = 0;
        waitpid(child, &status, 0);
        std::ostringstream line;
        line << input << std::hex;
        for (const uint64_t hash : hashes) {
            line << ' ' << hash;
        }
        return whole && status == 0 ? line.str() : input + " crashed";
    }

private:
    using Hashes = std::array<uint64_t, std::size(variants)>;

    uint64_t play(const std::string& input, const Variant& variant, bool show) const {
        const std::string script = "hooks/";
        transcript.str({});
        if (input.starts_with(script)) {
            playScript(variant, corpus_ / input.substr(script.size()),
                       variant.inOrder ? changes_ : 0);
        } else {
            playCapture(variant, input);
        }
        if (show) {
            std::cout << "== " << input << ", " << variant.name << '\n' << transcript.str();
            std::cout.flush();
        }
        return fnv(transcript.str());
    }

    std::filesystem::path corpus_;
    size_t changes_;
};

// Names what differs. True when nothing does.
bool compareLine(const std::string& expected, const std::string& found) {
    if (expected == found) {
        return true;
    }
    std::istringstream left(expected);
    std::istringstream right(found);
    std::string name;
    std::string other;
    left >> name;
    right >> other;
    for (const Variant& variant : variants) {
        std::string wanted;
        std::string hash;
        left >> wanted;
        right >> hash;
        if (wanted != hash) {
            std::cerr << name << ", " << variant.name
                      << ": the host's calls or the octets changed\n";
        }
    }
    return false;
}

template <typename Function> bool find(void* library, const char* name, Function& function) {
    void* symbol = dlsym(library, name);
    std::memcpy(&function, &symbol, sizeof symbol);
    return symbol != nullptr;
}

bool load(const char* path) {
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::cerr << dlerror() << '\n';
        return false;
    }
    return find(library, "H323InitializeDLL", module.initialize) &&
           find(library, "H323SetRewriteMode", module.setRewriteMode) &&
           find(library, "TarvexActivateInboundMapping", module.activate) &&
           find(library, "TarvexPacketOnReceiving", module.receiving) &&
           find(library, "TarvexPacketOnSending", module.sending);
}

} // namespace

int main(int count, char** arguments) {
    const std::vector<std::string> given(arguments, arguments + count);
    const std::string option = count > 4 ? given[4] : "";
    // More changed copies than the record has, to compare two modules with each other.
    const char* changes = std::getenv("MODULE_RECORD_CHANGES");
    if (count < 4 || !load(arguments[1])) {
        std::cerr << "usage: module_record MODULE RECORD CORPUS [--write|--show]\n";
        return 2;
    }
    const Recorder recorder(given[3], changes == nullptr ? 12 : std::stoul(changes));
    if (option == "--show") {
        recorder.lineOf(given[2], true);
        return 0;
    }
    if (option == "--write") {
        std::ofstream record(given[2]);
        for (const std::string& input : recorder.inputs()) {
            record << recorder.lineOf(input) << '\n';
        }
        return record ? 0 : 1;
    }
    std::ifstream record(given[2]);
    std::string expected;
    size_t lines = 0;
    bool same = true;
    for (; std::getline(record, expected); ++lines) {
        same &= compareLine(expected, recorder.lineOf(expected.substr(0, expected.find(' '))));
    }
    std::cout << lines << " inputs\n";
    return same && lines > 0 ? 0 : 1;
}
