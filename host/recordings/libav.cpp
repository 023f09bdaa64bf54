#include "host/recordings/libav.h"

#include <string>

#include <dlfcn.h>

#include "host/recordings/recorded.h"

namespace host {
namespace {

LibAv LoadLibAv() {
    // The interface is that of the headers' major number.
    const std::string name = "libavformat.so." + std::to_string(LIBAVFORMAT_VERSION_MAJOR);
    void* const library = ::dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL); // stays
    if (library == nullptr)
        throw RecordingError("recording needs " + name + " (Debian: libavformat" +
                             std::to_string(LIBAVFORMAT_VERSION_MAJOR) + ")");
    LibAv functions;
    const auto find = [&]<typename Function>(const char* function, Function& member) {
        member = reinterpret_cast<Function>(::dlsym(library, function));
        if (member == nullptr)
            throw RecordingError(name + " has no " + function);
    };
#define MORROW_LIBAV_FIND(function) find(#function, functions.function);
    MORROW_LIBAV_FUNCTIONS(MORROW_LIBAV_FIND)
#undef MORROW_LIBAV_FIND
    // What goes wrong comes back as a status; a damaged file is no news for standard error.
    functions.av_log_set_level(AV_LOG_QUIET);
    return functions;
}

} // namespace

const LibAv& LibAv::Get() {
    static const LibAv functions = LoadLibAv(); // tried again by the next call where it throws
    return functions;
}

} // namespace host
