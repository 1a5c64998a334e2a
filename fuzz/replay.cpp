// Runs a fuzzer's target once on each file of the given folders, so that every build keeps what the fuzzers
// once found fixed.

#include "fuzz/target.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char *argv[])
{
    int inputs = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
            const std::vector<std::uint8_t> bytes(content.begin(), content.end());
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            ++inputs;
        }
    }
    std::printf("%d inputs\n", inputs);
    return inputs == 0 ? 1 : 0;
}
