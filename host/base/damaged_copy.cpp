
#include <filesystem>

#include "host/base/start_error.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace host {
namespace {

// More of them than that, and something is wrong that copies do not help against.
constexpr int kMostCopies = 1000;

// A name that is free, or that of a copy with the same content, since the file stays until the first change.
std::string CopyName(const std::string& file, const std::string& content) {
    std::string name = file + ".damaged";
    std::error_code error;
    for (int number = 2; std::filesystem::exists(name, error); ++number) {
        if (platform::ReadWholeFile(name) == content)
            break;
        if (number > kMostCopies)
            throw StartError("there are too many copies of damaged settings beside " + file);
        name = file + ".damaged" + std::to_string(number);
    }
    return name;
}

} // namespace

std::string KeepDamagedCopy(const std::string& file, const std::string& content) {
    std::string copy = CopyName(file, content);
    if (FAILED(platform::ReplaceFile(copy, content)))
        throw StartError("the settings file " + file + " is damaged, and cannot be kept as " + copy + ": " +
                         platform::DescribeLastError());
    return copy;
}

} // namespace host
