#include "host/http/basic.h"

#include "platform/text.h"

namespace host {

std::optional<Credentials> ParseBasic(std::string_view authorization) {
    const auto blank = authorization.find(' ');
    if (blank == std::string_view::npos ||
        !platform::EqualsIgnoringCase(authorization.substr(0, blank), "Basic"))
        return std::nullopt;
    std::string_view encoded = authorization.substr(blank);
    while (encoded.starts_with(' '))
        encoded.remove_prefix(1);
    while (encoded.ends_with(' '))
        encoded.remove_suffix(1);
    const auto text = platform::DecodeBase64(encoded);
    if (!text || text->find('\0') != std::string::npos)
        return std::nullopt;
    const auto colon = text->find(':');
    if (colon == std::string::npos || !platform::Utf8ToWideStrict(*text))
        return std::nullopt;
    return Credentials{text->substr(0, colon), text->substr(colon + 1)};
}

std::string BasicAuthorization(const Credentials& credentials) {
    return "Basic " + platform::Base64(credentials.login + ":" + credentials.password);
}

} // namespace host
