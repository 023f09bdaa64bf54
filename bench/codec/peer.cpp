#include "bench/codec/peer.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>

namespace bench {
namespace {

[[noreturn]] void Fatal(j_common_ptr info) {
    info->err->output_message(info);
    std::abort();
}

void Prepare(jpeg_error_mgr& errors) {
    jpeg_std_error(&errors);
    errors.error_exit = Fatal;
}

// The rows of one MCU row of every component, as the library takes them.
class RowLists {
public:
    template <typename PlanesType>
    JSAMPIMAGE Fill(PlanesType& planes, int mcuRow) {
        const int luma = VerticalFactor(planes.sampling) * DCTSIZE;
        for (std::size_t c = 0; c < planes.planes.size(); ++c) {
            const int rows = c == 0 ? luma : DCTSIZE;
            for (int y = 0; y < rows; ++y)
                m_rows[c][static_cast<std::size_t>(y)] =
                    const_cast<JSAMPROW>(planes.planes[c].Row(mcuRow * rows + y));
            m_arrays[c] = m_rows[c].data();
        }
        return m_arrays.data();
    }

private:
    std::array<std::array<JSAMPROW, 2 * DCTSIZE>, 3> m_rows{};
    std::array<JSAMPARRAY, 3> m_arrays{};
};

} // namespace

struct PeerDecoder::State {
    jpeg_decompress_struct info{};
    jpeg_error_mgr errors{};
    RowLists rows;
};

PeerDecoder::PeerDecoder() : m_state(std::make_unique<State>()) {
    Prepare(m_state->errors);
    m_state->info.err = &m_state->errors;
    jpeg_create_decompress(&m_state->info);
}

PeerDecoder::~PeerDecoder() {
    jpeg_destroy_decompress(&m_state->info);
}

void PeerDecoder::Decode(const Bytes& jpeg, Planes& planes) {
    jpeg_decompress_struct& info = m_state->info;
    jpeg_mem_src(&info, jpeg.data(), jpeg.size());
    jpeg_read_header(&info, TRUE);
    info.raw_data_out = TRUE;
    info.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&info);
    const int lines = VerticalFactor(planes.sampling) * DCTSIZE;
    const int mcuRows = planes.planes[0].rows / lines;
    for (int row = 0; row < mcuRows; ++row)
        jpeg_read_raw_data(&info, m_state->rows.Fill(planes, row), static_cast<JDIMENSION>(lines));
    jpeg_finish_decompress(&info);
}

struct PeerEncoder::State {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    RowLists rows;
    Bytes out;
};

PeerEncoder::PeerEncoder(Size size, Sampling sampling, int quality, bool progressive, PeerTransform transform)
    : m_state(std::make_unique<State>()) {
    Prepare(m_state->errors);
    jpeg_compress_struct& info = m_state->info;
    info.err = &m_state->errors;
    jpeg_create_compress(&info);
    info.image_width = static_cast<JDIMENSION>(size.width);
    info.image_height = static_cast<JDIMENSION>(size.height);
    info.input_components = Components(sampling);
    info.in_color_space = info.input_components == 1 ? JCS_GRAYSCALE : JCS_YCbCr;
    jpeg_set_defaults(&info);
    info.comp_info[0].h_samp_factor = HorizontalFactor(sampling);
    info.comp_info[0].v_samp_factor = VerticalFactor(sampling);
    jpeg_set_quality(&info, quality, TRUE);
    info.raw_data_in = TRUE;
    info.dct_method = transform == PeerTransform::Fast ? JDCT_IFAST : JDCT_ISLOW;
    if (progressive)
        jpeg_simple_progression(&info);
    // Enough for any stream: no coefficient takes more than four bytes.
    m_state->out.resize(
        static_cast<std::size_t>(size.width + 16) * static_cast<std::size_t>(size.height + 16) * 12 + 4096);
}

PeerEncoder::~PeerEncoder() {
    jpeg_destroy_compress(&m_state->info);
}

PeerEncoder::Stream PeerEncoder::Encode(const Planes& planes) {
    jpeg_compress_struct& info = m_state->info;
    unsigned char* out = m_state->out.data();
    unsigned long bytes = m_state->out.size();
    jpeg_mem_dest(&info, &out, &bytes);
    jpeg_start_compress(&info, TRUE);
    const int lines = VerticalFactor(planes.sampling) * DCTSIZE;
    const int mcuRows = planes.planes[0].rows / lines;
    for (int row = 0; row < mcuRows; ++row)
        jpeg_write_raw_data(&info, m_state->rows.Fill(planes, row), static_cast<JDIMENSION>(lines));
    jpeg_finish_compress(&info);
    return {out, bytes};
}

} // namespace bench
