// Runs a fuzz target over files instead of under the fuzzer: every file of the folders and every
// file named. Ends by the target's own abort when an input breaks a promise.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void runFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> read{std::istreambuf_iterator<char>(file), {}};
    // On the heap and no longer than the file: a sanitizer sees what is read beyond.
    const auto octets = std::make_unique<uint8_t[]>(read.size());
    std::copy(read.begin(), read.end(), octets.get());
    // Said beforehand, so that the last line names the input of an abort.
    std::cout << path.string() << std::endl;
    LLVMFuzzerTestOneInput(octets.get(), read.size());
}

} // namespace

int main(int count, char** arguments) {
    size_t files = 0;
    for (int i = 1; i < count; ++i) {
        const std::filesystem::path path = arguments[i];
        if (!std::filesystem::is_directory(path)) {
            runFile(path);
            ++files;
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            runFile(entry.path());
            ++files;
        }
    }
    if (files == 0) {
        std::cerr << "no input was found: name the files or folders to replay\n";
        return 1;
    }
    std::cout << files << " inputs\n";
    return 0;
}
