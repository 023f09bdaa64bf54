#include "host/site/mobile/source_list.h"

#include <algorithm>
#include <string>
#include <vector>

namespace host {

bool IsSourceListPath(std::string_view path) noexcept {
    return path == "/xslt/enum/all";
}

Answer SourceListAnswer(const Request& request, const Services& services) {
    if (request.query != "xslt=cameras.xsl") {
        Answer answer = Answer::Text(302, "The sources are on the live page.");
        answer.headers["Location"] = "/";
        return answer;
    }
    Answer answer;
    answer.headers["Cache-Control"] = "no-store";
    std::vector<std::string> keys;
    for (const FeedPtr& feed : services.feeds.List())
        keys.push_back(feed->Name());
    if (services.sources) {
        for (std::string& key : services.sources->OwnKeys()) {
            // A camera of that name comes before it.
            if (std::ranges::find(keys, key) == keys.end())
                keys.push_back(std::move(key));
        }
    }
    for (const std::string& key : keys) {
        // A name that would break the list cannot be told in it, and a changed one would open nothing.
        if (key.find_first_of("\t\r\n") == std::string::npos)
            answer.body.append(key).append(1, '\t').append(key).append(1, '\n');
    }
    return answer;
}

} // namespace host
