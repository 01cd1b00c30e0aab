// Runs a target over kept inputs, without a fuzzer: files, or folders of files. Fails where there
// are none, and as the target does.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tests/support/fileBytes.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

int RunFile(const std::filesystem::path& path) {
    std::fprintf(stderr, "%s\n", path.c_str());
    const std::string bytes = support::ReadFile(path);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return 1;
}

int Run(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) {
        return RunFile(path);
    }
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        count += RunFile(entry.path());
    }
    return count;
}

}  // namespace

// What an input or its folder throws is a failure like any other.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        count += Run(argv[i]);
    }
    std::fprintf(stderr, "%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
