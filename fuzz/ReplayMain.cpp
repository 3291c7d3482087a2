// Replays a fuzz corpus through LLVMFuzzerTestOneInput without libFuzzer, so any
// compiler can run the committed corpus as a regression test.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    std::size_t files = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path root(argv[i]);
        std::vector<std::filesystem::path> inputs;
        if (std::filesystem::is_directory(root)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else {
            inputs.push_back(root);
        }
        for (const auto& path : inputs) {
            std::ifstream in(path, std::ios::binary);
            std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                            std::istreambuf_iterator<char>());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++files;
        }
    }
    std::printf("replayed %zu input(s)\n", files);
    return files > 0 ? 0 : 1;
}
