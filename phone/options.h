// Reading the command lines of `morrowstream-phone`.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "phone/upload.h"
#include "phone/view.h"

namespace phone {

// A command line that makes no sense, as one line for the person at the terminal.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

inline constexpr unsigned kMostPhones = 10000;

struct UploadCommand {
    UploadOptions upload; // with `phones`, `upload.login` is the prefix of the logins
    std::filesystem::path pictures;
    std::size_t split = kUsualSplit;
    unsigned phones = 0; // 0: one phone, whose login is taken as it is
    bool help = false;
};

struct ViewCommand {
    ViewOptions view;                 // its source is one of the following
    std::vector<std::string> sources; // viewer number i watches source i, going round
    unsigned viewers = 0;             // 0: one for each source
    bool help = false;
};

// "HOST:PORT" or "[IPv6]:PORT". Throws UsageError.
ServerAddress ParseServer(std::string_view text);

// `arguments` stand behind the sub-command. Throws UsageError.
UploadCommand ParseUpload(std::span<const std::string_view> arguments);
ViewCommand ParseView(std::span<const std::string_view> arguments);

// What the sub-commands share: each option has a value, which goes to its place in the table. False when help
// is asked for. Throws UsageError for an unknown option or a missing value.
using OptionTable = std::map<std::string_view, std::function<void(std::string_view)>>;
bool ReadOptions(std::span<const std::string_view> arguments, const OptionTable& options);
// Throws UsageError for a login that no credentials can hold.
void CheckLogin(std::string_view login);

// The login of phone `number` (from 1) of many: the prefix and the number with at least four digits.
std::string NumberedLogin(std::string_view prefix, unsigned number);

} // namespace phone
