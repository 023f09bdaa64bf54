#include "host/handler/component.h"

#include <cstdio>

#include "host/start_error.h"
#include "interfaces/ComponentDoor.h"
#include "platform/threads.h"

namespace host {
namespace {

using platform::ComPtr;

// How long a receive loop may take to notice that its connection was closed.
constexpr std::uint32_t kLoopsEndWithin = 1000;

void Require(HRESULT hr, const std::string& what) {
    if (SUCCEEDED(hr))
        return;
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(hr));
    throw StartError(what + " failed with " + code);
}

} // namespace

Component::Component(WebHandlerHostPtr handlerHost, FeedTablePtr feeds)
    : m_handlerHost(std::move(handlerHost)), m_feeds(std::move(feeds)) {
    m_classes.AddObject(kWebHandlerHostClass,
                        ComPtr<IUnknown>(static_cast<IWebHandlerHost*>(m_handlerHost.Get())));
    try {
        Create();
    } catch (...) {
        m_handlerHost->Forget();
        m_feeds->SetSource(nullptr);
        m_source = nullptr;
        m_server = nullptr;
        (void)RevokeComponentClasses();
        throw;
    }
}

void Component::Create() {
    Require(RegisterComponentClasses(), "registering the component");
    Require(platform::CoCreateInstance(kUploadServerClass, nullptr, platform::kContextAll, IUploadServer::iid,
                                       m_server.ReceiveVoid()),
            "creating the component");
    m_source = m_server.Query<IVideoSource>();
    if (!m_source)
        throw StartError("the component is no video source");
    m_feeds->SetSource(m_source);
    Require(m_source->Subscribe(m_feeds.Get()), "subscribing to the component");
}

Component::~Component() {
    (void)m_source->Unsubscribe(m_feeds.Get());
    m_feeds->SetSource(nullptr);
    m_handlerHost->Forget();
    m_source = nullptr;
    m_server = nullptr; // the last reference: the object closes the phones' sockets
    platform::WaitForWorkItems(kLoopsEndWithin);
    (void)RevokeComponentClasses();
}

} // namespace host
