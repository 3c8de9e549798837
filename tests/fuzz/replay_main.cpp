// Replays a fuzz target's checked-in corpus: every file under the folders (or the files) given on
// the command line goes to LLVMFuzzerTestOneInput once. This runs the fuzz targets in every build
// (g++ and the sanitizer builds), without libFuzzer. A broken property or a crash ends the run.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (fs::is_directory(argv[i], error)) {
            for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
                if (entry.is_regular_file()) inputs.push_back(entry.path());
            }
        } else if (fs::is_regular_file(argv[i], error)) {
            inputs.emplace_back(argv[i]);
        } else {
            std::fprintf(stderr, "%s: no such file or folder\n", argv[i]);
            return 2;
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "usage: %s <corpus folder or file>... (found no input)\n", argv[0]);
        return 2;
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)),
                                      std::istreambuf_iterator<char>());
        // An empty input is still an input; give it a valid pointer.
        static const uint8_t kNothing = 0;
        const auto* data =
                bytes.empty() ? &kNothing : reinterpret_cast<const uint8_t*>(bytes.data());
        LLVMFuzzerTestOneInput(data, bytes.size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return 0;
}
