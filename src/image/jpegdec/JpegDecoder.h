// The primary decoder: one JPEG stream in memory becomes pixels in memory of the caller.
//
// Reads baseline and extended sequential frames with 1 to 4 interleaved components, and progressive frames,
// with Huffman coding and 8-bit samples (ITU-T T.81).
//
// An object serves one stream on one thread: SetSource, ReadHeader, SetDestination, ReadData, and after a
// failure of any of them only the destructor. It owns tables, component buffers and comment; source and
// destination stay the caller's. Memory: one MCU row besides the destination, and for a progressive frame the
// coefficients of the whole picture. Allocation of a comment and of tables that are not shared may throw
// std::bad_alloc; nothing else throws.
#pragma once

#include "image/format/JpegGeometry.h"
#include "image/format/JpegSegments.h"
#include "image/format/JpegTypes.h"
#include "image/jpegdec/JpegTables.h"

#include <cstdint>
#include <memory>
#include <optional>

// Beside the fields below, those of JFIF and Adobe segments and of the MCU grid are its own.
class CJPEGDecoder : public JpegApplicationFields, public JpegGrid {
public:
    CJPEGDecoder();
    CJPEGDecoder(const CJPEGDecoder&) = delete;
    CJPEGDecoder& operator=(const CJPEGDecoder&) = delete;
    virtual ~CJPEGDecoder();

    // Remembers the stream, which must live as long as the object. Null or a size below 1 is an empty stream.
    JpegStatus SetSource(const std::uint8_t* pSrc, std::int32_t nSrcSize);

    // Parses up to the first start of scan. The results are written on success alone.
    JpegStatus ReadHeader(std::int32_t& nWidth, std::int32_t& nHeight, std::int32_t& nChannels,
                          JpegColor& eColor, JpegSampling& eSampling);

    // Width and height are the stream's own. nStep is a stride in bytes; for JC_YCBCR420_PLANAR pDst leads to
    // a PlanarDestination, whose strides count instead. The memory has room for the picture: the grey plane
    // for height rows of width samples, each chroma plane for height/2 rows of width/2, interleaved pixels
    // for height rows of width * nChannels bytes, nStep apart.
    //
    // Pairs of stream colour and eColor besides those two: JC_UNKNOWN to itself and JC_RGB, JC_CMYK to
    // themselves interleave the components; JC_RGB to JC_BGR reverses them; JC_GRAY to JC_RGB or JC_BGR
    // repeats the one; JC_YCBCR to JC_RGB or JC_BGR and JC_YCCK to JC_CMYK convert. Any other pair leaves the
    // destination untouched, and ReadData reports JPEG_OK for it.
    JpegStatus SetDestination(void* pDst, std::int32_t nWidth, std::int32_t nStep, std::int32_t nHeight,
                              std::int32_t nChannels, JpegColor eColor);

    // Decodes every scan into the destination. Damaged entropy-coded data of a sequential frame costs rows,
    // not the picture: a row keeps what it got and JPEG_OK comes back. That of a progressive frame gives
    // JPEG_INTERNAL_ERROR and no picture that could be relied on. JPEG_BUFFER_EXHAUSTED tells that the stream
    // ended without its end-of-image marker, though rows may have been written.
    JpegStatus ReadData();

    // Whether ReadData has written every sample that the destination has room for, damaged ones included.
    bool HasWrittenPicture() const { return m_bPictureWritten; }

    // What the stream said; for readers only.

    // Source.
    const std::uint8_t* m_pSrc = nullptr;
    std::int32_t m_nSrcSize = 0;

    // Frame.
    std::int32_t m_nJpegWidth = 0;
    std::int32_t m_nJpegHeight = 0;
    std::int32_t m_nJpegComponents = 0;
    JpegSampling m_eJpegSampling = JS_444;
    JpegColor m_eJpegColor = JC_UNKNOWN;
    std::int32_t m_nRestartInterval = 0; // in MCUs, 0 for none
    bool m_bProgressive = false;

    // The last comment, zero-terminated behind its size.
    bool m_bCommentFound = false;
    std::int32_t m_nCommentSize = 0;
    std::unique_ptr<char[]> m_pComment;

    // Destination.
    void* m_pDst = nullptr;
    std::int32_t m_nDstWidth = 0;
    std::int32_t m_nDstHeight = 0;
    std::int32_t m_nDstStep = 0;
    std::int32_t m_nDstChannels = 0;
    JpegColor m_eDstColor = JC_UNKNOWN;

