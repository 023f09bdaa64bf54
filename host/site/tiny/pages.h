// Pages for browsers without script: old phones, readers, watches.
//
//   /tiny                       what can be watched
//   /tiny/KEY?every=N&width=W   one source: a picture that comes anew every N seconds
//   /tiny/KEY/picture?width=W   the picture, made for that width by the frame packer
//
// N is 1, 2, 5, 10 or 60 (5), W is 96, 128, 176, 240 or 320 (176); anything else is the usual value. KEY is
// one percent-encoded segment. Pages speak the language that the browser asks for, else the server's.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "host/feed/feed_table.h"
#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/sources/source_table.h"
#include "kit/packer/frame_packer.h"

namespace host {

struct TinyPages {
    FeedTable& feeds;
    SourceTable& sources;
    kit::PackerCounters& packers;
    const std::chrono::milliseconds
        staleAfter;             // without a picture for so long a camera counts as having none
    const std::string language; // the server's

    // `rest` is what stands behind "/tiny/". Any thread.
    [[nodiscard]] Answer Page(const Request& request, std::string_view rest, const Rights& rights) const;
};

} // namespace host
