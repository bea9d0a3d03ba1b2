#pragma once

#include <functional>
#include <string>

namespace gateway {

// The Unix socket that tells a running gateway's status: whoever connects gets one JSON object, and
// the connection ends. Nothing is read from it.
class StatusSocket {
public:
    StatusSocket() = default;
    StatusSocket(const StatusSocket&) = delete;
    StatusSocket& operator=(const StatusSocket&) = delete;
    ~StatusSocket();

    // Listens at `path`, which replaces the socket of a run that ended. Gives an empty text, or
    // what went wrong.
    std::string open(const std::string& path);

    // To wait for with poll; -1 before open.
    [[nodiscard]] int descriptor() const { return listener_; }

    // Answers one waiting connection without ever waiting for its other end.
    void answer(const std::function<std::string()>& text) const;

private:
    int listener_ = -1;
    std::string path_;
};

// Connects to a gateway's socket and reads the whole answer. Gives an empty text and fills
// `answer`, or gives what went wrong.
std::string readStatus(const std::string& path, std::string& answer);

} // namespace gateway
