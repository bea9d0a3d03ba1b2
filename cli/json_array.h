#pragma once

#include <cstddef>
#include <iostream>
#include <string>

namespace cli {

/// An array on standard output, printed one element at a time.
class JsonArray {
public:
    void add(const std::string& element) {
        std::cout << (count == 0 ? "[\n" : ",\n") << element;
        ++count;
    }

    /// Nothing may be added from then on.
    void finish() { std::cout << (count == 0 ? "[]\n" : "\n]\n"); }

private:
    size_t count = 0;
};

} // namespace cli
