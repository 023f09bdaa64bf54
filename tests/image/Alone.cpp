// Encodes a picture and decodes it: everything that the codec needs is linked.

#include "image/ImageCodec.h"

#include <cstddef>
#include <cstdint>
#include <vector>

int main() {
    constexpr std::int32_t kSide = 40;
    const std::vector<std::uint8_t> grey(std::size_t{kSide} * kSide, 77);
    std::vector<std::uint8_t> jpeg(10000), decoded(grey.size());
    std::int32_t nSize = 0;
    if (EncodeJpegGrey(grey.data(), kSide, kSide, 90, jpeg.data(), static_cast<std::int32_t>(jpeg.size()),
                       &nSize, kSide) != ImageOk)
        return 1;
    if (DecodeJpegGrey(jpeg.data(), nSize, decoded.data(), kSide) != ImageOk)
        return 2;
    return decoded == grey ? 0 : 3;
}
