#include "host/site/tiny/pages.h"

#include <algorithm>
#include <array>
#include <span>
#include <string>

#include "host/html/page.h"
#include "host/html/texts.h"
#include "host/http/request.h"
#include "host/sources/source_table.h"
#include "kit/packer/frame_packer.h"

namespace host {
namespace {

constexpr std::string_view kPicture = "/picture";
constexpr std::array kIntervals{1, 2, 5, 10, 60};
constexpr int kUsualInterval = 5;
constexpr std::array kWidths{96, 128, 176, 240, 320};
constexpr int kUsualWidth = 176;
constexpr int kSmallQuality = 50;

// Gives the choice that the query names, else the usual one.
int Choice(std::string_view query, std::string_view name, std::span<const int> choices, int usual) {
    const std::string_view text = QueryParameter(query, name);
    const auto chosen = std::ranges::find(choices, text, [](int choice) { return std::to_string(choice); });
    return chosen != choices.end() ? *chosen : usual;
}

std::string Text(std::string_view language, Word word) {
    return std::string(TextOf(language, word));
}

Answer ListPage(std::string_view language, const TinyPages& pages, const Rights& rights) {
    std::string items;
    const auto add = [&](const std::string& key, bool live) {
        items += "<li><a href=\"/tiny/" + PercentEncode(key) + "\">" + EscapeHtml(key) + "</a>";
        if (!live)
            items.append(" (").append(TextOf(language, Word::NoPicture)).append(")");
        items += "</li>";
    };
    for (const std::string& key : pages.sources.Keys(rights)) {
        const FeedPtr feed = FindSeen(pages.feeds, key, rights);
        const auto age = feed ? feed->Figures().age : std::optional(0.0);
        add(key, age && *age * 1000 < static_cast<double>(pages.staleAfter.count()));
    }
    const std::string list =
        items.empty() ? "<p>" + Text(language, Word::NothingToWatch) + "</p>" : "<ul>" + items + "</ul>";
    return AnswerOf({.language = language,
                     .title = TextOf(language, Word::Cameras),
                     .body = "<h1>" + Text(language, Word::Cameras) + "</h1>" + list});
}

// One row of links, the present choice without one.
std::string Choices(std::string_view label, std::span<const int> choices, int chosen, const auto& addressOf) {
    std::string row = "<p class=\"row\">" + std::string(label);
    for (const int choice : choices) {
        const std::string text = std::to_string(choice);
        row += choice == chosen ? " <b>" + text + "</b>"
                                : " <a href=\"" + addressOf(choice) + "\">" + text + "</a>";
    }
    return row + "</p>";
}

Answer SourcePage(std::string_view language, const Request& request, const std::string& key) {
    const int every = Choice(request.query, "every", kIntervals, kUsualInterval);
    const int width = Choice(request.query, "width", kWidths, kUsualWidth);
    const std::string path = "/tiny/" + PercentEncode(key);
    const auto address = [&](int seconds, int columns) {
        return path + "?every=" + std::to_string(seconds) + "&amp;width=" + std::to_string(columns);
    };
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    const std::string columns = std::to_string(width);
    // Old browsers keep a picture under its address, whatever they are told; each one has an address of its
    // own.
    std::string body = "<p><img src=\"" + path + std::string(kPicture) + "?width=" + columns +
                       "&amp;t=" + std::to_string(now.count()) + "\" width=\"" + columns + "\" height=\"" +
                       std::to_string(width * 3 / 4) + "\" alt=\"" + Text(language, Word::NoPicture) +
                       "\"></p>";
    body += "<h1>" + EscapeHtml(key) + "</h1>";
    body += Choices(TextOf(language, Word::RefreshSeconds), kIntervals, every,
                    [&](int seconds) { return address(seconds, width); });
    body += Choices(TextOf(language, Word::Size), kWidths, width,
                    [&](int chosen) { return address(every, chosen); });
    body += "<p><a href=\"/tiny\">" + Text(language, Word::AllCameras) + "</a></p>";
    const std::string refresh = "<meta http-equiv=\"refresh\" content=\"" + std::to_string(every) + "\">";
    return AnswerOf({.language = language, .title = EscapeHtml(key), .head = refresh, .body = body});
}

Answer PictureAnswer(const Request& request, kit::Source& source, const TinyPages& pages) {
    const kit::PicturePtr picture = source.Now();
    kit::PackerParameters wanted;
    wanted.width = Choice(request.query, "width", kWidths, kUsualWidth);
    wanted.height = wanted.width * 3 / 4;
    wanted.quality = kSmallQuality;
    kit::FramePacker packer(wanted, pages.packers);
    Answer answer;
    if (picture)
        answer.body = packer.Pack(kit::PlanesOf(*picture)).jpeg;
    if (answer.body.empty())
        return Answer::Text(503, "There is no picture now.");
    answer.type = "image/jpeg";
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

} // namespace

Answer TinyPages::Page(const Request& request, std::string_view rest, const Rights& rights) const {
    const std::string_view asked = LanguageOf(request.Field("Accept-Language"), language);
    if (rest.empty())
        return ListPage(asked, *this, rights);
    const bool picture = rest.ends_with(kPicture);
    if (picture)
        rest.remove_suffix(kPicture.size());
    const auto key = rest.find('/') == std::string_view::npos ? PercentDecode(rest) : std::nullopt;
    const kit::SourcePtr source = key ? sources.Open(*key, rights) : nullptr;
    if (!source) {
        const std::string body = "<p>" + Text(asked, Word::NoSuchCamera) + "</p><p><a href=\"/tiny\">" +
                                 Text(asked, Word::AllCameras) + "</a></p>";
        return AnswerOf(
            {.status = 404, .language = asked, .title = TextOf(asked, Word::NothingHere), .body = body});
    }
    return picture ? PictureAnswer(request, *source, *this) : SourcePage(asked, request, *key);
}

} // namespace host
