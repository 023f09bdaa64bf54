// The fallback JPEG engine: a record of properties, one call that reads, an init and a free.
//
// It takes what the primary decoder turns down: RGB streams with an Adobe marker, one scan a component, any
// sampling factors from 1 to 4, up to 255 components in a frame header. Huffman-coded frames with 8-bit
// samples alone, sequential and progressive (ITU-T T.81).
//
// Order of calls: ijlInit; JPGBytes and JPGSizeBytes; ijlRead with IJL_JBUFF_READPARAMS, which fills the
// fields that start with JPG; the fields that start with DIB; ijlRead with IJL_JBUFF_READWHOLEIMAGE; ijlFree,
// also after a read that failed. A read of the whole image alone will do for a caller who knows the size and
// sets JPGColor.
//
// Stream, image and comment buffer stay the caller's and live as long as a call that uses them; the engine's
// own memory hangs from the record, whose destructor frees what ijlFree has not. Any number of records may be
// in use at once, each on one thread at a time. Nothing throws.
#pragma once

#include "image/format/JpegSegments.h"
#include "image/kernels/Decode.h"
#include "image/kernels/Tables.h"

#include <cstdint>
#include <memory>
#include <vector>

enum IJL_COLOR : std::int32_t {
    IJL_RGB = 1,
    IJL_BGR = 2,
    IJL_YCBCR = 3,
    IJL_G = 4,
    IJL_RGBA_FPX = 5,
    IJL_YCBCRA_FPX = 6,
    IJL_OTHER = 255, // no colour model: components are copied as they are
};

// Modes of ijlRead: even values the file form, odd ones the buffer form. Only the two modes that the system
// uses are built; ijlRead answers IJL_INVALID_JPEG_PROPERTIES to all others, as it does to values that are no
// mode.
enum IJLIOTYPE : std::int32_t {
    IJL_SETUP = -1, // of a record that has not been read with
    IJL_JFILE_READPARAMS = 0,
    IJL_JBUFF_READPARAMS = 1, // parses to the first scan
    IJL_JFILE_READWHOLEIMAGE = 2,
    IJL_JBUFF_READWHOLEIMAGE = 3, // decodes everything into the image
    IJL_JFILE_READHEADER = 4,
    IJL_JBUFF_READHEADER = 5,
    IJL_JFILE_READENTROPY = 6,
    IJL_JBUFF_READENTROPY = 7,
    IJL_JFILE_READONEHALF = 14,
    IJL_JBUFF_READONEHALF = 15,
    IJL_JFILE_READONEQUARTER = 16,
    IJL_JBUFF_READONEQUARTER = 17,
    IJL_JFILE_READONEEIGHTH = 18,
    IJL_JBUFF_READONEEIGHTH = 19,
    IJL_JFILE_READTHUMBNAIL = 20,
    IJL_JBUFF_READTHUMBNAIL = 21,
};

enum [[nodiscard]] IJLERR : std::int32_t{
    IJL_OK = 0,
    IJL_UNSUPPORTED_SUBSAMPLING = -3, // a DIBSubsampling that is not allowed
    IJL_MEMORY_ERROR = -5,            // an allocation failed, or the picture needs more than is allowed
    IJL_BAD_HUFFMAN_TABLE = -6,       // a table segment that does not build, or has no slot
    IJL_BAD_QUANT_TABLE = -7,         // a quantisation segment with a precision, slot or length that is none
    IJL_INVALID_JPEG_PROPERTIES = -8, // the record failed the check, or does not suit the stream
    IJL_ERR_FILECLOSE = -9,           // file forms only
    IJL_INVALID_FILENAME = -10,       // file forms only
    IJL_ERR_COMP = -14,     // components: a count out of range, an unknown identifier, too many scans of one
    IJL_ERR_SOF = -15,      // a sampling factor of 0 or above 4; a header whose length is wrong
    IJL_ERR_DNL = -16,      // a width or height of 0 in the frame header
    IJL_ERR_NO_HUF = -17,   // a scan names a Huffman table that has not come
    IJL_ERR_NO_QUAN = -18,  // a component of a scan names a quantisation table that has not come
    IJL_ERR_NO_FRAME = -19, // a scan, or the end, with no frame header before it
    IJL_ERR_DATA = -21,     // the data ended, a length is below 2, or a scan header makes no sense
    IJL_FILE_ERROR = -23,   // file forms only
    IJL_INTERNAL_ERROR = -24,            // a kernel failed
    IJL_BAD_RST_MARKER = -25,            // no restart marker to be found where one is due
    IJL_THUMBNAIL_DIB_WRONG_COLOR = -27, // thumbnail forms only
    IJL_UNSUPPORTED_FRAME = -29, // another precision or frame type, a second frame, a size above the limits
    IJL_ERR_COM_BUFFER = -30,    // a comment longer than the buffer that the caller gave for it
};

