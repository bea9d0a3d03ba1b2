#include "report/call_archive.h"

#include "gateway/capture_time.h"
#include "report/call_json.h"
#include "report/findings.h"
#include "report/flow_runs.h"
#include "report/media_streams.h"
#include "report/pcapng_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace report {
namespace {

namespace fs = std::filesystem;

constexpr const char* recordEnding = ".json";
constexpr const char* captureEnding = ".pcapng";

// What was said in calls is nobody's business but the operator's.
std::string makeFolder(const std::string& folder) {
    std::error_code error;
    if (fs::create_directories(folder, error)) {
        fs::permissions(folder, fs::perms::owner_all, error);
    }
    return error ? "cannot make the folder '" + folder + "': " + error.message() : "";
}

// As this program names them; others in the folder are somebody's own.
bool isNamedByUs(const fs::path& path, const char* ending) {
    return path.extension() == ending &&
           path.stem().string().find_first_not_of("0123456789TZ-") == std::string::npos;
}

// The oldest files of a kind make room, so that `most` are left with the next one.
void makeRoom(const std::string& folder, const char* ending, size_t most) {
    std::vector<fs::directory_entry> files;
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error)) {
        if (isNamedByUs(entry.path(), ending) && entry.is_regular_file(error)) {
            files.push_back(entry);
        }
    }
    if (files.size() < most) {
        return;
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) {
        std::error_code ignored;
        return a.last_write_time(ignored) < b.last_write_time(ignored);
    });
    for (size_t i = 0; i + most <= files.size(); ++i) {
        fs::remove(files[i].path(), error);
    }
}

// In one step, so that a reader never sees half of it.
std::string writeFile(const fs::path& path, const std::string& content) {
    const std::string temporary = path.string() + ".new";
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file) {
        return "cannot write '" + temporary + "': " + std::strerror(errno);
    }
    std::error_code error;
    fs::rename(temporary, path, error);
    return error ? "cannot rename '" + temporary + "': " + error.message() : "";
}

std::string writeInto(const std::string& folder, const std::string& name, const char* ending,
                      size_t most, const std::string& content) {
    std::string failure = makeFolder(folder);
    if (!failure.empty()) {
        return failure;
    }
    const fs::path path = fs::path(folder) / (name + ending);
    std::error_code error;
    if (!fs::exists(path, error)) {
        makeRoom(folder, ending, most);
    }
    return writeFile(path, content);
}

std::string remarkOf(const LadderMessage& message) {
    std::string remark = message.content.name;
    for (const gateway::ReportedAddress& address : message.content.rewritten) {
        remark += "\n" + gateway::toText(address.from) + " -> " + gateway::toText(address.to) +
                  " in " + address.path;
    }
    for (const gateway::ReportedAddress& address : message.remaining) {
        remark += "\n" + gateway::toText(address.from) + " stays in " + address.path + ": " +
                  gateway::leftCauseText(address.cause);
    }
    return remark;
}

std::string captureName(uint64_t call, const CallRecord& record) {
    std::string time = gateway::timestampText({record.start / gateway::nanosecondsPerSecond, 0});
    time.resize(std::min(time.find('.'), time.size()));
    std::erase(time, '-');
    std::erase(time, ':');
    return time + "Z-" + std::to_string(call);
}

} // namespace

void CallArchive::configure(const ArchiveSettings& settings) {
    settings_ = settings;
    if (!settings.keeps()) {
        running_.clear();
        octets_ = 0;
    }
}

CallArchive::Running* CallArchive::runningCall(uint64_t call, size_t octets) {
    if (!keeps() || call == 0 || octets_ + octets > settings_.mostOctets) {
        return nullptr;
    }
    Running& running = running_[call];
    if (running.messages.size() + running.mappings.size() >= settings_.mostMessages) {
        return nullptr;
    }
    running.octets += octets;
    running.changed = true;
    octets_ += octets;
    return &running;
}

void CallArchive::note(uint64_t call, const LadderMessage& message,
                       std::span<const uint8_t> packet) {
    constexpr size_t overhead = sizeof(LadderMessage) + sizeof(Packet);
    size_t octets = message.content.octets.size() + packet.size() + overhead;
    for (const auto* list :
         {&message.content.rewritten, &message.content.left, &message.remaining}) {
        for (const gateway::ReportedAddress& address : *list) {
            octets += sizeof address + address.path.size();
        }
    }
    Running* const running = runningCall(call, octets);
    if (running == nullptr) {
        return;
    }
    running->messages.push_back(message);
    if (!settings_.troubled.empty() && !packet.empty()) {
        running->packets.push_back(
            {message.time, {packet.begin(), packet.end()}, remarkOf(message)});
    }
}

