#include "host/bridge/upload_link.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "host/http/limits.h"
#include "host/http/request.h"
#include "kit/connection/phone_connection.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr char kAccepted = 0;
constexpr char kFrame = 4;
// The pictures on their way are few, so that what the page hears of them tells how fast the component is.
constexpr int kSendBuffer = 32 * 1024;

// The record of a phone: a prefix that nobody reads, and the password with a zero behind it. Empty for a
// password that has no room.
std::string RecordOf(const std::string& password) {
    if (password.size() >= kit::kAuthRecordBytes - kit::kRecordPasswordOffset)
        return {};
    std::string record(kit::kAuthRecordBytes, '\0');
    record.replace(kit::kRecordPasswordOffset, password.size(), password);
    return record;
}

std::string HeadOf(const std::string& camera, const std::string& password) {
    return "POST /mobile/video/" + PercentEncode(camera) +
           " HTTP/1.1\r\nAuthorization: " + BasicAuthorization({camera, password}) + "\r\n\r\n";
}

} // namespace

std::unique_ptr<UploadLink> UploadLink::Begin(const BridgeParts& parts, const std::string& camera,
                                              const std::string& address, Clock::time_point asked,
                                              Outcome* outcome) {
    *outcome = Outcome::Denied;
    const std::u16string path = platform::FromUtf8("mobile/video/" + camera);
    const auto handler = parts.handlers.HandlerOf(path);
    const auto password = parts.authenticator.CameraPassword(camera);
    const std::string record = password ? RecordOf(*password) : std::string();
    if (record.empty())
        return nullptr;
    *outcome = Outcome::Failed;
    if (!handler)
        return nullptr;
    SocketPair pair;
    ::setsockopt(pair.outer.Get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    // The component reads the record at once, and the header when it likes; both have room in the socket.
    const std::string opening = record + std::string(2, '\0');
    if (::send(pair.outer.Get(), opening.data(), opening.size(), MSG_NOSIGNAL | MSG_DONTWAIT) !=
        static_cast<ssize_t>(opening.size()))
        return nullptr;
    std::unique_ptr<UploadLink> link(new UploadLink(std::move(pair.outer)));
    const std::string subject = camera + ", " + address + ", browser phone";
    const Utf8Scope utf8;
    parts.feeds.Claim(camera);
    const bool receiving = parts.feeds.IsReceiving(camera);
    const HRESULT hr = HandToComponent({.path = path,
                                        .head = HeadOf(camera, *password),
                                        .socket = std::move(pair.inner),
                                        .subject = subject},
                                       *handler.Get(), parts.counters, &link->m_activity);
    if (FAILED(hr)) {
        parts.counters.Refuse(Refusal::UploadDenied);
        if (hr == E_ACCESSDENIED)
            *outcome = Outcome::Denied;
        return nullptr;
    }
    *outcome = Outcome::Begun;
    link->m_session =
        WelcomePhone(parts.feeds, camera, asked, address, subject, receiving, link->m_activity).number;
    return link;
}

void UploadLink::Step() {
    Write();
    ReadGrants();
}

void UploadLink::ReadGrants() {
    std::array<char, 64> bytes{};
    while (!m_ended) {
        const ssize_t got = ::recv(m_socket.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            m_ended = true;
            return;
        }
        for (const char byte : std::string_view(bytes.data(), static_cast<std::size_t>(got))) {
            if (!std::exchange(m_answered, true)) {
                m_ended = m_ended || byte != kAccepted;
                continue;
            }
            m_granted += static_cast<unsigned char>(byte);
            m_ready = m_ready || m_granted > 0;
        }
    }
}

void UploadLink::Send(std::string_view jpeg) {
    --m_granted;
    m_waiting.reserve(3 + jpeg.size());
    m_waiting = {kFrame, static_cast<char>(jpeg.size() & 0xFF), static_cast<char>(jpeg.size() >> 8)};
    m_waiting += jpeg;
    m_written = 0;
    Write();
}

void UploadLink::Write() {
    while (!m_waiting.empty() && !m_ended) {
        const ssize_t sent = ::send(m_socket.Get(), m_waiting.data() + m_written,
                                    m_waiting.size() - m_written, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0) {
            m_ended = true;
            return;
        }
        m_written += static_cast<std::size_t>(sent);
        if (m_written == m_waiting.size())
            m_waiting.clear();
    }
}

} // namespace host