    // Parser.
    std::int32_t m_nRestartsToGo = 0; // MCUs until the next restart
    std::int32_t m_nSrcPos = 0;
    std::int32_t m_nSosLength = 0;
    std::int32_t m_nCurrentComponent = 0; // index of the last component named by the scan header
    std::int32_t m_nSs = 0, m_nSe = 0;    // the scan's band
    std::int32_t m_nAl = 0, m_nAh = 0;    // and its successive approximation
    bool m_bDcScanDone = false;
    std::int32_t m_nAcScansDone = 0;
    std::int32_t m_nMarker = 0; // the marker in hand, 0 for none

private:
    enum class Mode { Header, Data };
    // What becomes of the samples, by the pair of stream colour and destination colour.
    enum class Conversion { None, GrayToGray, YCbCrToPlanar, Pixels };
    struct ColorPair;
    struct PixelConversion;
    struct EntropyPosition;
    // The first sample of a component in an MCU row, and the way to its next row.
    struct SampleRows {
        std::uint8_t* pFirst;
        std::int32_t nStep;
    };

    // JpegSegments.cpp: bytes, markers and the segments that fill tables and fields.
    JpegReader Reader() { return {m_pSrc, m_nSrcSize, m_nSrcPos}; }
    JpegStatus NextMarker();
    JpegStatus ReadSegment(JpegStatus (CJPEGDecoder::*pRead)(std::int32_t nContent));
    JpegStatus ReadRestartInterval(std::int32_t nContent);
    JpegStatus ReadQuantTables(std::int32_t nContent);
    JpegStatus ReadHuffmanTables(std::int32_t nContent);
    JpegStatus ReadApplicationSegment(std::int32_t nContent);
    JpegStatus ReadComment(std::int32_t nContent);
    JpegStatus SkipSegment(std::int32_t nContent);

    // JpegFrame.cpp: frame and scan headers and what follows from them.
    JpegStatus ReadFrameHeader(std::int32_t nContent);
    JpegStatus ReadFrameComponents();
    void ClassifySampling();
    JpegStatus ReadScanHeader(std::int32_t nContent);
    JpegStatus ReadScanComponents(std::int32_t nCount);
    void DecideColor();

    // JpegDecoder.cpp: the parser's loop.
    JpegStatus ParseStream(Mode eMode);
    JpegStatus HandleMarker(Mode eMode, bool& bStop);
    JpegStatus HandleScan(Mode eMode, bool& bStop);

    // JpegProgressive.cpp: scans of a progressive frame, and its picture.
    bool IsDcScan() const;
    bool IsRasterScan() const;
    bool IsPictureComplete() const;
    JpegStatus PrepareProgressiveScan();
    JpegStatus CheckScanTables();
    JpegStatus AllocateCoefficients();
    bool ClearsStore() const;
    void ClearStore();
    std::int16_t* McuRowCoefficients(std::int32_t nMcuRow) const;
    JpegStatus DecodeProgressiveScan();
    JpegStatus DecodeRasterScan();
    JpegStatus DecodeRasterRow(CJPEGColorComponent& component, const IppProgressiveRow& row,
                               std::int32_t nCols);
    JpegStatus DecodeInterleavedScan();
    JpegStatus DecodeInterleavedMcu(std::int16_t* pBlock);
    IppProgressiveMcus LayOutDcScan() const;
    JpegStatus RestartWhereDue();
    JpegStatus DecodeScanBlock(CJPEGColorComponent& component, std::int16_t* pBlock);
    JpegStatus KeepQuantTables();
    const CJPEGDecoderQuantTable* QuantTable(std::int32_t nComponent) const;
    JpegStatus FinishProgressive(JpegStatus eParsed);
    JpegStatus PaintPicture();
    void PaintMcus(std::int32_t nMcuRow, std::int32_t nFirst, std::int32_t nEnd);

    // JpegScan.cpp: work memory and entropy-coded data.
    JpegStatus PrepareScan();
    JpegStatus CheckTables();
    JpegStatus AllocateWorkMemory();
    JpegStatus AllocateRowBuffers(bool bAll);
    JpegStatus AllocateComponentBuffers(CJPEGColorComponent& component, bool bChroma);
    bool AllocateBlockBuffer();
    JpegStatus ProcessRestart();

    // JpegMcuRow.cpp: sequential scans.
    JpegStatus DecodeSequentialScan();
    JpegStatus DecodeMcuRow(std::int32_t nMcuRow);
    std::int32_t DecodeRun(std::int32_t nFirst, std::int32_t nMcus);
    JpegStatus DecodeMcu(std::int16_t* pBlock);
    void LayOutMcus(std::int32_t nMcuRow, bool bDirect);
    void ReconstructLaidOut(const std::int16_t* pBlock, std::int32_t nFirst, std::int32_t nEnd);
    std::int32_t DirectColumns(std::int32_t nMcuRow) const;
    SampleRows RowsOf(std::int32_t nComponent, std::int32_t nMcuRow, bool bDirect) const;
    bool RepeatKept(std::int32_t nMcuRow, const EntropyPosition& previous, const EntropyPosition& start);
    JpegStatus KeepLastRow(const EntropyPosition& start);
    EntropyPosition CurrentPosition() const;
    void GoTo(const EntropyPosition& position);

