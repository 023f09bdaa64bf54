// One read of one stream: the parser, the scans and the way into the image. Works on the record's working
// part, which keeps the tables from one read to the next, and owns what only the read at hand needs.
#pragma once

#include "image/ijl/Ijl.h"
#include "image/kernels/Kernels.h"

#include <cstdlib>
#include <span>

// Whether a stream of these components can fill an image of those channels. RGB to one grey channel is not
// among the pairs.
[[nodiscard]] bool IjlCanConvert(IJL_COLOR eJpgColor, std::int32_t nJpgChannels, IJL_COLOR eDibColor,
                                 std::uint32_t nDibChannels) noexcept;

// Whether the image that the fields describe can be written to.
IJLERR IjlCheckImage(const IjlFields& fields) noexcept;

class CIjlDecoder {
public:
    explicit CIjlDecoder(JPEG_PROPERTIES& props) : m_props(props) {}

    // In the mode that the working part holds. Throws std::bad_alloc alone.
    IJLERR Read();

private:
    static constexpr std::int32_t kBlock = 64; // coefficients or samples
    // Scans of a progressive frame that may code one component: six or seven come from encoders, and a scan
    // for each bit of a few bands stays below this.
    static constexpr std::int32_t kMaxProgressiveScans = 64;
    // Blocks that the scans of a progressive frame may pass over, since a few bytes suffice to pass over all
    // of a large picture: more than encoders' scripts come to, for each block of the picture; one for each
    // byte of the stream; and as many as take no time to speak of. bench/hostile measures the dearest streams
    // that this lets through.
    static constexpr std::int64_t kMaxPasses = 6;
    static constexpr std::int64_t kPassesPerByte = 1;
    static constexpr std::int64_t kFreePasses = std::int64_t{1} << 16;
    // Coefficients of the store: every 4:4:4 picture within the limit on pixels, some room for MCUs that
    // stand over included. 512 MiB of address space; memory is what the scans write to.
    static constexpr std::int64_t kMaxStore = std::int64_t{1} << 28;

    struct ReaderPosition;

    // IjlSegments.cpp: the loop over the markers, and the segments that fill tables and fields.
    IJLERR Parse();
    IJLERR HandleMarker(std::int32_t nMarker, bool& bStop);
    IJLERR HandleSegment(std::int32_t nMarker);
    JpegReader Reader() { return {m_props.JPGBytes, m_props.nSrcSize, m_props.nSrcPos}; }
    IJLERR ReadQuantTables(std::int32_t nContent);
    IJLERR ReadHuffmanTables(std::int32_t nContent);
    IJLERR ReadComment(std::int32_t nContent);

    // IjlFrame.cpp: frame and scan headers, and what follows from them.
    IJLERR ReadFrameHeader(bool bProgressive, std::int32_t nContent);
    IJLERR ReadFrameComponents();
    void ComputeGeometry();
    std::int32_t ClassifySampling() const;
    IJLERR ReadScanHeader(std::int32_t nContent);
    IJLERR ReadScanComponents(std::int32_t nCount);
    IJLERR CheckScan();
    IJLERR CheckProgression() const;
    IJLERR CheckPasses();
    IJLERR CheckTables(IjlComponent& component);
    void DecideStreamColor();
    std::span<IjlComponent> Components() {
        return {m_props.components.data(), static_cast<std::size_t>(m_props.JPGChannels)};
    }
    std::span<const IjlComponent> Components() const {
        return {m_props.components.data(), static_cast<std::size_t>(m_props.JPGChannels)};
    }

    // IjlScan.cpp: entropy-coded data.
    IJLERR DecodeScan();
    IJLERR DecodeDirect();
    IJLERR DecodeInterleaved();
    IJLERR DecodeOneComponent();
    IJLERR AllocateStore();
    IJLERR Restart();
    void ResetReader();
    IppStatus DecodeBlock(IjlComponent& component, std::int16_t* pBlock);
    template <typename ForEachBlock>
    IJLERR DecodeMcu(ForEachBlock&& forEachBlock);
    ReaderPosition CurrentPosition() const;
    IjlComponent& ScanComponent(std::int32_t i) {
        return m_props.components[static_cast<std::size_t>(m_anScan[i])];
    }
    std::int32_t StoreCols(const IjlComponent& component) const {
        return m_props.nMcuCols * component.nHSampling;
    }
    std::int16_t* StoreBlock(const IjlComponent& component, std::int32_t nCol, std::int32_t nRow) {
        return m_pStore + (component.nFirstBlock + std::int64_t{nRow} * StoreCols(component) + nCol) * kBlock;
    }

