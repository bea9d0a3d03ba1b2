#include "cli/terminal.h"

#include <cstdlib>
#include <iostream>
#include <string_view>

#include <unistd.h>

namespace cli {

bool isTerminal(Stream stream) {
    return isatty(stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

bool hasColours(Stream stream) {
    const char* const none = std::getenv("NO_COLOR");
    const char* const kind = std::getenv("TERM");
    return isTerminal(stream) && (none == nullptr || *none == '\0') && kind != nullptr &&
           std::string_view(kind) != "dumb";
}

void complain(const std::string& message) {
    const bool coloured = hasColours(Stream::Error);
    std::cerr << (coloured ? "\033[1;31mh323nat:\033[0m " : "h323nat: ") << message << '\n';
}

} // namespace cli