    // JpegOutput.cpp: from coefficients to the destination.
    SampleRows BufferRows(std::int32_t nComponent) const;
    JpegStatus UpsampleMcuRow();
    JpegStatus ConvertMcuRow(std::int32_t nMcuRow);
    JpegStatus CopyLuma(std::uint8_t* pPlane, std::int64_t nStep, std::int32_t nMcuRow) const;
    JpegStatus WriteChroma(std::int32_t nComponent, std::uint8_t* pPlane, std::int64_t nStep,
                           std::int32_t nMcuRow) const;

    // JpegConvert.cpp: the pairs of colours, and interleaved pixels.
    const ColorPair* FindColorPair(bool& bColorsKnown) const;
    JpegStatus ChooseConversion(Conversion& eConversion);
    JpegStatus ConvertPixels(std::int32_t nMcuRow);
    JpegStatus WritePixels(const std::uint8_t* const (&apPlanes)[kJpegMaxComponents], std::int32_t nTop,
                           std::int32_t nRows) const;
    std::uint8_t* SeamLine(std::int32_t nComponent) const;
    JpegStatus UpsampleAcrossRows(std::int32_t nMcuRow);

    // A component at full resolution in the stream: its samples need no upsampling.
    bool IsFullResolution(std::int32_t nComponent) const {
        return HorizontalFactor(m_eJpegSampling, nComponent) == 1;
    }
    // A component whose samples may be reconstructed right in the destination's plane.
    bool HasPlaneResolution(std::int32_t nComponent) const {
        return nComponent == 0 || m_eJpegSampling == JS_420;
    }
    // Row of a sequential chroma component's m_pSsBuffer: one spare sample at each end.
    std::int32_t SsStep() const { return (m_nCcWidth >> 1) + 2; }

    Conversion m_eConversion = Conversion::None;
    const PixelConversion* m_pPixels = nullptr; // of Conversion::Pixels
    std::int32_t m_nScans = 0;
    std::uint32_t m_nScanComponents = 0; // bit i: the scan at hand names component i
    std::uint32_t m_nDcDone = 0;         // bit i: component i has had its last DC scan
    bool m_bPicturePending = false;      // progressive: the destination lacks what the last scans added
    bool m_bPictureWritten = false;      // all of the destination, by one scan or more

    // Work memory. Members go in reverse order: tables last in this list are deleted first.
    IppTablePtr<ippiDecodeHuffmanState> m_pHuffmanState;
    IppBuffer<std::int16_t> m_pBlockBuffer;  // coefficients of one MCU row, sequential and damaged only
    IppBuffer<std::int16_t> m_pCoefficients; // of the whole picture, progressive only
    IppBuffer<std::uint64_t> m_pMasks;       // of its blocks: the coefficients that are not zero
    std::int32_t m_nBlocksPerMcu = 0;
    IppBuffer<std::uint8_t> m_pSeam; // lines between two MCU rows, for 4:2:0 into pixels
    bool m_bStoreCleared = false;
    IppBitWindow m_window;
    IppMcuRow m_mcuRow{};           // keeps coefficients from the first damage on
    std::int32_t m_nDirectCols = 0; // MCU columns of the row at hand that are in the destination already

    // Table sets. They are part of the decoder: objects of the heap would cost a picture that comes after a
    // pause, when the allocator's memory is out of the caches, as much as reading its header.
    //
    // Those of a scan, by component: tables which other decoders may be using as well.
    std::shared_ptr<const CJPEGDecoderLookup> m_apDcLookup[kJpegMaxComponents];
    std::shared_ptr<const CJPEGDecoderLookup> m_apAcLookup[kJpegMaxComponents];
    std::optional<CJPEGColorComponent> m_apComponents[kJpegMaxComponents];
    std::optional<CJPEGDecoderHuffmanTable> m_apAcHuffman[4];
    std::optional<CJPEGDecoderHuffmanTable> m_apDcHuffman[4];
    std::optional<CJPEGDecoderQuantTable> m_apQuant[4];
    // Progressive: what the picture is painted with where the slot holds a later table by then.
    std::optional<CJPEGDecoderQuantTable> m_apKeptQuant[4];
};
