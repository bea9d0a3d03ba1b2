#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

namespace asn1gen {

/// A place in an ASN.1 source file, for error messages.
struct Position {
    std::shared_ptr<const std::string> file;
    int line = 0;
};

/// An error in the ASN.1 that is being read. what() is "FILE:LINE: error: MESSAGE".
class SourceError : public std::runtime_error {
public:
    SourceError(const Position& position, const std::string& message)
        : std::runtime_error(format(position, message)) {}

private:
    static std::string format(const Position& position, const std::string& message) {
        const std::string file = position.file ? *position.file : std::string("<input>");
        return file + ":" + std::to_string(position.line) + ": error: " + message;
    }
};

} // namespace asn1gen
