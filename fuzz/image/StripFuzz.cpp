// What is passed on of any bytes: the same picture, all of it, and a stream that has nothing left to take
// out.

#include "fuzz/Fuzz.h"
#include "image/ImageCodec.h"

#include <cstring>
#include <vector>

namespace {

constexpr std::int64_t kMaxPixels = 512 * 512;

std::int32_t SizeOf(const std::vector<std::uint8_t>& bytes) {
    return static_cast<std::int32_t>(bytes.size());
}

// Into exactly as much memory as is asked for; empty when the stream must be encoded.
std::vector<std::uint8_t> Strip(const std::uint8_t* pData, std::int32_t nSize) {
    std::vector<std::uint8_t> out(static_cast<std::size_t>(nSize) + 2);
    std::int32_t nOut = 0;
    if (StripJpeg(pData, nSize, out.data(), SizeOf(out), &nOut) != ImageOk)
        return {};
    Require(nOut >= 4 && nOut <= SizeOf(out), "the size is that of a stream");
    out.resize(static_cast<std::size_t>(nOut));
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nBytes) {
    if (nBytes > 1u << 20)
        return 0;
    const auto nSize = static_cast<std::int32_t>(nBytes);
    const std::vector<std::uint8_t> passed = Strip(pData, nSize);
    if (passed.empty())
        return 0;
    Require(Strip(passed.data(), SizeOf(passed)) == passed, "nothing is left to take out");
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    ImageKind eKind{};
    Require(ProbeJpeg(pData, nSize, nWidth, nHeight, eKind) == ImageOk, "only a picture is passed on");
    if (std::int64_t{nWidth} * nHeight > kMaxPixels)
        return 0;
    const FrameBlock before = DecodeToFrameBlock(pData, nSize);
    const FrameBlock after = DecodeToFrameBlock(passed.data(), SizeOf(passed));
    if (before)
        Require(after && before.size() == after.size() &&
                    std::memcmp(before.get(), after.get(), before.size()) == 0,
                "it is the same picture");
    return 0;
}
