#include "cli/terminal.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace cli {

void keepClosedStreams() {
#ifndef _WIN32
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            // The lowest number that is free. What is opened the wrong way round gives an error.
            static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
#endif
}

bool isTerminal(Stream stream) {
    return isatty(stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

bool hasColours(Stream stream) {
    const char* const none = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    return isTerminal(stream) && (none == nullptr || *none == '\0') && kind != nullptr &&
           std::string_view(kind) != "dumb";
}

std::string printable(const std::string& text) {
    std::string result = text;
    for (char& character : result) {
        const auto octet = static_cast<unsigned char>(character);
        character = octet < 0x20 || octet == 0x7F ? '?' : character;
    }
    return result;
}

void complain(const std::string& message) {
    std::cout << std::flush; // what was printed before stands before it
    const bool coloured = hasColours(Stream::Error);
    std::cerr << (coloured ? "\033[1;31mh323nat:\033[0m " : "h323nat: ");
    for (size_t at = 0; at <= message.size();) {
        const size_t end = std::min(message.find('\n', at), message.size());
        std::cerr << printable(message.substr(at, end - at)) << '\n';
        at = end + 1;
    }
}

} // namespace cli
