#include "host/settings/file.h"

#include <filesystem>
#include <optional>

#include "host/base/start_error.h"
#include "host/settings/document.h"
#include "platform/files.h"
#include "platform/text.h"

namespace host {
namespace {

// More of them than that, and something is wrong that copies do not help against.
constexpr int kMostCopies = 1000;

// A name that is free, or that of a copy with the same content, since the file stays until the first change.
std::string CopyName(const std::string& file, const std::optional<std::string>& content) {
    std::string name = file + ".damaged";
    std::error_code error;
    for (int number = 2; std::filesystem::exists(name, error); ++number) {
        if (content && platform::ReadWholeFile(name) == content)
            break;
        if (number > kMostCopies)
            throw StartError("there are too many copies of damaged settings beside " + file);
        name = file + ".damaged" + std::to_string(number);
    }
    return name;
}

} // namespace

std::string SettingsFile(const std::string& commonData) {
    return commonData + "/Norvane/Tessaron/Servers/Morrowstream.xml";
}

std::string PrepareSettingsFile(const std::string& file) {
    const std::string folder = std::filesystem::path(file).parent_path().string();
    if (FAILED(platform::CreateFolder(folder)))
        throw StartError("cannot make the folder " + folder);
    std::error_code error;
    if (!std::filesystem::exists(file, error) || std::filesystem::file_size(file, error) == 0)
        return {};
    if (SettingsDocument::IsDocumentFile(file))
        return {};
    const auto content = platform::ReadWholeFile(file);
    std::string copy = CopyName(file, content);
    if (!content || FAILED(platform::ReplaceFile(copy, *content)))
        throw StartError("the settings file " + file + " is damaged, and cannot be kept as " + copy);
    return copy;
}

} // namespace host
