#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>

#include "host/bridge/intake.h"
#include "host/http/wire.h"
#include "host/log/console.h"
#include "host/site/mobile/pages.h"
#include "kit/connection/phone_connection.h"
#include "platform/status.h"
#include "platform/text.h"

namespace host {
namespace {

// The path that a handler gets: without its leading "/", with the query. An upload names its camera in the
// path, and the component takes that name as it stands; so for an upload the percent escapes are undone here
// ("front%20door" is the camera "front door"), while a viewer's path, whose escapes the component undoes
// itself, stays as it came. A path that cannot be decoded stays as it came, too.
std::u16string HandlerPath(const Request& request) {
    std::string path = request.path.substr(1);
    if (request.method == "POST") {
        if (auto decoded = PercentDecode(path))
            path = std::move(*decoded);
    }
    if (!request.query.empty())
        path += "?" + request.query;
    return platform::FromUtf8(path);
}

// "yard" in "mobile/video/yard/", as the component cuts it.
std::string NameIn(std::u16string_view path) {
    path.remove_prefix(std::min(path.size(), std::u16string_view(u"mobile/video").size()));
    while (path.ends_with(u'/'))
        path.remove_suffix(1);
    while (path.starts_with(u'/'))
        path.remove_prefix(1);
    return platform::ToUtf8(path);
}

// What the component does with a wrong record, without the camera's running upload, which it would end first.
void DenyRecord(Stream& stream, const std::string& camera, const Wakeup& stop) {
    std::u16string_view reason = platform::MessageText(static_cast<std::uint32_t>(E_ACCESSDENIED));
    while (reason.ends_with(u'\n') || reason.ends_with(u'\r'))
        reason.remove_suffix(1);
    Console::Get().Log("mobile", "connection of " + camera + " rejected: 0x80070005, (" +
                                     platform::ToUtf8(reason) + ")");
    if (!stream.IsSecure()) {
        // Taken off the socket: closing over unread bytes could take the answer with it.
        std::array<char, kit::kAuthRecordBytes> record{};
        (void)stream.Read(record.data(), record.size());
    }
    (void)stream.Write({&kit::kRecordDenied, 1});
    FinishSending(stream, stop);
}

class HandingOver {
public:
    HandingOver(Stream& stream, const Request& request, const SignIn& signIn, IWebHandler& handler,
                const MobilePages& pages)
        : m_stream(stream), m_request(request), m_signIn(signIn), m_handler(handler), m_pages(pages),
          m_path(HandlerPath(request)), m_name(NameIn(m_path)) {
        if (stream.IsSecure())
            m_bridge.emplace();
    }

    std::optional<Answer> Upload() {
        // Whoever has one camera's password could otherwise end the uploads of all others.
        if (m_signIn.camera && m_signIn.credentials.login != m_name)
            return Refuse(Refusal::Forbidden, 403, "This phone is another camera.",
                          "another camera's sign-in");
        std::string record;
        const auto deadline = Clock::now() + m_pages.limits.recordDeadline;
        switch (AwaitRecord(&record, deadline)) {
        case HeadResult::Complete:
            break;
        case HeadResult::Timeout:
            m_pages.counters.Refuse(Refusal::RecordTimeout);
            [[fallthrough]];
        default:
            m_stream.Close();
            return std::nullopt;
        }
        auto attempt = m_pages.authenticator.AwaitRecordTurn(m_name, m_request.peer);
        if (!attempt)
            return Refuse(Refusal::Throttled, 429, "Too many wrong passwords.", "too many wrong passwords");
        const Utf8Scope utf8;
        const auto stored = m_pages.authenticator.StoredCameraPassword(m_name);
        const bool receiving = m_pages.feeds.IsReceiving(m_name);
        const bool right = stored && kit::IsRightRecord(record, *stored);
        if (receiving && stored && !right) {
            CountDenied(kWrongPassword);
            const platform::ActivityScope scope(std::make_shared<LogSubject>(Subject()));
            DenyRecord(m_stream, m_name, m_pages.stop);
            m_stream.Close();
            return std::nullopt;
        }
        if (right)
            m_pages.feeds.Claim(m_name.substr(0, m_name.find('?')));
        std::shared_ptr<PhoneSession> session;
        const HRESULT hr = Process(SessionKind::Upload, nullptr, &session);
        if (SUCCEEDED(hr)) {
            attempt->Right();
            (void)WelcomePhone(m_pages.feeds, m_name, m_request.arrived, m_request.peer.text, Subject(),
                               receiving, session);
        } else if (hr == E_ACCESSDENIED) {
            CountDenied(stored ? kWrongPassword : "no such camera");
        } else {
            attempt->Withdraw();
            m_pages.counters.Refuse(Refusal::UploadDenied);
        }
        return std::nullopt;
    }

