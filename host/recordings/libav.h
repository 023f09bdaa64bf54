// libavformat, loaded when the first file is written or read: it brings 130 libraries and 24 MB of memory
// along, and takes a tenth of a second to start, which a host that records nothing is spared.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

namespace host {

// Each member is the function of its name.
struct LibAv {
#define MORROW_LIBAV_FUNCTIONS(X)                                                                            \
    X(av_dict_free)                                                                                          \
    X(av_dict_get)                                                                                           \
    X(av_dict_set)                                                                                           \
    X(av_find_input_format)                                                                                  \
    X(av_free)                                                                                               \
    X(av_log_set_level)                                                                                      \
    X(av_malloc)                                                                                             \
    X(av_packet_alloc)                                                                                       \
    X(av_packet_free)                                                                                        \
    X(av_packet_unref)                                                                                       \
    X(av_read_frame)                                                                                         \
    X(av_seek_frame)                                                                                         \
    X(av_write_frame)                                                                                        \
    X(av_write_trailer)                                                                                      \
    X(avformat_alloc_context)                                                                                \
    X(avformat_alloc_output_context2)                                                                        \
    X(avformat_close_input)                                                                                  \
    X(avformat_free_context)                                                                                 \
    X(avformat_new_stream)                                                                                   \
    X(avformat_open_input)                                                                                   \
    X(avformat_write_header)                                                                                 \
    X(avio_alloc_context)                                                                                    \
    X(avio_context_free)                                                                                     \
    X(avio_flush)
#define MORROW_LIBAV_MEMBER(name) decltype(&::name) name = nullptr;
    MORROW_LIBAV_FUNCTIONS(MORROW_LIBAV_MEMBER)
#undef MORROW_LIBAV_MEMBER

    // Any thread. Throws RecordingError where the library is not installed.
    static const LibAv& Get();
};

} // namespace host
