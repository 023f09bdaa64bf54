// The encoder: one picture in memory of the caller becomes one JPEG stream in memory of the caller.
//
// Writes baseline sequential and progressive frames with Huffman coding, 8-bit samples and 1, 3 or 4
// components (ITU-T T.81), with the tables of Annex K scaled by a quality, with or without restart markers.
//
// An object writes one stream on one thread: SetSource, SetParams, then one of the writers. Source and output
// stay the caller's; the object owns tables, component buffers and, for a progressive stream, all
// coefficients. A sequential stream needs one MCU row besides the source, and rows of planes that hold whole
// MCUs are read where they are. Allocation of the small table objects may throw std::bad_alloc; nothing else
// throws.
#pragma once

#include "image/format/JpegGeometry.h"
#include "image/format/JpegTypes.h"
#include "image/jpegenc/JpegEncoderTables.h"

#include <cstdint>
#include <memory>

// One record of a progressive script: which components, which coefficients, which of their bits.
struct JpegScan {
    std::int32_t nComponents;
    std::int32_t anComponent[4];
    std::int32_t nSs;
    std::int32_t nSe;
    std::int32_t nAh;
    std::int32_t nAl;
};

// Beside the fields below, those of the MCU grid are its own.
class CJPEGEncoder : public JpegGrid {
public:
    CJPEGEncoder();
    CJPEGEncoder(const CJPEGEncoder&) = delete;
    CJPEGEncoder& operator=(const CJPEGEncoder&) = delete;
    virtual ~CJPEGEncoder();

    // Remembers the source: interleaved pixels, or for JC_YCBCR420_PLANAR a PlanarSource with 1 channel.
    // nStep is a stride in bytes.
    JpegStatus SetSource(const void* pSrc, std::int32_t nWidth, std::int32_t nHeight, std::int32_t nChannels,
                         std::int32_t nStep, JpegColor eColor);

    // The stream's form. The restart interval counts MCUs, 0 for none. A stream of one component is written
    // as JS_444 whatever the sampling asked for: it has no chroma to halve, and a scan of one component has
    // MCUs of one block (T.81 A.2.2).
    JpegStatus SetParams(std::int32_t nQuality, JpegSampling eSampling, JpegColor eColor, bool bProgressive,
                         std::int32_t nRestartInterval);

    // *pnSize holds the capacity of pOut and, on success alone, the stream's length afterwards. A stream
    // needs one byte of capacity more than its length.
    //
    // JPEG_BUFFER_EXHAUSTED where a marker segment finds no room, JPEG_INTERNAL_ERROR where entropy-coded
    // data finds none, for a quality below 1, for a source without memory, size or a sufficient stride, and
    // where memory is short. JPEG_NOT_SUPPORTED, before a byte is written: a pair of colours without a
    // conversion, a sampling or a restart interval that the stream cannot tell, a picture beyond the limits
    // of the codec.
    JpegStatus WriteImage(std::uint8_t* pOut, std::int32_t* pnSize);
    JpegStatus WriteImageProgressive(std::uint8_t* pOut, std::int32_t* pnSize);

    // What the writer works with; for readers only.

    // Source.
    const void* m_pSrc = nullptr;
    std::int32_t m_nSrcWidth = 0;
    std::int32_t m_nSrcHeight = 0;
    std::int32_t m_nSrcStep = 0;
    std::int32_t m_nSrcChannels = 0;
    JpegColor m_eSrcColor = JC_UNKNOWN;

    // Stream parameters.
    std::int32_t m_nJpegComponents = 0;
    JpegSampling m_eJpegSampling = JS_444;
    JpegColor m_eJpegColor = JC_UNKNOWN;
    std::int32_t m_nQuality = 100;
    std::int32_t m_nRestartInterval = 0;
    bool m_bProgressive = false;

