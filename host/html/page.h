// Pages, and the files that the program carries for them within itself.
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

// A page that needs no script and no second file: for old phones, and for whoever was refused the files.
// Everything but the language is HTML already.
struct PlainPage {
    unsigned status = 200;
    std::string_view language{};
    std::string_view title{};
    std::string_view head{}; // besides the title
    std::string_view body{};
};
// The page in the house's style, in light and dark. No cache keeps it.
Answer AnswerOf(const PlainPage& page);

// A refusal as a page with a way back, for a client that prefers pages: browsers that go to an address do,
// their scripts and other programs do not. `usual`: the language of the server; `back`: where the page leads
// to. Any other answer stays as it is.
Answer ReadableRefusal(Answer answer, const Request& request, std::string_view usual, std::string_view back);

} // namespace host
