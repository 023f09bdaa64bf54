// decode: a stream to a picture file.

#include "tools/jpeg/commands.h"
#include "tools/jpeg/engines.h"
#include "tools/jpeg/errors.h"
#include "tools/jpeg/files.h"
#include "tools/jpeg/picture.h"

namespace jpegtool {

int RunDecode(const Options& options) {
    const PictureFormat format = FormatOfName(options.output);
    const std::string& path = options.inputs[0];
    const Bytes stream = ReadFile(path);
    const auto outcome = Decode(stream, options.engine);
    if (const std::string* const reason = std::get_if<std::string>(&outcome))
        throw FileError(path + ": " + *reason);
    WritePicture(options.output, format, std::get<Picture>(outcome));
    return kExitDone;
}

} // namespace jpegtool
