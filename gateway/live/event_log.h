#pragma once

#include "gateway/live/config.h"
#include "gateway/live/counters.h"

#include <spdlog/logger.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace gateway {

using LogField = std::pair<const char*, std::string>;

// One log line as it is written: `event` and the fields, in logfmt or as a JSON object.
std::string formatEvent(LogFormat format, const char* event,
                        std::initializer_list<LogField> fields);

// The gateway's log: a line for each event on standard error, where systemd's journal takes it.
// Nobody can flood it: past a number of lines per second, lines are counted instead. Calls from
// outside, and whatever else strangers can cause, have numbers of their own, so that they take no
// line from other calls. A reader that does not read costs lines, never time.
class EventLog {
public:
    explicit EventLog(Counters& counters);

    void configure(LogFormat format, bool debug);

    void info(const char* event, std::initializer_list<LogField> fields);
    // As `info`, for what whoever calls from outside causes.
    void caller(const char* event, std::initializer_list<LogField> fields);
    // As `info`, for what anybody may cause.
    void stranger(const char* event, std::initializer_list<LogField> fields);
    void debug(const char* event, std::initializer_list<LogField> fields);
    // Never left out for its number.
    void warning(const char* event, std::initializer_list<LogField> fields);

    [[nodiscard]] bool isDebug() const { return debug_; }

private:
    struct Budget {
        int64_t second = 0;
        unsigned lines = 0;
    };

    bool mayWrite(Budget& budget, unsigned linesPerSecond);
    bool takesLines();

    Counters& counters_;
    std::shared_ptr<spdlog::logger> logger_;
    LogFormat format_ = LogFormat::Logfmt;
    bool debug_ = false;
    Budget calls_;
    Budget callers_;
    Budget strangers_;
};

} // namespace gateway
