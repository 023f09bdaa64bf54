// Pages that need no script and no second file: for old phones, and for whoever was refused the files.
#pragma once

#include <string_view>

#include "host/http/answer.h"
#include "host/http/request.h"

namespace host {

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
