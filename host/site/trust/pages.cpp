#include "host/site/trust/pages.h"

#include "host/html/page.h"
#include "host/html/texts.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::string_view kCertificate = "authority.crt";
constexpr std::string_view kProfile = "authority.mobileconfig";

Answer NothingHere() {
    return Answer::Text(404, "There is nothing here.");
}

Answer Download(std::string_view name, std::string_view type, std::string body) {
    Answer answer;
    answer.type = type;
    answer.body = std::move(body);
    answer.headers["Cache-Control"] = "no-store";
    answer.headers["Content-Disposition"] = "attachment; filename=\"morrowstream-" + std::string(name) + "\"";
    return answer;
}

// Any number does that the next profile of the same authority has as well: it replaces this one then.
std::string UuidOf(std::string_view fingerprint, std::size_t from) {
    std::string uuid;
    for (const char c : fingerprint.substr(from)) {
        if (c != ':')
            uuid += c;
        if (uuid.size() == 8 || uuid.size() == 13 || uuid.size() == 18 || uuid.size() == 23)
            uuid += '-';
        if (uuid.size() == 36)
            break;
    }
    return uuid;
}

// A configuration profile of Apple's, with one certificate.
std::string ProfileOf(const Certificates::Authority& authority) {
    const auto entry = [](std::string_view key, const std::string& value) {
        return "<key>" + std::string(key) + "</key>" + value + "\n";
    };
    const auto text = [](const std::string& value) { return "<string>" + value + "</string>"; };
    const auto payload = [&](const std::string& type, const std::string& uuid) {
        return entry("PayloadType", text(type)) + entry("PayloadUUID", text(uuid)) +
               entry("PayloadIdentifier", text("morrowstream." + uuid)) +
               entry("PayloadDisplayName", text("Morrowstream")) +
               entry("PayloadVersion", "<integer>1</integer>");
    };
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
           "1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>\n" +
           payload("Configuration", UuidOf(authority.fingerprint, 0)) +
           "<key>PayloadContent</key><array><dict>\n" +
           payload("com.apple.security.root", UuidOf(authority.fingerprint, 47)) +
           entry("PayloadCertificateFileName", text("morrowstream.crt")) +
           entry("PayloadContent", "<data>" + platform::Base64(DerOf(authority.certificate)) + "</data>") +
           "</dict></array>\n</dict>\n</plist>\n";
}

} // namespace

Answer TrustPages::Page(const Request& request) const {
    if (certificates == nullptr)
        return NothingHere();
    const std::string_view code = LanguageOf(request.Field("Accept-Language"), language);
    const auto authority = certificates->GetAuthority();
    std::string body;
    const auto add = [&](std::string_view element, Word word) {
        body.append("<").append(element).append(">").append(TextOf(code, word));
        body.append("</").append(element).append(">\n");
    };
    const auto link = [&](const std::string& address, Word word) {
        body.append("<p><a href=\"").append(EscapeHtml(address)).append("\">");
        body.append(TextOf(code, word)).append("</a></p>\n");
    };
    add("h1", Word::Trust);
    if (authority.certificate.empty()) {
        add("p", Word::TrustOperator);
    } else {
        add("p", Word::TrustWarning);
        add("p", Word::TrustLimits);
        if (authority.replaced)
            add("p", Word::TrustAgain);
        if (request.secure) {
            add("p", Word::TrustCompare);
            link("/trust/" + std::string(kCertificate), Word::TrustCertificate);
            link("/trust/" + std::string(kProfile), Word::TrustProfile);
            body += "<ul>\n";
            for (const Word word : {Word::TrustAndroid, Word::TrustIphone, Word::TrustWindows, Word::TrustMac,
                                    Word::TrustLinux, Word::TrustFirefox})
                add("li", word);
            body += "</ul>\n";
        } else if (certificates->Current()->Covers(request.Host())) {
            link("https://" + std::string(request.Host()) + "/trust", Word::TrustGoOn);
        }
    }
    return AnswerOf({.language = code, .title = TextOf(code, Word::Trust), .body = body});
}

Answer TrustPages::File(std::string_view name) const {
    const auto authority = certificates != nullptr ? certificates->GetAuthority() : Certificates::Authority{};
    if (authority.certificate.empty())
        return NothingHere();
    if (name == kCertificate)
        return Download(name, "application/x-x509-ca-cert", DerOf(authority.certificate));
    if (name == kProfile)
        return Download(name, "application/x-apple-aspen-config", ProfileOf(authority));
    return NothingHere();
}

} // namespace host
