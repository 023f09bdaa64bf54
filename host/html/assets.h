// The files of the pages, which the program carries within itself.
#pragma once

#include <span>
#include <string_view>

#include "host/http/answer.h"
#include "host/http/request.h"

namespace host {

struct Asset {
    std::string_view name; // "live/app.js"
    std::string_view content;
};
// Generated from host/page when the program is built.
std::span<const Asset> Assets() noexcept;

// The content of a file that is there.
std::string_view AssetOf(std::string_view name) noexcept;
// A page in the language that the client prefers, `usual` where there are no texts in that: fills in what
// stands in braces in the file, "{account}" with the line of who has signed in, "{head}" with
// shared/head.html and "{lang}" with the code.
Answer PageAnswer(std::string_view name, const Request& request, std::string_view usual,
                  std::string_view account = {});
// 404 for a name that no file has.
Answer AssetAnswer(std::string_view name, const Request& request);

} // namespace host