    std::optional<Answer> View(Shares::Share place) {
        kit::BoundSends(m_stream.Fd(), m_pages.limits.writeStall);
        if (m_bridge)
            kit::BoundSends(m_bridge->Inner().Get(), m_pages.limits.writeStall);
        const Utf8Scope utf8;
        if (FAILED(Process(SessionKind::View, std::move(place))))
            m_pages.counters.Refuse(Refusal::ViewDenied);
        return std::nullopt;
    }

    // Under TLS: until the phone or the component has ended the connection that was handed over.
    void Carry(const std::function<void()>& begun) {
        if (!m_bridge || !m_handedOver)
            return;
        begun();
        m_bridge->Carry(m_stream, m_pages.stop, m_pages.limits.writeStall);
    }

private:
    HeadResult AwaitRecord(std::string* record, Clock::time_point deadline) {
        if (!m_bridge)
            return WaitForBytes(m_stream.Fd(), kit::kAuthRecordBytes, record, m_pages.stop, deadline);
        const HeadResult result = ReadBody(m_stream, kit::kAuthRecordBytes, record, m_pages.stop, deadline);
        if (result == HeadResult::Complete)
            m_bridge->Feed(*record);
        return result;
    }

    [[nodiscard]] std::string Subject() const { return m_name + ", " + m_request.peer.text; }

    HRESULT Process(SessionKind kind, Shares::Share place, std::shared_ptr<PhoneSession>* session = nullptr) {
        kit::WatchPeer(m_stream.Fd());
        m_handedOver = true;
        return HandToComponent({.kind = kind,
                                .path = m_path,
                                .head = m_request.head,
                                .socket = std::move(m_bridge ? m_bridge->Inner() : m_stream.Socket()),
                                .subject = Subject(),
                                .place = std::move(place)},
                               m_handler, m_pages.counters, session);
    }

    void CountDenied(std::string_view reason) {
        m_pages.counters.Refuse(Refusal::UploadDenied);
        LogRefusal(m_request, m_signIn.credentials.login, m_name, reason);
    }
    Answer Refuse(Refusal refusal, unsigned status, std::string_view line, std::string_view reason) const {
        m_pages.counters.Refuse(refusal);
        LogRefusal(m_request, m_signIn.credentials.login, m_name, reason);
        return Answer::Text(status, line);
    }

    Stream& m_stream;
    std::optional<Bridge> m_bridge; // under TLS
    bool m_handedOver = false;
    const Request& m_request;
    const SignIn& m_signIn;
    IWebHandler& m_handler;
    const MobilePages& m_pages;
    const std::u16string m_path;
    const std::string m_name; // of the camera, or the source with its parameters
};

} // namespace

platform::ComPtr<IWebHandler> MobilePages::HandlerOf(const Request& request, bool stream) const {
    const std::u16string path = HandlerPath(request);
    auto handler = handlers.HandlerOf(path);
    std::int32_t isStream = 0;
    if (handler)
        (void)handler->IsStreamPath(path.c_str(), &isStream);
    return (isStream != 0) == stream ? handler : nullptr;
}

std::string MobilePages::SourceKeyOf(const Request& request) {
    std::string_view path = request.path;
    path.remove_prefix(std::min(path.size(), std::string_view("/mobile/video").size()));
    path.remove_prefix(std::min(path.size(), path.find_first_not_of('/')));
    return PercentDecode(path.substr(0, path.find('/'))).value_or("");
}

std::optional<Answer> MobilePages::HandOver(Stream& stream, const Request& request, const SignIn& signIn,
                                            Shares::Share place, IWebHandler& handler,
                                            const std::function<void()>& begun) const {
    HandingOver handing(stream, request, signIn, handler, *this);
    auto refused = request.method == "POST" ? handing.Upload() : handing.View(std::move(place));
    handing.Carry(begun);
    return refused;
}

} // namespace host
