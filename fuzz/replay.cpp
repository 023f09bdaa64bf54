// Runs a fuzz target without a fuzzer: every file of a corpus folder as it is, and then each of them with
// mutations that depend on nothing but the file, so that a run can be repeated.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr int kMutationsPerFile = 150;

Bytes ReadFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// One to four damages: a changed byte, a cut, a doubled stretch, or a byte with a meaning in most formats.
Bytes Mutate(Bytes bytes, std::minstd_rand& random) {
    static constexpr std::uint8_t kTelling[] = {0x00, 0x01, 0x7F, 0x80, 0xFE, 0xFF};
    const auto below = [&](std::size_t n) { return n == 0 ? std::size_t{0} : random() % n; };
    for (auto n = 1 + below(4); n > 0 && !bytes.empty(); --n) {
        const auto at = below(bytes.size());
        switch (below(4)) {
        case 0:
            bytes[at] = static_cast<std::uint8_t>(random());
            break;
        case 1:
            bytes.resize(at);
            break;
        case 2: {
            const Bytes piece(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                              bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), at + 16)));
            bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), piece.begin(), piece.end());
            break;
        }
        default:
            bytes[at] = kTelling[below(std::size(kTelling))];
            break;
        }
    }
    return bytes;
}

// The bytes stand in a block of exactly their size, so that a read past the end is seen.
void RunOne(const Bytes& bytes) {
    const Bytes exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s CORPUS-FOLDER...\n", argv[0]);
        return 2;
    }
    std::size_t runs = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
            if (entry.is_regular_file())
                files.push_back(entry.path());
        }
        std::sort(files.begin(), files.end());
        for (const auto& file : files) {
            const Bytes bytes = ReadFile(file);
            RunOne(bytes);
            ++runs;
            std::minstd_rand random(static_cast<unsigned>(bytes.size()) + 1);
            for (int n = 0; n < kMutationsPerFile; ++n, ++runs)
                RunOne(Mutate(bytes, random));
        }
    }
    std::printf("%zu inputs\n", runs);
    if (runs == 0) {
        std::fprintf(stderr, "the corpus is empty\n");
        return 1;
    }
    return 0;
}
