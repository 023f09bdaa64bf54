// The host's side of the web contract, as a class that the component can create.
#pragma once

#include <string>

#include "interfaces/IWebHandler.h"
#include "platform/text.h"
#include "support/Fake.h"

namespace support {

// What the next created host object answers, and what it was told.
struct WebHostScript {
    HRESULT registerResult = S_OK;
    HRESULT authResult = S_OK;
    bool keepsHandler = true;
    std::u16string word; // that the handler was registered for
    std::u16string head; // of the last GetRequestAuth
    platform::ComPtr<IWebHandler> handler;
};

class FakeWebHost : public Fake<IWebHandlerHost> {
public:
    HRESULT RegisterHandler(const char16_t* word, IWebHandler* handler) override {
        m_script.word = word;
        (void)platform::ComPtr<IWebHandler>(handler); // taken and dropped again: the object has to outlive it
        if (SUCCEEDED(m_script.registerResult) && m_script.keepsHandler)
            m_script.handler = platform::ComPtr<IWebHandler>(handler);
        return m_script.registerResult;
    }
    HRESULT GetRequestAuth(BSTR head, SRequestAuth* auth) override {
        m_script.head = platform::ViewOf(head);
        if (FAILED(m_script.authResult))
            return m_script.authResult;
        auth->bstrLogin = platform::Bstr(u"yard").Detach();
        auth->bstrPassword = platform::Bstr(u"secret").Detach();
        auth->pData = static_cast<std::uint8_t*>(CoTaskMemAlloc(16));
        auth->nSize = 16;
        return S_OK;
    }

protected:
    explicit FakeWebHost(WebHostScript& script) : m_script(script) {}
    ~FakeWebHost() = default;

private:
    WebHostScript& m_script;
};

// Makes the class creatable for the length of a scope.
class WebHostClass {
public:
    WebHostClass() {
        const auto make = [this](const GUID& interfaceId, void** object) {
            return platform::ComObject<FakeWebHost>::Create(script)->QueryInterface(interfaceId, object);
        };
        const auto factory = platform::ComObject<FakeFactory>::Create(make);
        platform::RegisterClassFactory(kWebHandlerHostClass, factory.Get());
    }
    ~WebHostClass() { platform::RevokeClassFactory(kWebHandlerHostClass); }

    WebHostScript script;
};

} // namespace support