void CallArchive::note(uint64_t call, const MappingRecord& mapping) {
    Running* const running = runningCall(call, sizeof mapping);
    if (running != nullptr) {
        running->mappings.push_back(mapping);
    }
}

void CallArchive::note(uint64_t call, const gateway::FlowId& flow, const PacketRun& sent,
                       const PacketRun& received) {
    const auto found = running_.find(call);
    if (found != running_.end()) {
        found->second.flows.add(flow, sent, received);
        found->second.changed = true;
    }
}

// The gateway's times are whole seconds; those of messages are finer.
void CallArchive::refineTimes(CallRecord& record) {
    if (record.messages.empty()) {
        return;
    }
    record.start = record.messages.front().time;
    for (const LadderMessage& message : record.messages) {
        if (record.connected != never && message.content.name == "connect") {
            record.connected = message.time;
            break;
        }
    }
    const LadderMessage& last = record.messages.back();
    if (record.ended != never &&
        (last.content.name == "releaseComplete" || record.ended < last.time)) {
        record.ended = last.time;
    }
}

CallRecord CallArchive::complete(const Running& running, CallRecord known,
                                 const gateway::Network& inside) const {
    const std::string verdict = std::exchange(known.verdict, "");
    known.isCall = true;
    known.messages = running.messages;
    known.mappings = running.mappings;
    refineTimes(known);
    known.streams = mediaStreams(known, inside, running.flows);
    for (MediaStream& stream : known.streams) {
        if (!known.counted && stream.state == StreamState::Silent) {
            stream.state = StreamState::Uncounted;
        }
    }
    judge(known, inside);
    // The gateway knows more than messages tell.
    if (isGood(known) && !verdict.empty()) {
        known.verdict = verdict;
    }
    return known;
}

std::string CallArchive::write(uint64_t call, const CallRecord& record) const {
    if (settings_.calls.empty()) {
        return "";
    }
    return writeInto(settings_.calls, std::to_string(call), recordEnding, settings_.mostCalls,
                     callJson(record));
}

std::string CallArchive::writeCapture(uint64_t call, const Running& running,
                                      const CallRecord& record) const {
    if (settings_.troubled.empty() || isGood(record)) {
        return "";
    }
    std::string about = record.verdict;
    for (const Finding& finding : record.findings) {
        about += "\n" + finding.text;
    }
    std::string capture = pcapngHeader(about);
    for (const Packet& packet : running.packets) {
        capture += pcapngPacket(packet.time, packet.octets, packet.comment);
    }
    return writeInto(settings_.troubled, captureName(call, record), captureEnding,
                     settings_.mostCalls, capture);
}

std::string CallArchive::update(uint64_t call, const CallRecord& known,
                                const gateway::Network& inside) {
    const auto found = running_.find(call);
    if (found == running_.end() || !found->second.changed) {
        return "";
    }
    found->second.changed = false;
    return write(call, complete(found->second, known, inside));
}

std::string CallArchive::end(uint64_t call, const CallRecord& known,
                             const gateway::Network& inside) {
    const auto found = running_.find(call);
    if (found == running_.end()) {
        return "";
    }
    const Running running = std::move(found->second);
    running_.erase(found);
    octets_ -= running.octets;
    const CallRecord record = complete(running, known, inside);
    std::string failure = running.changed ? write(call, record) : "";
    std::string second = writeCapture(call, running, record);
    return failure.empty() ? second : failure;
}

std::string archiveBeside(const std::string& statusSocket) {
    return (fs::path(statusSocket).parent_path() / "calls").string();
}

CallRecord archivedCall(const std::string& folder, uint64_t call) {
    const fs::path path = fs::path(folder) / (std::to_string(call) + recordEnding);
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("nothing is kept of call " + std::to_string(call) + ": " +
                                 path.string() + ": " + std::strerror(errno));
    }
    const std::string json{std::istreambuf_iterator<char>(file), {}};
    return callFromJson(json);
}

} // namespace report
