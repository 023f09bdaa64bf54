#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/time.h>

#include <optional>
#include <string>

#include "host/http/wire.h"
#include "host/site/mobile/pages.h"
#include "platform/scope.h"
#include "platform/socket.h"
#include "platform/text.h"

namespace host {
namespace {

// The component waits for a silent phone without a limit of its own. The system asks the phone's side whether
// it is still there, so that a phone that vanished is noticed within about a minute.
void WatchPeer(int fd) {
    const auto set = [fd](int level, int option, int value) {
        ::setsockopt(fd, level, option, &value, sizeof value);
    };
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 20);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 10);
    set(IPPROTO_TCP, TCP_KEEPCNT, 4);
}

// The component's viewers send with a blocking socket and without a limit. A phone that takes nothing for as
// long as any watcher may is gone after that: its send fails, and so does the connection of one that
// vanished. The small buffer keeps the pictures on their way few, so that a slow phone lags by little.
void BoundSends(int fd, std::chrono::milliseconds stall) {
    const int buffer = kViewerSendBuffer;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    const timeval limit{stall.count() / 1000, stall.count() % 1000 * 1000};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    const auto unacknowledged = static_cast<unsigned>(stall.count());
    ::setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledged, sizeof unacknowledged);
}

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

// The camera that an upload names.
std::optional<std::string> CameraOf(const Request& request) {
    constexpr std::string_view kUploads = "/mobile/video/";
    return request.path.starts_with(kUploads)
               ? PercentDecode(std::string_view(request.path).substr(kUploads.size()))
               : std::nullopt;
}

} // namespace

platform::ComPtr<IWebHandler> MobilePages::HandlerOf(const Request& request, bool stream) const {
    const std::u16string path = HandlerPath(request);
    auto handler = handlers.HandlerOf(path);
    std::int32_t isStream = 0;
    if (handler)
        (void)handler->IsStreamPath(path.c_str(), &isStream);
    return (isStream != 0) == stream ? handler : nullptr;
}

void MobilePages::HandOver(Descriptor socket, const Request& request, IWebHandler& handler) const {
    const bool upload = request.method == "POST";
    if (upload) {
        const auto deadline = Clock::now() + limits.recordDeadline;
        const HeadResult record = WaitForBytes(socket.Get(), kAuthRecordBytes, stop, deadline);
        if (record != HeadResult::Complete) {
            if (record == HeadResult::Timeout)
                counters.Refuse(Refusal::RecordTimeout);
            return;
        }
    }
    WatchPeer(socket.Get());
    if (!upload)
        BoundSends(socket.Get(), limits.writeStall);
    // The component compares a phone's password in this thread's code page, by default that of the server's
    // language. A phone that has come this far has signed in with UTF-8, so its record is UTF-8 as well,
    // whatever language the server speaks.
    (void)platform::SetThreadCodePage(platform::kCodePageUtf8);
    const platform::AtScopeEnd restore([] { (void)platform::SetThreadCodePage(0); });
    const platform::Bstr head(platform::ToWide(request.head));
    const std::u16string path = HandlerPath(request);
    const SOCKET handle = platform::AdoptSocket(socket.Release());
    if (handle == INVALID_SOCKET)
        return;
    const HRESULT hr = handler.Process(path.c_str(), handle, head.Get());
    if (SUCCEEDED(hr)) {
        counters.Begin(upload ? SessionKind::Upload : SessionKind::View);
        const auto camera = upload ? CameraOf(request) : std::nullopt;
        if (const FeedPtr feed = camera ? feeds.Find(*camera) : nullptr)
            feed->SessionBegan(request.arrived);
        return;
    }
    // Harmless when the component has closed it.
    (void)platform::closesocket(handle);
    counters.Refuse(upload ? Refusal::UploadDenied : Refusal::ViewDenied);
    if (upload && hr == E_ACCESSDENIED)
        authenticator.ReportWrong(request.peer);
}

} // namespace host
