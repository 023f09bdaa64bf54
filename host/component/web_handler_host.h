// The object with which a component registers as the handler of a path word.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "host/users/authenticator.h"
#include "interfaces/IWebHandler.h"
#include "platform/com.h"

namespace host {

class WebHandlerHost : public IWebHandlerHost {
public:
    // The authenticator outlives the object or a call of Forget.
    explicit WebHandlerHost(Authenticator& authenticator) : m_authenticator(&authenticator) {}

    // A word that is registered already gets the new handler.
    HRESULT RegisterHandler(const char16_t* szWord, IWebHandler* pHandler) override;
    HRESULT GetRequestAuth(BSTR head, SRequestAuth* pAuth) override;

    // The handler of a path without leading "/": the one whose word the path starts with. Null without one.
    [[nodiscard]] platform::ComPtr<IWebHandler> HandlerOf(std::u16string_view path) const;
    // Lets go of all handlers, since nothing else takes a registration back; later calls are refused.
    void Forget();

protected:
    ~WebHandlerHost() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<IWebHandlerHost>(this, interfaceId, object);
    }

private:
    mutable std::mutex m_mutex;
    Authenticator* m_authenticator;
    std::map<std::u16string, platform::ComPtr<IWebHandler>> m_handlers;
};
using WebHandlerHostPtr = platform::ComPtr<platform::ComObject<WebHandlerHost>>;

} // namespace host
