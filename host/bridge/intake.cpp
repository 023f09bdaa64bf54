#include "host/bridge/intake.h"

#include "host/log/console.h"
#include "platform/socket.h"
#include "platform/text.h"

namespace host {

Utf8Scope::Utf8Scope() {
    (void)platform::SetThreadCodePage(platform::kCodePageUtf8);
}

Utf8Scope::~Utf8Scope() {
    (void)platform::SetThreadCodePage(0);
}

HRESULT HandToComponent(Intake intake, IWebHandler& handler, Counters& counters,
                        std::shared_ptr<PhoneSession>* session) {
    const platform::Bstr head(platform::ToWide(intake.head));
    const SOCKET handle = platform::AdoptSocket(intake.socket.Release());
    if (handle == INVALID_SOCKET)
        return E_FAIL;
    auto activity =
        std::make_shared<PhoneSession>(std::move(intake.subject), handle, std::move(intake.place));
    if (session != nullptr)
        *session = activity;
    const platform::ActivityScope scope(std::move(activity));
    const HRESULT hr = handler.Process(intake.path.c_str(), handle, head.Get());
    if (SUCCEEDED(hr))
        counters.Begin(intake.kind);
    else
        (void)platform::closesocket(handle); // harmless when the component has closed it
    return hr;
}

CameraFeed::Session WelcomePhone(const FeedTable& feeds, const std::string& camera, Clock::time_point asked,
                                 const std::string& address, const std::string& subject, bool replaces,
                                 const std::shared_ptr<PhoneSession>& upload) {
    const FeedPtr feed = feeds.Find(camera.substr(0, camera.find('?')));
    CameraFeed::Session began = feed ? feed->SessionBegan(asked, address, upload) : CameraFeed::Session{};
    if (replaces) {
        const platform::ActivityScope scope(std::make_shared<LogSubject>(subject));
        Console::Get().Log("mobile", "takes the place of the phone at " + began.before);
    }
    return began;
}

} // namespace host
