#include "image/JpegSamples.h"

#include <algorithm>
#include <cstdlib>
#include <random>
#include <stdexcept>

#include <jpeglib.h>

namespace samples {
namespace {

// Only well-formed streams reach the library here: an error of it is an error of the test.
void Fatal(j_common_ptr pInfo) {
    pInfo->err->output_message(pInfo);
    std::abort();
}

void Silent(j_common_ptr /*pInfo*/, int /*nLevel*/) {}

jpeg_error_mgr* Errors(jpeg_error_mgr& errors) {
    jpeg_std_error(&errors);
    errors.error_exit = Fatal;
    errors.emit_message = Silent;
    return &errors;
}

// Gradients with steps across them and some noise, so that every block has a little of everything.
void PaintRow(std::vector<JSAMPLE>& row, int y, int nComponents, std::minstd_rand& random) {
    const int nWidth = static_cast<int>(row.size()) / nComponents;
    for (int x = 0; x < nWidth; ++x) {
        for (int c = 0; c < nComponents; ++c) {
            int n = 40 + (x * (3 + c) + y * (2 + 2 * c)) % 170 + static_cast<int>(random() % 24);
            if ((x / 11 + y / 7 + c) % 5 == 0)
                n = 255 - n;
            row[x * nComponents + c] = static_cast<JSAMPLE>(std::clamp(n, 0, 255));
        }
    }
}

void ChooseScans(jpeg_compress_struct& info, const Recipe& recipe, std::vector<jpeg_scan_info>& scans) {
    if (recipe.bProgressive)
        jpeg_simple_progression(&info);
    if (!recipe.bSeparateScans && recipe.script.empty())
        return;
    for (int c = 0; c < recipe.nComponents && recipe.script.empty(); ++c)
        scans.push_back({1, {c, 0, 0, 0}, 0, 63, 0, 0});
    for (const Scan& scan : recipe.script) {
        scans.push_back(
            {static_cast<int>(scan.components.size()), {}, scan.nSs, scan.nSe, scan.nAh, scan.nAl});
        std::copy(scan.components.begin(), scan.components.end(), scans.back().component_index);
    }
    info.scan_info = scans.data();
    info.num_scans = static_cast<int>(scans.size());
}

// A stream behind its header.
struct Reader {
    explicit Reader(const Bytes& jpeg) {
        info.err = Errors(errors);
        jpeg_create_decompress(&info);
        jpeg_mem_src(&info, jpeg.data(), jpeg.size());
        jpeg_read_header(&info, TRUE);
    }
    ~Reader() { jpeg_destroy_decompress(&info); }
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
};

} // namespace

std::string Recipe::Name() const {
    return std::to_string(nWidth) + "x" + std::to_string(nHeight) + "_c" + std::to_string(nComponents) + "_" +
           std::to_string(nH) + std::to_string(nV) + "_q" + std::to_string(nQuality) + "_r" +
           std::to_string(nRestartInterval) + (bOptimised ? "_opt" : "") + "_m" +
           std::to_string(static_cast<int>(eMarking));
}

Bytes Encode(const Recipe& recipe) {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = Errors(errors);
    jpeg_create_compress(&info);
    unsigned char* pOut = nullptr;
    unsigned long nOut = 0;
    jpeg_mem_dest(&info, &pOut, &nOut);
    info.image_width = static_cast<JDIMENSION>(recipe.nWidth);
    info.image_height = static_cast<JDIMENSION>(recipe.nHeight);
    info.input_components = recipe.nComponents;
    info.in_color_space = recipe.nComponents == 1   ? JCS_GRAYSCALE
                          : recipe.nComponents == 4 ? JCS_CMYK
                          : recipe.bRgb             ? JCS_RGB
                                                    : JCS_YCbCr;
    jpeg_set_defaults(&info);
    jpeg_set_colorspace(&info, info.in_color_space);
    info.comp_info[0].h_samp_factor = recipe.nH;
    info.comp_info[0].v_samp_factor = recipe.nV;
    for (int c = 1; c < recipe.nComponents; ++c) {
        info.comp_info[c].h_samp_factor = c == 3 ? recipe.nH : recipe.nOtherH;
        info.comp_info[c].v_samp_factor = c == 3 ? recipe.nV : recipe.nOtherV;
    }
    jpeg_set_quality(&info, recipe.nQuality, TRUE);
    info.restart_interval = static_cast<unsigned>(recipe.nRestartInterval);
    info.optimize_coding = recipe.bOptimised ? TRUE : FALSE;
    if (recipe.nComponents != 4 && !recipe.bRgb) {
        info.write_JFIF_header = recipe.eMarking == Marking::Jfif || recipe.eMarking == Marking::JfifAndAdobe;
        info.write_Adobe_marker =
            recipe.eMarking == Marking::Adobe || recipe.eMarking == Marking::JfifAndAdobe;
    }
    std::vector<jpeg_scan_info> scans;
    ChooseScans(info, recipe, scans);
    jpeg_start_compress(&info, TRUE);
    std::minstd_rand random(recipe.nSeed);
    std::vector<JSAMPLE> row(recipe.nWidth * recipe.nComponents);
    for (int y = 0; y < recipe.nHeight; ++y) {
        if (recipe.pPixels)
            std::copy_n(recipe.pPixels + row.size() * y, row.size(), row.begin());
        else
            PaintRow(row, y, recipe.nComponents, random);
        JSAMPROW pRow = row.data();
        jpeg_write_scanlines(&info, &pRow, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    Bytes jpeg(pOut, pOut + nOut);
    std::free(pOut);
    return jpeg;
}

std::vector<Plane> DecodeRaw(const Bytes& jpeg) {
    Reader reader(jpeg);
    jpeg_decompress_struct& info = reader.info;
    info.raw_data_out = TRUE;
    info.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&info);
    const int nCount = info.num_components;
    std::vector<Plane> planes(nCount);
    std::vector<std::vector<JSAMPROW>> rows(planes.size());
    std::vector<JSAMPARRAY> arrays(planes.size());
    const auto nMcuHeight = static_cast<JDIMENSION>(info.max_v_samp_factor * DCTSIZE);
    const int nMcuRows = static_cast<int>((info.output_height + nMcuHeight - 1) / nMcuHeight);
    for (std::size_t c = 0; c < planes.size(); ++c) {
        const jpeg_component_info& component = info.comp_info[c];
        planes[c].nWidth = static_cast<int>(component.width_in_blocks) * DCTSIZE;
        planes[c].nHeight = nMcuRows * component.v_samp_factor * DCTSIZE;
        planes[c].aSamples.resize(planes[c].nWidth * planes[c].nHeight);
        rows[c].resize(component.v_samp_factor * DCTSIZE);
    }
    for (int nMcuRow = 0; nMcuRow < nMcuRows; ++nMcuRow) {
        for (std::size_t c = 0; c < planes.size(); ++c) {
            for (std::size_t y = 0; y < rows[c].size(); ++y)
                rows[c][y] = planes[c].aSamples.data() + (nMcuRow * rows[c].size() + y) * planes[c].nWidth;
            arrays[c] = rows[c].data();
        }
        jpeg_read_raw_data(&info, arrays.data(), nMcuHeight);
    }
    jpeg_finish_decompress(&info);
    return planes;
}

std::vector<std::vector<Block>> ReadCoefficients(const Bytes& jpeg) {
    Reader reader(jpeg);
    jpeg_decompress_struct& info = reader.info;
    jvirt_barray_ptr* const pArrays = jpeg_read_coefficients(&info);
    std::vector<std::vector<Block>> components(info.num_components);
    const auto nMaxV = static_cast<JDIMENSION>(info.max_v_samp_factor * DCTSIZE);
    const auto nMaxH = static_cast<JDIMENSION>(info.max_h_samp_factor * DCTSIZE);
    for (std::size_t c = 0; c < components.size(); ++c) {
        // With those that fill up MCUs.
        const auto nV = static_cast<JDIMENSION>(info.comp_info[c].v_samp_factor);
        const auto nH = static_cast<JDIMENSION>(info.comp_info[c].h_samp_factor);
        const JDIMENSION nRows = (info.image_height + nMaxV - 1) / nMaxV * nV;
        const JDIMENSION nCols = (info.image_width + nMaxH - 1) / nMaxH * nH;
        for (JDIMENSION y = 0; y < nRows; ++y) {
            const JBLOCKARRAY pRow =
                info.mem->access_virt_barray(reinterpret_cast<j_common_ptr>(&info), pArrays[c], y, 1, FALSE);
            for (JDIMENSION x = 0; x < nCols; ++x)
                std::copy_n(pRow[0][x], 64, components[c].emplace_back().begin());
        }
    }
    jpeg_finish_decompress(&info);
    return components;
}

std::size_t FindMarker(const Bytes& jpeg, std::uint8_t nMarker) {
    std::size_t nAt = 2;
    while (nAt + 3 < jpeg.size() && jpeg[nAt] == 0xFF) {
        if (jpeg[nAt + 1] == nMarker)
            return nAt;
        nAt += 2 + (std::size_t{jpeg[nAt + 2]} << 8 | jpeg[nAt + 3]);
    }
    throw std::logic_error("the sample has no such marker");
}

Bytes Segment(std::uint8_t nMarker, const Bytes& content) {
    const std::size_t nLength = content.size() + 2;
    Bytes segment(4 + content.size());
    segment[0] = 0xFF;
    segment[1] = nMarker;
    segment[2] = static_cast<std::uint8_t>(nLength >> 8);
    segment[3] = static_cast<std::uint8_t>(nLength);
    std::copy(content.begin(), content.end(), segment.begin() + 4);
    return segment;
}

Bytes EndOfBandTable() {
    Bytes table(18);
    table[0] = 0x10;
    table[1] = 1;
    table[17] = 0xE0;
    return Segment(0xC4, table);
}

std::vector<Bytes> SegmentsOf(const Bytes& jpeg, std::uint8_t nMarker) {
    std::vector<Bytes> segments;
    for (std::size_t nAt = 2, nEnd = 0;; nAt = nEnd) {
        nEnd = nAt + 2 + (std::size_t{jpeg[nAt + 2]} << 8 | jpeg[nAt + 3]);
        if (jpeg[nAt + 1] == nMarker)
            segments.push_back(Part(jpeg, nAt, nEnd));
        if (jpeg[nAt + 1] == 0xDA)
            return segments;
    }
}

Bytes SegmentOf(const Bytes& jpeg, std::uint8_t nMarker) {
    return SegmentsOf(jpeg, nMarker).at(0);
}

void Remove(Bytes& jpeg, std::uint8_t nMarker) {
    for (const Bytes& segment : SegmentsOf(jpeg, nMarker)) {
        const auto from = jpeg.begin() + FindMarker(jpeg, nMarker);
        jpeg.erase(from, from + segment.size());
    }
}

Bytes DataOf(const Bytes& jpeg) {
    return Part(jpeg, FindMarker(jpeg, 0xDA) + SegmentOf(jpeg, 0xDA).size());
}

Bytes Part(const Bytes& bytes, std::size_t nFrom, std::size_t nTo) {
    return {bytes.begin() + nFrom, bytes.begin() + (std::min(nTo, bytes.size()))};
}

void Insert(Bytes& bytes, std::size_t nAt, const Bytes& piece) {
    bytes.insert(bytes.begin() + nAt, piece.begin(), piece.end());
}

Bytes Random(std::size_t n, unsigned nSeed) {
    std::minstd_rand random(nSeed);
    Bytes bytes(n);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random() >> 8); });
    return bytes;
}

} // namespace samples
