#include "host/site/links/pages.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "host/html/page.h"
#include "host/html/texts.h"
#include "host/http/request.h"
#include "host/site/links/qr_code.h"

namespace host {
namespace {

constexpr std::string_view kLinkPath = "/get/";
// The token stands in the fragment, which is in no request and so in nobody's log.
constexpr std::string_view kPhonePath = "/phone#";
constexpr std::string_view kArchive = "/Sendora.jar";
constexpr std::string_view kMidletType = "application/java-archive";
constexpr std::string_view kDescriptor = "/Sendora.jad";

Answer Unstored(Answer answer) {
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

Answer Gone() {
    return Unstored(Answer::Text(410,
                                 "This link was used, was revoked or is too old. A new one is to be had on "
                                 "the live page, behind a button of the camera."));
}

// The midlet is called like its camera where the name is plain; the component takes the query as it stands.
std::string MidletName(const std::string& camera) {
    const bool plain = camera.size() <= 32 && std::ranges::all_of(camera, [](char c) {
                           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
                       });
    return plain ? camera : "Sendora";
}

Answer LandingPage(const LinkTable::Link& link, std::string_view language) {
    const auto left = std::chrono::ceil<std::chrono::minutes>(link.until - Clock::now()).count();
    const std::string name = EscapeHtml(link.camera);
    const std::string base = std::string(kLinkPath) + link.token;
    const std::string body =
        "<h1>" + name + "</h1>\n<p>" + TextOf(language, Word::PhoneBecomes, name) +
        "</p>\n<p><a class=\"action\" href=\"" + base + std::string(kArchive) + "\">" +
        std::string(TextOf(language, Word::Install)) + "</a></p>\n<p><a href=\"" + base +
        std::string(kDescriptor) + "\">" + std::string(TextOf(language, Word::Descriptor)) +
        "</a></p>\n<p class=\"note\">" + TextOf(language, Word::GoodOnce, std::to_string(left)) + "</p>\n";
    return AnswerOf({.language = language,
                     .title = name,
                     .head = "<meta name=\"robots\" content=\"noindex\">\n",
                     .body = body});
}

} // namespace

std::optional<std::string> LinkPages::MakeAddress(const std::string& camera, std::string_view host) const {
    const auto link = m_links->Make(camera);
    return link ? std::optional(AddressOf(*link, host)) : std::nullopt;
}

Answer LinkPages::Make(const std::optional<std::string>& camera, const Request& request) const {
    if (!camera || !m_authenticator.CameraPassword(*camera))
        return Unstored(Answer::Text(404, "There is no camera of that name that has a password."));
    const auto link = m_links->Make(*camera);
    if (!link)
        return Unstored(Answer::Text(503, "There are too many links; the oldest end within minutes."));
    const std::string address = AddressOf(*link, request.Host(), request.secure);
    const std::string old = OldAddressOf(*link, request.Host());
    const auto svg = [](const std::string& text) {
        const auto code = QrCode::Of(text);
        return code ? code->Svg() : std::string();
    };
    return Answer::Json(201, {{"url", address},
                              {"svg", svg(address)},
                              {"oldUrl", old},
                              {"oldSvg", svg(old)},
                              {"token", link->token},
                              {"seconds", std::chrono::seconds(LinkTable::kLifetime).count()}});
}

Answer LinkPages::Revoke(std::string_view token) const {
    // A link that was used or is too old is as good as revoked, and needs no answer of its own.
    if (!m_links->Revoke(token))
        return Unstored(
            Answer::Text(503, "The link could not be revoked; it ends by itself within minutes."));
    return Unstored(Answer::Text(200, "The link is no longer good."));
}

std::optional<std::string> LinkPages::Spend(std::string_view token) const {
    auto delivery = m_links->Use(token);
    if (!delivery || !m_authenticator.CameraPassword(delivery->Camera()))
        return std::nullopt;
    delivery->Done();
    return delivery->Camera();
}

// The component's answer to a phone that would sign in as the camera.
Answer LinkPages::ContentFor(const LinkTable::Link& link, std::string_view file, const Request& asked) const {
    const auto password = m_authenticator.CameraPassword(link.camera);
    if (!password)
        return Gone();
    const auto request =
        RequestAs({link.camera, *password},
                  "/mobile" + std::string(file) + "?JarName=" + MidletName(link.camera), asked);
    return request ? m_content(*request, link.camera) : Gone();
}

LinkReply LinkPages::Use(const Request& request, std::string_view rest) const {
    const std::string_view token = rest.substr(0, rest.find('/'));
    const std::string_view file = rest.substr(token.size());
    const auto link = m_links->Find(token);
    if (!link || !m_authenticator.CameraPassword(link->camera))
        return {Gone()};
    if (file.empty())
        return {LandingPage(*link, LanguageOf(request.Field("Accept-Language"), m_language))};
    if (file == kDescriptor) {
        Answer answer = ContentFor(*link, file, request);
        // The archive comes by this link, not by what it was made of.
        if (const auto at = answer.body.find("MIDlet-Jar-URL: "); at != std::string::npos) {
            const auto end = answer.body.find("\r\n", at);
            answer.body.replace(at + 16, end - at - 16,
                                OldAddressOf(*link, request.Host()) + std::string(kArchive));
        }
        return {std::move(answer)};
    }
    if (file != kArchive)
        return {Answer::Text(404, "There is nothing here.")};
    if (request.method == "HEAD")
        return {ContentFor(*link, file, request)};
    auto delivery = m_links->Use(token);
    if (!delivery)
        return {Gone()};
    Answer answer = ContentFor(*link, file, request);
    if (answer.status == 200 && answer.type == kMidletType)
        return {std::move(answer), std::move(delivery)};
    // For a name or a password that its request cannot carry the component has a page, which installs
    // nothing.
    return {answer.status != 200 ? std::move(answer)
                                 : Answer::Text(500, "The server has no archive for this camera: its name or "
                                                     "its password has a sign that phones cannot send.")};
}

std::string_view LinkPages::AuthorityFor(std::string_view host) const {
    const bool own = host.empty() || IsLoopbackHost(host);
    return own && !m_authority.empty() ? m_authority : host;
}

std::string LinkPages::AddressOf(const LinkTable::Link& link, std::string_view host, bool secure) const {
    const std::string_view authority = AuthorityFor(host);
    // Browsers give pages the camera over https, and in clear on their own machine.
    const bool tls = secure || (m_tls && !IsLoopbackHost(authority));
    return (tls ? "https://" : "http://") + std::string(authority) + std::string(kPhonePath) + link.token;
}

std::string LinkPages::OldAddressOf(const LinkTable::Link& link, std::string_view host) const {
    const std::string_view authority = AuthorityFor(host);
    // A request of an old phone may name no host; what it gets is meant from where it came.
    const std::string start = authority.empty() ? "" : "http://" + std::string(authority);
    return start + std::string(kLinkPath) + link.token;
}

} // namespace host
