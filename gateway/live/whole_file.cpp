#include "gateway/live/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace gateway {
namespace {

bool writeAll(int descriptor, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t part = write(descriptor, text.data() + written, text.size() - written);
        if (part < 0 && errno != EINTR) {
            return false;
        }
        written += part < 0 ? 0 : static_cast<size_t>(part);
    }
    return true;
}

} // namespace

int readFile(const std::string& path, std::string& content) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    std::array<char, 65536> part{};
    int failure = 0;
    for (ssize_t length = 1; length != 0 && failure == 0;) {
        length = read(descriptor, part.data(), part.size());
        if (length > 0) {
            content.append(part.data(), static_cast<size_t>(length));
        } else if (length < 0 && errno != EINTR) {
            failure = errno;
        }
    }
    close(descriptor);
    return failure;
}

std::string replaceFile(const std::string& path, const std::string& text, FileUse use) {
    const std::string temporary = path + ".new";
    const int descriptor =
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    const mode_t mode = use == FileUse::Metrics ? 0644 : 0600;
    // The mode is meant as it stands, whatever the process's umask.
    const bool whole = descriptor >= 0 && fchmod(descriptor, mode) == 0 &&
                       writeAll(descriptor, text) &&
                       (use == FileUse::Metrics || fdatasync(descriptor) == 0);
    std::string failure = whole ? "" : "cannot write '" + temporary + "': " + std::strerror(errno);
    if (descriptor >= 0) {
        close(descriptor);
    }
    if (failure.empty() && std::rename(temporary.c_str(), path.c_str()) != 0) {
        failure = "cannot rename '" + temporary + "' to '" + path + "': " + std::strerror(errno);
    }
    return failure;
}

} // namespace gateway
