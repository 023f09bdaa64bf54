#include "host/html/page.h"

#include <string>

#include "host/html/texts.h"
#include "host/http/request.h"

namespace host {

namespace {

// Pictures of this server, and no script.
constexpr std::string_view kPlainPolicy =
    "default-src 'none'; img-src 'self' data:; style-src 'unsafe-inline'; "
    "base-uri 'none'; form-action 'self'; frame-ancestors 'self'";

// In the page itself: who is not signed in gets no other file.
const std::string& Style() {
    static const std::string style = [] {
        std::string text;
        for (const std::string_view name : {"shared/colours.css", "plain/style.css"})
            text += AssetOf(name);
        return text;
    }();
    return style;
}

Word TitleOf(unsigned status) {
    static constexpr std::pair<unsigned, Word> titles[] = {
        {401, Word::SignIn},     {403, Word::NotForYou}, {404, Word::NothingHere},
        {405, Word::NotThisWay}, {408, Word::NotNow},    {410, Word::UsedUp},
        {426, Word::NotThisWay}, {503, Word::NotNow},    {429, Word::TooManyTries}};
    for (const auto& [known, title] : titles) {
        if (status == known)
            return title;
    }
    return status < 500 ? Word::NotUnderstood : Word::Failed;
}

bool MayWorkLater(unsigned status) {
    return status == 401 || status == 408 || status == 429 || status == 503;
}

std::string Link(std::string_view address, std::string_view text) {
    return "<p><a href=\"" + EscapeHtml(address) + "\">" + std::string(text) + "</a></p>\n";
}

std::string HeadOf(std::string_view language) {
    std::string head = "<!DOCTYPE html>\n<html lang=\"" + std::string(language) +
                       "\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                       "<meta name=\"color-scheme\" content=\"light dark\">\n"
                       "<link rel=\"icon\" href=\"data:,\">\n<style>";
    return head.append(Style()).append("</style>\n");
}

} // namespace

Answer AnswerOf(const PlainPage& page) {
    Answer answer;
    answer.status = page.status;
    answer.type = "text/html; charset=utf-8";
    answer.headers["Cache-Control"] = "no-store";
    answer.headers["Content-Language"] = page.language;
    answer.headers["Content-Security-Policy"] = kPlainPolicy;
    answer.headers["Vary"] = "Accept-Language";
    answer.body = HeadOf(page.language);
    answer.body.append(page.head)
        .append("<title>")
        .append(page.title)
        .append("</title>\n</head>\n<body>\n<main>\n");
    answer.body.append(page.body).append("</main>\n</body>\n</html>\n");
    return answer;
}

Answer ReadableRefusal(Answer answer, const Request& request, std::string_view usual, std::string_view back) {
    if (answer.refusal.empty() || !request.fields || !PrefersHtml(request.Field("Accept")))
        return answer;
    const std::string_view language = LanguageOf(request.Field("Accept-Language"), usual);
    const std::string_view title = TextOf(language, TitleOf(answer.status));
    std::string body = "<h1>" + std::string(title) + "</h1>\n";
    // The line tells the case, but is there in one language only.
    if (language == "en")
        body += "<p>" + EscapeHtml(answer.refusal) + "</p>\n";
    const bool again = MayWorkLater(answer.status) && (request.method == "GET" || request.method == "HEAD");
    if (again)
        body += Link(request.path + (request.query.empty() ? "" : "?" + request.query),
                     TextOf(language, Word::TryAgain));
    if (request.path != back)
        body += Link(back, TextOf(language, back == "/" ? Word::AllCameras : Word::ForPhones));
    Answer page = AnswerOf({.status = answer.status, .language = language, .title = title, .body = body});
    page.headers["Vary"] = "Accept, Accept-Language";
    page.headers.merge(answer.headers); // Allow, Retry-After, WWW-Authenticate
    return page;
}

} // namespace host