// What record and working part both have, with the defaults that ijlInit sets.
struct IjlFields {
    std::uint8_t* DIBBytes = nullptr; // the image to fill: |DIBHeight| rows of DIBWidth pixels
    std::uint32_t DIBWidth = 0;       // 1 to 65535
    std::int32_t DIBHeight = 0;       // to 65535; negative: rows run bottom-up in memory
    std::uint32_t DIBPadBytes = 0;    // bytes between the end of a row's pixels and the next row
    std::uint32_t DIBChannels = 3;    // bytes a pixel, 1 to 255
    IJL_COLOR DIBColor = IJL_BGR;
    std::int32_t DIBSubsampling = 0; // 0, or 2 with IJL_YCBCR; a note that does not change the layout
    const char* JPGFile = nullptr;   // file forms only
    const std::uint8_t* JPGBytes = nullptr;
    std::int64_t JPGSizeBytes = 0;
    std::int32_t JPGWidth = 0; // from here on: found by ijlRead
    std::int32_t JPGHeight = 0;
    std::int32_t JPGChannels = 3;
    IJL_COLOR JPGColor = IJL_YCBCR;
    std::int32_t JPGSubsampling =
        1; // by the factors: 0 none, 1 4:2:0, 2 4:2:2, 3 and 4 with a fourth, 255 other
    std::int32_t JPGThumbWidth = 0; // of a JFIF thumbnail
    std::int32_t JPGThumbHeight = 0;
    std::int32_t cconversion_reqd = 1;
    std::int32_t upsampling_reqd = 1;
    std::int32_t jquality = 75; // of no use in reading
};

struct IjlQuantTable {
    bool bPresent = false;
    alignas(32) std::uint16_t aSteps[64] = {}; // natural order; both precisions of T.81 B.2.4.1
};

// A Huffman slot, with the bytes that it was built from: the same table again is not built again.
struct IjlHuffmanTable {
    std::uint8_t aBits[16] = {};
    std::uint8_t aValues[256] = {};
    IppTablePtr<ippiDecodeHuffmanSpec> pSpec; // null until the table has come
};

struct IjlComponent {
    std::int32_t nId = 0;
    std::int32_t nHSampling = 1; // 1 to 4
    std::int32_t nVSampling = 1;
    std::int32_t nQuantSelector = 0;
    std::int32_t nDcSelector = 0;
    std::int32_t nAcSelector = 0;
    std::int32_t nScans = 0; // scans that have coded it
    std::int32_t nCols = 0;  // its blocks, without those that only fill up MCUs
    std::int32_t nRows = 0;
    std::int64_t nFirstBlock = 0;  // where its blocks begin in the coefficient store
    std::int16_t nLastDc = 0;      // DC predictor
    std::uint16_t aSteps[64] = {}; // the quantiser that was in force at its first scan
};

// The working part. The fields up to DIBLineBytes are the interface's; behind them stands the parser's state.
struct JPEG_PROPERTIES_HEAD {
    IJLIOTYPE iotype = IJL_SETUP; // mode of the last read
    // Region of interest; a part of the picture cannot be asked for, and nothing looks at it.
    struct {
        std::int32_t left = 0, top = 0, right = 0, bottom = 0;
    } roi;
    std::int32_t dcttype = 1;         // at most 1
    std::int32_t fast_processing = 0; // number of the routine that made the pixels, 0 the general one
};

struct JPEG_PROPERTIES : JPEG_PROPERTIES_HEAD, IjlFields, JpegApplicationFields {
    std::int64_t DIBLineBytes = 0; // from one row's start to the next, negative for a negative DIBHeight

    // Room for the last comment before the frame header, if the caller wants it.
    char* jpeg_comment = nullptr;
    std::int32_t jpeg_comment_size = 0;   // of the room
    std::int32_t jpeg_comment_length = 0; // of what was found

    IjlQuantTable aQuant[4];
    IjlHuffmanTable aDc[4];
    IjlHuffmanTable aAc[4];
    std::vector<IjlComponent> components; // four at first; JPGChannels of them count
    std::int32_t nRestartInterval = 0;    // in MCUs, 0 for none
    std::int32_t nMcuWidth = 0;           // in samples of full resolution
    std::int32_t nMcuHeight = 0;
    std::int32_t nMcuCols = 0;
    std::int32_t nMcuRows = 0;
    IppTablePtr<ippiDecodeHuffmanState> pHuffmanState;
    std::int32_t nSrcSize = 0;
    std::int32_t nSrcPos = 0;
    std::int32_t nMarker = 0; // a marker that was found and not handled yet, 0 for none
    bool bFrameFound = false;
    bool bProgressive = false;
};

struct JPEG_CORE_PROPERTIES_HEAD {
    // Not 0: the values in jprops count, and those of the record are neither checked nor copied.
    std::int32_t UseJPEGPROPERTIES = 0;
};

struct JPEG_CORE_PROPERTIES : JPEG_CORE_PROPERTIES_HEAD, IjlFields {
    JPEG_PROPERTIES jprops;
};

// Sets the defaults and allocates bit reader and component records. IJL_MEMORY_ERROR with nothing kept, or
// IJL_INVALID_JPEG_PROPERTIES for no record.
IJLERR ijlInit(JPEG_CORE_PROPERTIES* pRecord) noexcept;

// Reads JPGBytes from its start. A failure leaves the record fit for ijlFree and for another read; rows of
// the image may have been written. Rows and columns that stream and image do not share are left alone.
IJLERR ijlRead(JPEG_CORE_PROPERTIES* pRecord, IJLIOTYPE eMode) noexcept;

// Releases all that ijlInit and the reads allocated. Nothing but ijlInit may be done with the record then.
IJLERR ijlFree(JPEG_CORE_PROPERTIES* pRecord) noexcept;
