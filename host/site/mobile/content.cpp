#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "host/html/page.h"
#include "host/html/texts.h"
#include "host/http/request.h"
#include "host/site/mobile/pages.h"
#include "platform/text.h"

namespace host {
namespace {

using platform::Bstr;

// The page for phones, as it names its sheet.
constexpr std::string_view kPhonePageSheet = "/mobile/mobile.xsl";
constexpr std::string_view kXml = "text/xml";
constexpr std::string_view kArchiveType = "application/java-archive";
constexpr std::string_view kArchiveSuffix = ".jar";
constexpr std::string_view kDescriptorSuffix = ".jad";
constexpr std::size_t kLongestName = 100;
// The page's boxes are drawn by attributes of its elements. Its style sheet is this server's.
constexpr std::string_view kPagePolicy =
    "default-src 'self'; style-src 'self' 'unsafe-inline'; object-src 'none'; "
    "base-uri 'none'; form-action 'self'; frame-ancestors 'self'";

// The result of a handler's call.
struct Reply {
    HRESULT result = S_OK;
    std::string body;
    std::string type;
};

// Reads the last content-type line of the head that a handler gives.
std::string LastContentType(std::string_view head) {
    constexpr std::string_view kName = "content-type:";
    std::string_view type;
    while (!head.empty()) {
        const std::string_view line = head.substr(0, head.find('\n'));
        head.remove_prefix(std::min(line.size() + 1, head.size()));
        if (platform::EqualsIgnoringCase(line.substr(0, kName.size()), kName))
            type = line.substr(kName.size());
    }
    while (!type.empty() && (type.back() == '\r' || type.back() == ' ' || type.back() == '\t'))
        type.remove_suffix(1);
    while (!type.empty() && (type.front() == ' ' || type.front() == '\t'))
        type.remove_prefix(1);
    const bool control =
        std::ranges::any_of(type, [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; });
    return type.empty() || control ? "application/octet-stream" : std::string(type);
}

// `target`: path and query without the first "/".
Reply Call(IWebHandler& handler, const std::string& target, const std::string& requestHead) {
    Bstr body;
    // The handler replaces the head without freeing the one that it was given.
    const Bstr givenHead(platform::ToWide(requestHead));
    BSTR rawHead = givenHead.Get();
    Reply reply;
    reply.result = handler.Request(platform::FromUtf8(target).c_str(), body.Receive(), &rawHead);
    const Bstr head = rawHead == givenHead.Get() ? Bstr() : Bstr::Adopt(rawHead);
    if (FAILED(reply.result))
        return reply;
    reply.body = body.Bytes();
    reply.type = LastContentType(platform::ToNarrow(head.View()));
    if (reply.type == kXml) {
        // A document starts with "<", so a zero behind it tells a text of two bytes a unit (XML 1.0, F.1).
        if (reply.body.size() >= 2 && reply.body[1] == '\0')
            reply.body = platform::ToUtf8(body.View());
        else if (reply.body.ends_with('\0'))
            reply.body.pop_back();
    }
    return reply;
}

Answer FailureAnswer(HRESULT hr) {
    switch (hr) {
    case E_NOTIMPL:
        return Answer::Text(501, "The server has nothing that answers this.");
    case E_INVALIDARG:
        return Answer::Text(400, "This is no request that the server understands.");
    case E_ACCESSDENIED:
        return Answer::Text(403, "This is for the name and the password of a camera of this server.");
    case E_ELEMENT_NOT_FOUND:
        return Answer::Text(404, "There is nothing here.");
    default:
        return Answer::Text(500, "The server could not make this; its log says why.");
    }
}

std::string TargetOf(const Request& request) {
    return request.path.substr(1) + (request.query.empty() ? "" : "?" + request.query);
}

// A name for the file that a browser stores: plain letters for all, the whole name for those that know the
// extended form (RFC 6266, RFC 8187).
std::string Attachment(const Request& request) {
    std::string name = PercentDecode(QueryParameter(request.query, "JarName")).value_or("");
    const bool usable = !name.empty() && name.size() <= kLongestName &&
                        std::ranges::none_of(name, [](char c) { return static_cast<unsigned char>(c) < 32; });
    if (!usable) {
        name = request.path.substr(request.path.rfind('/') + 1);
        name.resize(name.size() - kArchiveSuffix.size());
    }
    std::string plain = name;
    for (char& c : plain) {
        const bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                          c == ' ' || c == '-' || c == '_';
        c = safe ? c : '_';
    }
    std::string value = "attachment; filename=\"" + plain + ".jar\"";
    if (plain != name)
        value += "; filename*=UTF-8''" + PercentEncode(name) + ".jar";
    return value;
}

Answer ArchiveAnswer(const Request& request, Reply reply) {
    // The component gives what its template is; without one there is nothing to install.
    if (reply.body.empty())
        return Answer::Text(500, "The server has no archive to give.");
    Answer answer;
    answer.headers["Content-Disposition"] = Attachment(request);
    answer.type = std::move(reply.type);
    answer.body = std::move(reply.body);
    return answer;
}

// The page as the sheet has it; nothing when the sheet does not come or does not fit, so that the client gets
// the page as it is.
std::optional<std::string> AsHtml(const Request& request, IWebHandler& handler, const std::string& page,
                                  const std::string& sheetPath) {
    // A sheet of the same handler, "/mobile/...", and nothing else.
    const std::string root = request.path.substr(0, request.path.find('/', 1)) + "/";
    if (!sheetPath.starts_with(root))
        return std::nullopt;
    const Reply sheet = Call(handler, sheetPath.substr(1), request.head);
    return SUCCEEDED(sheet.result) ? ApplyStyleSheet(page, sheet.body) : std::nullopt;
}

// For whom the page for phones is.
struct Reader {
    std::string_view language; // of the server
    bool looks;                // may look at the cameras in a browser
};

// The component's page for phones in this server's style and words. Its own have a language that is the whole
// server's, and gaps in some.
std::optional<Answer> PhonePage(const Request& request, const std::string& document, const Reader& reader) {
    const std::string_view language = LanguageOf(request.Field("Accept-Language"), reader.language);
    const auto text = [&](Word word) { return std::string(TextOf(language, word)); };
    const auto body = ApplyStyleSheet(document, std::string(AssetOf("plain/mobile.xsl")),
                                      {{"title", text(Word::ForPhones)},
                                       {"view", text(Word::ViewOnPhone)},
                                       {"send", text(Word::SendFromPhone)},
                                       {"name", text(Word::MidletName)},
                                       {"download", text(Word::Download)},
                                       {"cameras", reader.looks ? text(Word::AllCameras) : ""}});
    if (!body)
        return std::nullopt;
    Answer answer = AnswerOf(PlainPage{.language = language, .title = text(Word::ForPhones), .body = *body});
    answer.headers["Vary"] = "Accept, Accept-Language";
    return answer;
}

Answer TextAnswer(const Request& request, IWebHandler& handler, Reply reply, const Reader& reader) {
    Answer answer;
    answer.type = reply.type + "; charset=utf-8";
    const std::string sheet = StyleSheetOf(reply.body);
    const bool html = !sheet.empty() && PrefersHtml(request.Field("Accept"));
    if (html && sheet == kPhonePageSheet) {
        if (auto page = PhonePage(request, reply.body, reader))
            return std::move(*page);
    }
    if (!sheet.empty()) {
        answer.headers["Vary"] = "Accept";
        answer.headers["Content-Security-Policy"] = kPagePolicy;
        if (auto page = html ? AsHtml(request, handler, reply.body, sheet) : std::nullopt) {
            answer.type = "text/html; charset=utf-8";
            answer.body = std::move(*page);
            return answer;
        }
    }
    answer.body = std::move(reply.body);
    return answer;
}

// A phone asks for the descriptor first and for the archive then, and refuses one of another size. Both are
// made of the same request, so they agree.
Answer DescriptorAnswer(const Request& request, IWebHandler& handler) {
    Request archive = request;
    archive.path.replace(archive.path.size() - kArchiveSuffix.size(), std::string::npos, kArchiveSuffix);
    const Reply reply = Call(handler, TargetOf(archive), request.head);
    if (FAILED(reply.result))
        return FailureAnswer(reply.result);
    if (reply.type != kArchiveType)
        return Answer::Text(404, "There is nothing here.");
    std::string url = request.Host().empty()
                          ? "/"
                          : (request.secure ? "https://" : "http://") + std::string(request.Host()) + "/";
    const auto text = DescribeArchive(reply.body, url += TargetOf(archive));
    if (!text)
        return Answer::Text(400, "A descriptor tells the midlet's name: add ?JarName=NAME.");
    Answer answer;
    answer.type = "text/vnd.sun.j2me.app-descriptor; charset=utf-8";
    answer.body = *text;
    return answer;
}

Answer ContentOf(const Request& request, IWebHandler& handler, const Reader& reader) {
    if (request.path.ends_with(kDescriptorSuffix))
        return DescriptorAnswer(request, handler);
    Reply reply = Call(handler, TargetOf(request), request.head);
    if (FAILED(reply.result))
        return FailureAnswer(reply.result);
    if (reply.type == kXml)
        return TextAnswer(request, handler, std::move(reply), reader);
    if (reply.type == kArchiveType && request.path.ends_with(kArchiveSuffix))
        return ArchiveAnswer(request, std::move(reply));
    Answer answer;
    answer.type = std::move(reply.type);
    answer.body = std::move(reply.body);
    return answer;
}

} // namespace

bool MobilePages::MayBuildArchive(std::string_view path) {
    const auto decoded = PercentDecode(path);
    return !decoded || decoded->find(".ja") != std::string::npos;
}

Answer MobilePages::Content(const Request& request, std::string_view login, bool looks) const {
    const auto handler = HandlerOf(request, false);
    if (!handler)
        return Answer::Text(404, "There is nothing here.");
    Shares::Share share; // ends with the call: how long an archive takes to go out is its receiver's affair
    if (MayBuildArchive(request.path)) {
        if (auto refused = TakeShare(shares.archives, request, login, counters, &share))
            return std::move(*refused);
    }
    Answer answer = ContentOf(request, *handler, {language, looks});
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

Answer MobilePages::SourceList(const Request& request, const Rights& rights) const {
    if (request.query != "xslt=cameras.xsl") {
        Answer answer = Answer::Text(302, "The sources are on the live page.");
        answer.headers["Location"] = "/";
        return answer;
    }
    Answer answer;
    answer.headers["Cache-Control"] = "no-store";
    for (const std::string& key : sources.Keys(rights)) {
        // A name that would break the list cannot be told in it, and a changed one would open nothing.
        if (key.find_first_of("\t\r\n") == std::string::npos)
            answer.body.append(key).append(1, '\t').append(key).append(1, '\n');
    }
    return answer;
}

} // namespace host
