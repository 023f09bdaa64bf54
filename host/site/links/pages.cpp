#include "host/site/links/pages.h"

#include <algorithm>

#include "host/http/basic.h"
#include "host/site/links/qr_code.h"
#include "host/site/mobile/content.h"
#include "host/site/monitor/report.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::string_view kLinks = "/links";
constexpr std::string_view kGet = "/get/";
constexpr std::string_view kCameraQuery = "camera=";
constexpr std::string_view kArchive = "/Sendora.jar";
constexpr std::string_view kArchiveType = "application/java-archive";
constexpr std::string_view kDescriptor = "/Sendora.jad";
constexpr std::string_view kContent = "mobile";

Answer Unstored(Answer answer) {
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

Answer Gone() {
    return Unstored(Answer::Text(410,
                                 "This link was used, was revoked or is too old. A new one is to be had on "
                                 "the live page, beside the camera."));
}

// The midlet is called like its camera where the name is plain; the component takes the query as it stands.
std::string MidletName(const std::string& camera) {
    const bool plain = camera.size() <= 32 && std::ranges::all_of(camera, [](char c) {
                           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
                       });
    return plain ? camera : "Sendora";
}

Answer MakeLink(const Request& request, const Services& services) {
    const auto camera = request.query.starts_with(kCameraQuery)
                            ? PercentDecode(std::string_view(request.query).substr(kCameraQuery.size()))
                            : std::nullopt;
    if (!camera || !services.authenticator.CameraPassword(*camera))
        return Answer::Text(404, "There is no camera of that name that has a password.");
    const auto link = services.links->Make(*camera);
    if (!link)
        return Answer::Text(503, "There are too many links; the oldest end within minutes.");
    const std::string address = AddressOf(*link, request.Host(), services);
    const auto code = QrCode::Of(address);
    Answer answer;
    answer.status = 201;
    answer.type = "application/json";
    answer.body = "{\"url\":" + JsonString(address) + ",\"token\":" + JsonString(link->token) +
                  ",\"seconds\":" + std::to_string(std::chrono::seconds(LinkTable::kLifetime).count()) +
                  ",\"svg\":" + JsonString(code ? code->Svg() : "") + "}\n";
    return answer;
}

Answer RevokeLink(const Request& request, const Services& services) {
    const std::string_view path = request.path;
    // One that was used or is too old is as good as revoked, so whoever tidies up need not know.
    (void)services.links->Revoke(path.substr(std::min(kLinks.size() + 1, path.size())));
    return Answer::Text(200, "The link is no longer good.");
}

Answer LandingPage(const LinkTable::Link& link) {
    const auto left = std::chrono::ceil<std::chrono::minutes>(link.until - Clock::now()).count();
    const std::string name = EscapeHtml(link.camera);
    const std::string base = std::string(kGet) + link.token;
    Answer answer;
    answer.type = "text/html; charset=utf-8";
    answer.body = "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\">"
                  "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                  "<meta name=\"robots\" content=\"noindex\"><title>" +
                  name + "</title></head>\n<body>\n<h1>" + name + "</h1>\n<p>This phone becomes the camera " +
                  name + ".</p>\n<p><b><a href=\"" + base + std::string(kArchive) +
                  "\">Install</a></b></p>\n<p><a href=\"" + base + std::string(kDescriptor) +
                  "\">Descriptor</a>, for phones that ask for one first</p>\n<p>The link is good once, for " +
                  std::to_string(left) + " more minutes. Nobody else should have it.</p>\n</body>\n</html>\n";
    return answer;
}

// The component's answer to a phone that would sign in as the camera.
Answer ContentAnswer(const LinkTable::Link& link, std::string_view file, const Request& asked,
                     const Services& services) {
    const auto password = services.authenticator.CameraPassword(link.camera);
    const auto handler = services.handlers.HandlerOf(platform::FromUtf8(kContent));
    if (!password || !handler)
        return Gone();
    std::string head = "GET /" + std::string(kContent) + std::string(file) +
                       "?JarName=" + MidletName(link.camera) +
                       " HTTP/1.1\r\nHost: " + std::string(asked.Host()) +
                       "\r\nAuthorization: " + BasicAuthorization({link.camera, *password}) + "\r\n\r\n";
    const auto request = ParseRequest(std::move(head)).request;
    return request ? HandlerAnswer(*request, *handler) : Gone();
}

} // namespace

bool IsLinksPath(std::string_view path) noexcept {
    return path == kLinks || (path.starts_with(kLinks) && path[kLinks.size()] == '/');
}

Answer LinksAnswer(const Request& request, const Services& services) {
    if (request.hasBody)
        return Answer::Text(413, "A link is asked for without a body.");
    if (request.path == kLinks && request.method == "POST")
        return Unstored(MakeLink(request, services));
    if (request.path != kLinks && request.method == "DELETE")
        return Unstored(RevokeLink(request, services));
    Answer answer = Answer::Text(405, "Links are made with POST and revoked with DELETE.");
    answer.headers["Allow"] = request.path == kLinks ? "POST" : "DELETE";
    return answer;
}

bool IsGetPath(std::string_view path) noexcept {
    return path.starts_with(kGet);
}

GetReply GetAnswer(const Request& request, const Services& services) {
    const std::string_view rest = std::string_view(request.path).substr(kGet.size());
    const std::string_view token = rest.substr(0, rest.find('/'));
    const std::string_view file = rest.substr(token.size());
    const auto link = services.links->Find(token);
    if (!link || !services.authenticator.CameraPassword(link->camera))
        return {Gone()};
    if (file.empty())
        return {Unstored(LandingPage(*link))};
    if (file == kDescriptor) {
        Answer answer = ContentAnswer(*link, file, request, services);
        // The archive comes by this link, not by what it was made of.
        if (const auto at = answer.body.find("MIDlet-Jar-URL: "); at != std::string::npos) {
            const auto end = answer.body.find("\r\n", at);
            answer.body.replace(at + 16, end - at - 16,
                                AddressOf(*link, request.Host(), services) + std::string(kArchive));
        }
        return {std::move(answer)};
    }
    if (file != kArchive)
        return {Answer::Text(404, "There is nothing here.")};
    if (request.method == "HEAD")
        return {ContentAnswer(*link, file, request, services)};
    auto delivery = services.links->Use(token);
    if (!delivery)
        return {Gone()};
    Answer answer = ContentAnswer(*link, file, request, services);
    if (answer.status == 200 && answer.type == kArchiveType)
        return {std::move(answer), std::move(delivery)};
    // For a name or a password that its request cannot carry the component has a page, which installs
    // nothing.
    return {answer.status != 200 ? std::move(answer)
                                 : Answer::Text(500, "The server has no archive for this camera: its name or "
                                                     "its password has a sign that phones cannot send.")};
}

std::string AddressOf(const LinkTable::Link& link, std::string_view host, const Services& services) {
    const bool own = host.empty() || IsLoopbackHost(host);
    const std::string_view authority = own && !services.authority.empty() ? services.authority : host;
    // A request of an old phone may name no host; what it gets is meant from where it came.
    const std::string start = authority.empty() ? "" : "http://" + std::string(authority);
    return start + std::string(kGet) + link.token;
}

} // namespace host
