// Replays a fuzz target's checked-in corpus without libFuzzer, in every build: each file under the
// folders given goes to LLVMFuzzerTestOneInput once, in name order. A broken property or a crash
// ends the run; so does a missing or empty folder, which would otherwise pass unseen.

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
        for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
            if (entry.is_regular_file()) inputs.push_back(entry.path());
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "usage: %s <corpus folder>... (found no input)\n", argv[0]);
        return 2;
    }
    std::sort(inputs.begin(), inputs.end());
    for (const fs::path& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    return 0;
}
