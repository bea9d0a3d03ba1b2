#pragma once

#include <chrono>
#include <cstdint>

namespace cli {

// One line on a terminal's standard error that is written over again a few times a second; nothing
// at all when standard error is no terminal.
class Progress {
public:
    Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    // `done` is the part of the work, 0 to 1, negative when unknown. Cheap enough for every packet.
    template <typename Done> void update(uint64_t packets, Done done) {
        constexpr uint64_t packetsBetweenLooks = 4096;
        if (isTerminal_ && packets % packetsBetweenLooks == 0) {
            show(packets, done());
        }
    }

    // Clears the line, so that other output can follow.
    void clear();

private:
    void show(uint64_t packets, double done);

    bool isTerminal_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point next_;
};

} // namespace cli