    // IjlOutput.cpp: from coefficients to the image.
    IJLERR ChoosePath();
    void ChooseRoutine();
    void ChooseChannels();
    IJLERR AllocateSamples();
    void ReconstructBlock(const std::int16_t* pBlock, const IjlComponent& component, std::int16_t* pSamples);
    IJLERR WriteStoredPicture();
    IJLERR WriteMcu(std::int32_t nMcuCol, std::int32_t nMcuRow);
    IJLERR WriteColour(std::int32_t nX, std::int32_t nY, IppiSize part);
    IJLERR WriteGrey(std::int32_t nX, std::int32_t nY, IppiSize part);
    IJLERR WritePlanes(std::int32_t nX, std::int32_t nY, IppiSize part);
    void FillPlane(std::int32_t nComponent, IppiSize part, std::uint8_t* pPlane) const;
    void WriteGeneral(std::int32_t nX, std::int32_t nY, IppiSize part);
    bool IsOfFullWidth(std::int32_t nComponent) const;
    // The samples that row nRow of the MCU takes from a component: eight from each block, the blocks kBlock
    // apart.
    const std::int16_t* SampleRow(std::int32_t nComponent, std::int32_t nRow) const {
        const IjlComponent& component = m_props.components[static_cast<std::size_t>(nComponent)];
        const std::uint32_t nSampleRow = m_aSampleRows[component.nVSampling - 1][nRow];
        return Samples(nComponent) +
               (nSampleRow / 8 * static_cast<std::uint32_t>(component.nHSampling * kBlock) +
                nSampleRow % 8 * 8);
    }
    void ExpandRow(std::int32_t nComponent, std::int32_t nRow, std::int32_t nCols, std::int32_t* pRow) const;
    std::int16_t* Samples(std::int32_t nComponent) const {
        return m_apSamples[static_cast<std::size_t>(nComponent)];
    }
    std::uint8_t* Pixel(std::int32_t nX, std::int32_t nY) const {
        return m_pFirstRow + nY * m_props.DIBLineBytes + std::int64_t{nX} * m_props.DIBChannels;
    }

    struct Free {
        void operator()(std::uint8_t* pBytes) const noexcept { std::free(pBytes); }
    };

    JPEG_PROPERTIES& m_props;

    // The scan at hand.
    std::int32_t m_anScan[4] = {}; // indices of its components
    std::int32_t m_nScanComponents = 0;
    std::int32_t m_nSs = 0;
    std::int32_t m_nSe = 0;
    std::int32_t m_nAh = 0;
    std::int32_t m_nAl = 0;
    std::int32_t m_nRestartsToGo = 0;
    bool m_bStuck = false; // every further block would fail as the last ones did, up to the next restart
    bool m_bPictureBegun = false;
    IJL_COLOR m_eStreamColor = IJL_OTHER; // that the pixels are made by

    // The coefficient store of the whole picture: for each component its blocks in raster order, those that
    // fill up MCUs included.
    std::unique_ptr<std::uint8_t[], Free> m_pStoreMemory;
    std::int16_t* m_pStore = nullptr;
    std::int64_t m_nStoreBlocks = 0;
    std::int64_t m_nPasses = 0; // blocks that the scans have passed over

    // The way into the image.
    using McuKernel = decltype(&ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R);
    enum class Routine { General, Grey, Colour, Planes };
    static constexpr std::int16_t kOpaque = -1;    // sources that are no component: a channel of 255s,
    static constexpr std::int16_t kUntouched = -2; // and one that is not written
    Routine m_eRoutine = Routine::General;
    McuKernel m_pMcuKernel = nullptr;         // of the colour routine
    bool m_bConvertColor = false;             // from YCbCr to red, green, blue
    std::uint8_t m_aSampleRows[4][32] = {};   // by vertical factor: the row of samples behind each of an MCU
    std::int16_t m_anChannelSource[255] = {}; // general routine: the component behind each channel
    std::int32_t m_nUsedComponents = 0;       // the first ones; the others make no pixels
    std::uint8_t* m_pFirstRow = nullptr;      // top row of the picture
    std::int32_t m_nOutWidth = 0;             // what stream and image share
    std::int32_t m_nOutHeight = 0;
    // Level-shifted samples of one MCU: component after component, block after block.
    IppBuffer<std::int16_t> m_pSamples;
    std::vector<std::int16_t*> m_apSamples; // where those of each used component begin
};
