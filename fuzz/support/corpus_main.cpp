// Runs a fuzz harness's entry point once over every file of its corpus, so the ordinary
// test build replays what the fuzzer found (a crash it fixed stays fixed).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER\n", argv[0]);
        return 2;
    }
    namespace fs = std::filesystem;
    std::error_code error;
    int inputs = 0;
    for (const auto& entry : fs::recursive_directory_iterator(argv[1], error)) {
        if (!entry.is_regular_file()) continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                      std::istreambuf_iterator<char>()};
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    if (error || inputs == 0) {
        std::fprintf(stderr, "no corpus in %s\n", argv[1]);
        return 1;
    }
    std::printf("%d inputs replayed\n", inputs);
    return 0;
}
