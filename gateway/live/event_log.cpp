#include "gateway/live/event_log.h"

#include <nlohmann/json.hpp>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace gateway {
namespace {

constexpr unsigned linesOfCalls = 1000; // in a second
constexpr unsigned linesOfCallers = 100;
constexpr unsigned linesOfStrangers = 20;

bool needsQuotes(const std::string& value) {
    return value.empty() || std::any_of(value.begin(), value.end(), [](unsigned char c) {
               return c <= ' ' || c == '"' || c == '=' || c == '\\' || c >= 0x7F;
           });
}

// JSON's quoting is logfmt's as well. Octets that are not UTF-8 are replaced.
std::string quoted(const std::string& value) {
    return nlohmann::json(value).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

} // namespace

std::string formatEvent(LogFormat format, const char* event,
                        std::initializer_list<LogField> fields) {
    if (format == LogFormat::Json) {
        std::string text = std::string(R"("event":")") + event + "\"";
        for (const auto& [name, value] : fields) {
            text += ",\"" + std::string(name) + "\":" + quoted(value);
        }
        return text;
    }
    std::string text = std::string("event=") + event;
    for (const auto& [name, value] : fields) {
        text += " " + std::string(name) + "=" + (needsQuotes(value) ? quoted(value) : value);
    }
    return text;
}

EventLog::EventLog(Counters& counters)
    : counters_(counters), logger_(std::make_shared<spdlog::logger>(
                               "h323nat", std::make_shared<spdlog::sinks::stderr_sink_st>())) {
    configure(LogFormat::Logfmt, false);
}

void EventLog::configure(LogFormat format, bool debug) {
    format_ = format;
    debug_ = debug;
    logger_->set_level(debug ? spdlog::level::debug : spdlog::level::info);
    logger_->flush_on(spdlog::level::debug);
    logger_->set_pattern(format == LogFormat::Json
                             ? R"({"time":"%Y-%m-%dT%H:%M:%S.%eZ","level":"%l",%v})"
                             : "time=%Y-%m-%dT%H:%M:%S.%eZ level=%l %v",
                         spdlog::pattern_time_type::utc);
}

// A pipe that nobody empties would stop every call.
bool EventLog::takesLines() {
    pollfd error{STDERR_FILENO, POLLOUT, 0};
    if (poll(&error, 1, 0) == 1 && (error.revents & POLLOUT) != 0) {
        return true;
    }
    counters_.add(Cause::logSuppressed);
    return false;
}

bool EventLog::mayWrite(Budget& budget, unsigned linesPerSecond) {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    const int64_t second = std::chrono::duration_cast<std::chrono::seconds>(now).count();
    if (second != budget.second) {
        budget = {second, 0};
    }
    if (++budget.lines <= linesPerSecond) {
        return takesLines();
    }
    counters_.add(Cause::logSuppressed);
    return false;
}

void EventLog::info(const char* event, std::initializer_list<LogField> fields) {
    if (mayWrite(calls_, linesOfCalls)) {
        logger_->info("{}", formatEvent(format_, event, fields));
    }
}

void EventLog::caller(const char* event, std::initializer_list<LogField> fields) {
    if (mayWrite(callers_, linesOfCallers)) {
        logger_->info("{}", formatEvent(format_, event, fields));
    }
}

void EventLog::stranger(const char* event, std::initializer_list<LogField> fields) {
    if (mayWrite(strangers_, linesOfStrangers)) {
        logger_->info("{}", formatEvent(format_, event, fields));
    }
}

void EventLog::debug(const char* event, std::initializer_list<LogField> fields) {
    if (debug_ && mayWrite(calls_, linesOfCalls)) {
        logger_->debug("{}", formatEvent(format_, event, fields));
    }
}

void EventLog::warning(const char* event, std::initializer_list<LogField> fields) {
    if (takesLines()) {
        logger_->warn("{}", formatEvent(format_, event, fields));
    }
}

} // namespace gateway
