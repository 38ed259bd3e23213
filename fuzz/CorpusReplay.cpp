// Runs the fuzz target once on every file of its corpus, without libFuzzer, so that an ordinary
// build compiles the target and the test suite replays the inputs fuzzing found worth keeping.
//   metadata_corpus_replay <file-or-folder>...
// A failed check aborts inside the target; reaching the end means every input passed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {
bool replay(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "❌ cannot read %s\n", path.c_str());
        return false;
    }
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
                                  std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    return true;
}
} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <file-or-folder>...\n", argv[0]);
        return 2;
    }
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (std::filesystem::is_directory(argv[i], error)) {
            for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
                if (!entry.is_regular_file())
                    continue;
                if (!replay(entry.path()))
                    return 1;
                ++count;
            }
        } else {
            if (!replay(argv[i]))
                return 1;
            ++count;
        }
    }
    if (count == 0) {
        std::fprintf(stderr, "❌ no inputs found\n");
        return 1;
    }
    std::printf("✅ %zu inputs replayed\n", count);
    return 0;
}
