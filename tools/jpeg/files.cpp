#include "tools/jpeg/files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace jpegtool {
namespace {

struct Close {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Close>;

FileError SystemError(const std::string& path) {
    return FileError(path + ": " + std::strerror(errno));
}

} // namespace

Bytes ReadFile(const std::string& path) {
    const File file(std::fopen(path.c_str(), "rb"));
    if (!file)
        throw SystemError(path);
    Bytes bytes;
    std::uint8_t piece[1 << 16];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, file.get())) {
        if (count > kLargestFile - bytes.size())
            throw FileError(path + ": larger than 2 GB");
        bytes.insert(bytes.end(), piece, piece + count);
    }
    if (std::ferror(file.get()) != 0)
        throw SystemError(path);
    return bytes;
}

void WriteFile(const std::string& path, std::span<const std::uint8_t> head,
               std::span<const std::uint8_t> body) {
    File file(std::fopen(path.c_str(), "wb"));
    if (!file)
        throw SystemError(path);
    for (const auto part : {head, body}) {
        if (!part.empty() && std::fwrite(part.data(), 1, part.size(), file.get()) != part.size())
            throw SystemError(path);
    }
    // What is still buffered may meet a full disk only here.
    if (std::fclose(file.release()) != 0)
        throw SystemError(path);
}

void Complain(const std::string& line) {
    // The two outputs often share a terminal: what was printed before comes before.
    std::fflush(stdout);
    std::fprintf(stderr, "morrowstream-jpeg: %s\n", line.c_str());
}

} // namespace jpegtool
