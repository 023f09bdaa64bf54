// Links for phones over the web. One is good for a phone of today, which becomes the camera in its browser,
// or for an old one, which gets a midlet.
//
//   POST /api/v1/cameras/NAME/link
//                                 makes one: JSON with its token, the seconds that it is good for, its
//                                 address for a phone of today ("url") with a QR code of that as SVG ("svg"),
//                                 and the same for an old one ("oldUrl", "oldSvg")
//   DELETE /links/TOKEN           revokes it
//   GET /get/TOKEN                a page for the phone, which says what it installs; opening it uses
//                                 nothing up, since programs that read codes and messages open addresses
//                                 ahead
//   GET /get/TOKEN/Sendora.jar    the archive of the midlet that makes the phone that camera, once
//   GET /get/TOKEN/Sendora.jad    its descriptor, before that
//
// There are no links to the viewing midlet: its sign-in would be a user's, and the host keeps only hashes of
// those passwords.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/links/link_table.h"
#include "host/users/authenticator.h"

namespace host {

// With `delivery` when the answer is the archive: whoever sends it says whether it has arrived.
struct LinkReply {
    Answer answer;
    std::optional<LinkTable::Delivery> delivery{};
};

class LinkPages {
public:
    // The component's answer to a GET.
    using Content = std::function<Answer(const Request& request, std::string_view login)>;

    // `authority` is where others reach this server, "ADDR:PORT", or empty; `tls`: whether it speaks TLS;
    // `language` the server's. The authenticator outlives the object.
    LinkPages(const Authenticator& authenticator, std::string authority, bool tls, std::string language,
              Content content, std::shared_ptr<Store> links)
        : m_authenticator(authenticator), m_authority(std::move(authority)), m_tls(tls),
          m_language(std::move(language)), m_content(std::move(content)),
          m_links(std::make_shared<LinkTable>(links ? std::move(links) : LinkTable::InMemory())) {}

    // For the camera of that name; nothing: it is no text.
    [[nodiscard]] Answer Make(const std::optional<std::string>& camera, const Request& request) const;
    [[nodiscard]] Answer Revoke(std::string_view token) const;
    // The camera of a link whose phone is a browser: it is good for no other one then. Nothing for a link
    // that is no longer good, or is being used.
    [[nodiscard]] std::optional<std::string> Spend(std::string_view token) const;
    // `rest` is what stands behind "/get/". Needs no sign-in but the token.
    [[nodiscard]] LinkReply Use(const Request& request, std::string_view rest) const;

    // The address of a new link, for a phone of today; nothing when there are too many. `host`: of the Host
    // line of who asks for it, or where the server listens; where that names this machine to itself only, the
    // address for others is taken, if there is one.
    [[nodiscard]] std::optional<std::string> MakeAddress(const std::string& camera,
                                                         std::string_view host) const;

    // The same of a link that is there. `secure`: who asks has come by https, whoever speaks that here.
    [[nodiscard]] std::string AddressOf(const LinkTable::Link& link, std::string_view host,
                                        bool secure = false) const;
    // For an old phone: in clear, since it knows no TLS of today.
    [[nodiscard]] std::string OldAddressOf(const LinkTable::Link& link, std::string_view host) const;

private:
    [[nodiscard]] std::string_view AuthorityFor(std::string_view host) const;
    [[nodiscard]] Answer ContentFor(const LinkTable::Link& link, std::string_view file,
                                    const Request& asked) const;

    const Authenticator& m_authenticator;
    const std::string m_authority;
    const bool m_tls;
    const std::string m_language;
    const Content m_content;
    const std::shared_ptr<LinkTable> m_links;
};

} // namespace host