    // Output.
    std::int32_t m_nRestartsToGo = 0; // MCUs until the next restart
    std::int32_t m_nNextRestart = 0;  // number of the next restart marker, 0 to 7
    std::int32_t m_nDstPos = 0;       // bytes written

private:
    // What becomes of a source row, by the pair of source colour and stream colour.
    enum class Conversion { None, Split, Planes, RgbToGray, RgbToYCbCr, BgrToYCbCr, CmykToYcck };
    struct Plane;

    // The samples of one component in the MCU row at hand.
    struct ComponentRow {
        const std::uint8_t* pSamples;
        std::int32_t nStep;
    };

    // JpegEncoder.cpp: checks, tables, work memory, the sequential writer.
    JpegStatus Start(std::uint8_t* pOut, const std::int32_t* pnSize, bool bProgressive);
    JpegStatus CheckSource() const;
    JpegStatus CheckParams();
    void ComputeGeometry();
    JpegStatus MakeComponents();
    JpegStatus AllocateComponentBuffers(CJPEGColorComponent& component) const;
    JpegStatus MakeTables();
    JpegStatus WriteSequentialHeader();
    JpegStatus WriteSequentialScan();
    void BeginMcuRow(IppScanComponent (&aScan)[kJpegMaxComponents]) const;
    JpegStatus WriteMcuRow();
    JpegStatus FlushBits();
    bool NeedsSecondTables() const { return m_nJpegComponents > 1; }

    // JpegEncoderSegments.cpp: markers and their content.
    class Segment;
    JpegStatus WriteMarker(std::int32_t nMarker);
    JpegStatus WriteStart();
    JpegStatus WriteJfif();
    JpegStatus WriteAdobe();
    JpegStatus WriteComment();
    JpegStatus WriteQuantTable(std::int32_t nId);
    JpegStatus WriteFrameHeader(std::int32_t nMarker);
    JpegStatus WriteHuffmanTable(const CJPEGEncoderHuffmanTable& table);
    JpegStatus WriteRestartInterval();
    JpegStatus WriteScanHeader(const JpegScan& scan);
    JpegStatus WriteRestartMarker();

    // JpegEncoderSource.cpp: from the source to the samples of one MCU row.
    Conversion ChooseConversion() const;
    JpegStatus PrepareMcuRow(std::int32_t nMcuRow);
    JpegStatus TakePlanes(std::int32_t nMcuRow);
    JpegStatus ConvertMcuRow(std::int32_t nMcuRow);
    void PadMcuRow(std::int32_t nMcuRow);
    JpegStatus DownsampleMcuRow();

    // JpegEncoderProgressive.cpp.
    class ScanCoder;
    JpegStatus MakeScript();
    JpegStatus TransformPicture();
    JpegStatus TransformMcuRow(std::int32_t nMcuRow);
    JpegStatus WriteProgressiveScan(const JpegScan& scan);
    JpegStatus OptimiseTables(const JpegScan& scan);
    JpegStatus WriteScanTables(const JpegScan& scan);

    Conversion m_eConversion = Conversion::None;
    JpegSampling m_eAskedSampling = JS_444;
    std::uint8_t* m_pDst = nullptr;
    std::int32_t m_nDstSize = 0;
    ComponentRow m_aRows[kJpegMaxComponents] = {};
    std::int32_t m_nBlocksPerMcu = 0;

    // Progressive script.
    std::int32_t m_nScans = 0;
    std::unique_ptr<JpegScan[]> m_pScans;

    // Work memory. Members go in reverse order: tables last in this list are deleted first.
    IppTablePtr<ippiEncodeHuffmanState> m_pHuffmanState;
    IppBuffer<std::int16_t> m_pCoefficients; // of a progressive picture, MCU after MCU, natural order

    // Tables.
    std::unique_ptr<CJPEGColorComponent> m_apComponents[kJpegMaxComponents];
    std::unique_ptr<CJPEGEncoderHuffmanTable> m_apAcHuffman[2];
    std::unique_ptr<CJPEGEncoderHuffmanTable> m_apDcHuffman[2];
    std::unique_ptr<CJPEGEncoderQuantTable> m_apQuant[4]; // 0 and 1 are used
};
