// What damage makes of a picture, byte for byte: how decoders are made faster must not show in what a damaged
// stream gives. Streams of another program's encoder, changed in many ways behind their first scan header; of
// all that comes out there is a digest, the same at every level.

#include "image/Decoding.h"
#include "image/KernelLevel.h"
#include "image/ijl/Ijl.h"

#include <fstream>
#include <iterator>
#include <random>

namespace {

using namespace samples;

struct Row {
    const char* szStream; // of the corpus
    int nTimes;           // its columns, its rows: with the data as often, so that MCUs follow damage
    std::uint64_t nPrimary, nFallback;
};

const Row kRows[] = {
    {"grey.jpg", 1, 0xf66f542f0fb8b0c6, 0xcfeaf29b765e8ae},
    {"grey.jpg", 5, 0x3977eef27517ef05, 0xdbb97edab9c4f4d4},
    {"grey-restarts.jpg", 1, 0x4256d6e87683f358, 0x391e6a9a75f13c76},
    {"grey-restarts.jpg", 5, 0x6e4b0ed090ab4d35, 0x3e3dc76ed6074ac0},
    {"colour-420.jpg", 1, 0xfa9dae73939d455c, 0xa72875f34f3af42f},
    {"colour-420.jpg", 12, 0xead666372bf99078, 0x978607a8c7f0a423},
    {"colour-420-restarts.jpg", 1, 0xaf082281b9c051d5, 0xc64b3d1be01afed3},
    {"colour-420-restarts.jpg", 5, 0x3310bc0b4fc92f10, 0xbcd392bfd6beb866},
    {"colour-422-adobe.jpg", 1, 0x1fd16ce8ac7fcdab, 0x6a8afba90356bc93},
    {"colour-422-adobe.jpg", 5, 0xb30a718aeea5a12a, 0xb4c68de8f6bdb2e1},
    {"colour-444-own-tables.jpg", 1, 0xa619b13ae7bad9fe, 0x45af1127a6b58e0d},
    {"colour-444-own-tables.jpg", 5, 0x722d05553bd40ec2, 0xf4783c5d5cc02bff},
    {"colour-444-finest.jpg", 1, 0xba0db847d0d598aa, 0xe530a39e97eb1c92},
    {"colour-444-finest.jpg", 7, 0x873ad580b9b7dba2, 0x5b98fb140d269d35},
    {"progressive-420.jpg", 1, 0xb749cb4a5d064b3, 0x7d3517661790403f},
    {"progressive-422-restarts.jpg", 1, 0x6450e5828cf5cc90, 0x6488e4c1d65bc176},
    {"progressive-444-apart.jpg", 1, 0x16d5ecc96bd9b1c3, 0x174897ce23d448ca},
    {"progressive-grey-bits.jpg", 1, 0x45fff522f14f340, 0x73cddabae1ba95fd},
    {"progressive.jpg", 1, 0xdb800123ef87406b, 0x1535a091cb500572},
    {"colour-411.jpg", 1, 0x229c80d54f7c1679, 0x47aad5696b17e6f0},
    {"separate-scans.jpg", 1, 0xf87b38c6cf34ac55, 0x76ece207e977f4a4},
    {"rgb.jpg", 1, 0x9ba11ca8c03b8dd2, 0x9c297817459a166f},
    {"cmyk.jpg", 1, 0x229c80d54f7c1679, 0x96177cc1d8b760ef},
};

class Digest {
public:
    void Add(std::uint8_t nByte) { m_n = (m_n ^ nByte) * 0x100000001B3u; } // FNV-1a
    void Add(const Bytes& bytes) {
        std::for_each(bytes.begin(), bytes.end(), [this](auto n) { Add(n); });
    }
    void AddStatus(int nStatus) { Add(static_cast<std::uint8_t>(nStatus)); }
    std::uint64_t Value() const { return m_n; }

private:
    std::uint64_t m_n = 0xCBF29CE484222325u;
};

Bytes Stream(const Row& row) {
    std::ifstream file(std::string(CORPUS "/") + row.szStream, std::ios::binary);
    Bytes jpeg{std::istreambuf_iterator<char>(file), {}};
    EXPECT_GT(jpeg.size(), 200u) << row.szStream;
    if (row.nTimes == 1)
        return jpeg;
    const std::size_t nFrame = FindMarker(jpeg, 0xC0);
    for (const std::size_t nLow : {nFrame + 6, nFrame + 8})
        jpeg[nLow] = static_cast<std::uint8_t>(jpeg[nLow] * row.nTimes); // sides stay below 256
    const Bytes end = Part(jpeg, jpeg.size() - 2), data = Part(DataOf(jpeg), 0, DataOf(jpeg).size() - 2);
    jpeg.resize(jpeg.size() - 2);
    for (int i = 1; i < row.nTimes * row.nTimes; ++i)
        Append(jpeg, data);
    Append(jpeg, end);
    return jpeg;
}

// One to three changes behind the first scan header; with every fourth the stream is cut before its end.
Bytes Damaged(const Bytes& jpeg, std::size_t nData, unsigned n, std::minstd_rand& random) {
    Bytes damaged = jpeg;
    const auto place = [&] { return nData + (random() >> 4) % (damaged.size() - nData - 2); };
    for (unsigned nLeft = 1 + n % 3; nLeft > 0; --nLeft) {
        const auto nByte = static_cast<std::uint8_t>(random() >> 8);
        const std::size_t nAt = place();
        switch ((random() >> 4) % 6) {
        case 0:
            damaged[nAt] = 0xFF;
            break;
        case 1:
            Insert(damaged, nAt, {nByte});
            break;
        case 2:
            damaged.erase(damaged.begin() + nAt);
            break;
        case 3:
            Insert(damaged, nAt, {0xFF, static_cast<std::uint8_t>(0xD0 + nByte % 10)});
            break;
        default:
            damaged[nAt] = nByte;
        }
    }
    if (n % 4 == 3) {
        damaged.resize(place());
        Append(damaged, {0xFF, 0xD9});
    }
    return damaged;
}

void AddPrimary(const Bytes& jpeg, Digest& digest) {
    const Decode decode(jpeg);
    digest.AddStatus(decode.eData);
    if (decode.eData == JPEG_OK) {
        digest.Add(decode.y);
        digest.Add(decode.cb);
        digest.Add(decode.cr);
    }
}

// The components as they are.
void AddFallback(Bytes jpeg, Digest& digest) {
    JPEG_CORE_PROPERTIES record;
    EXPECT_EQ(ijlInit(&record), IJL_OK);
    record.JPGBytes = jpeg.data();
    record.JPGSizeBytes = Size(jpeg);
    EXPECT_EQ(ijlRead(&record, IJL_JBUFF_READPARAMS), IJL_OK);
    record.JPGColor = record.DIBColor = IJL_OTHER;
    record.DIBChannels = static_cast<std::uint32_t>(record.JPGChannels);
    record.DIBWidth = static_cast<std::uint32_t>(record.JPGWidth);
    record.DIBHeight = record.JPGHeight;
    Bytes image(record.JPGWidth * record.JPGHeight * record.JPGChannels, 0x11);
    record.DIBBytes = image.data();
    const IJLERR eError = ijlRead(&record, IJL_JBUFF_READWHOLEIMAGE);
    digest.AddStatus(eError);
    if (eError == IJL_OK)
        digest.Add(image);
    EXPECT_EQ(ijlFree(&record), IJL_OK);
}

using Damages = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, Damages, EveryKernelLevel(), KernelLevelName);

TEST_P(Damages, GiveWhatTheyAlwaysGave) {
    for (const Row& row : kRows) {
        const Bytes jpeg = Stream(row);
        const std::size_t nData = jpeg.size() - DataOf(jpeg).size();
        Digest primary, fallback;
        std::minstd_rand random(7);
        for (unsigned n = 0; n < 60; ++n) {
            const Bytes damaged = Damaged(jpeg, nData, n, random);
            AddPrimary(damaged, primary);
            AddFallback(damaged, fallback);
        }
        EXPECT_EQ(primary.Value(), row.nPrimary) << row.szStream << " x" << row.nTimes;
        EXPECT_EQ(fallback.Value(), row.nFallback) << row.szStream << " x" << row.nTimes;
    }
}

} // namespace
