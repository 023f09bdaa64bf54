#include "host/site/live/pages.h"

#include "host/sources/source_table.h"

namespace host {
namespace {

Answer NoPicture(std::string_view line) {
    Answer answer = Answer::Text(503, line);
    answer.headers.emplace("Retry-After", "2");
    return answer;
}

} // namespace

FeedPtr LivePages::CameraOf(std::string_view encoded, const Rights& rights) const {
    const auto name = PercentDecode(encoded);
    return name && !name->empty() ? FindSeen(feeds, *name, rights) : nullptr;
}

Answer LivePages::Snapshot(std::string_view file, const Rights& rights) const {
    constexpr std::string_view kSuffix = ".jpg";
    const FeedPtr feed =
        file.ends_with(kSuffix) ? CameraOf(file.substr(0, file.size() - kSuffix.size()), rights) : nullptr;
    if (!feed)
        return Answer::Text(404, "There is no camera of that name.");
    const kit::PicturePtr picture = feed->Newest();
    if (!picture)
        return NoPicture("This camera has sent no picture yet.");
    if (Clock::now() - picture->Arrival() > limits.snapshotAge)
        return NoPicture("The last picture of this camera is too old to be called live.");
    Answer answer;
    answer.type = "image/jpeg";
    answer.body = picture->Jpeg();
    answer.headers["Cache-Control"] = "no-store";
    return answer.body.empty() ? NoPicture("This picture cannot be encoded.") : answer;
}

} // namespace host
