// The object with which a component registers as the handler of a path word.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "interfaces/IWebHandler.h"
#include "kit/export.h"
#include "platform/com.h"

namespace kit {

// Tells the component who sent a request. Texts are UTF-8.
struct RequestIdentity {
    std::string login;
    std::string password;
    std::string token; // the credentials block, opaque to the component
};

// Any thread may call any of its operations; `identify` is called without a lock.
class MORROW_KIT_API WebHandlerHost : public platform::Implements<IWebHandlerHost> {
public:
    // Gets a request's whole head; gives nothing for one without valid credentials. Any thread. Called until
    // Forget only, but for calls that have begun.
    using Identify = std::function<std::optional<RequestIdentity>(std::string_view head)>;

    explicit WebHandlerHost(Identify identify) : m_identify(std::move(identify)) {}

    // A word that is registered already gets the new handler, which is held until Forget. E_POINTER;
    // E_INVALIDARG for a word that is empty or has a "/"; E_UNEXPECTED after Forget.
    HRESULT RegisterHandler(const char16_t* szWord, IWebHandler* pHandler) override;
    // The texts and the block are the caller's to free, and are written on success alone. E_POINTER;
    // E_ACCESSDENIED for a head without valid credentials; E_UNEXPECTED after Forget; E_OUTOFMEMORY; E_FAIL
    // when `identify` threw something else.
    HRESULT GetRequestAuth(BSTR head, SRequestAuth* pAuth) override;

    // The handler of a path without leading "/": the one whose word the path starts with. Null without one.
    [[nodiscard]] platform::ComPtr<IWebHandler> HandlerOf(std::u16string_view path) const;
    // Lets go of all handlers, since nothing else takes a registration back; later calls are refused.
    void Forget();

protected:
    ~WebHandlerHost() = default;

private:
    mutable std::mutex m_mutex;
    Identify m_identify; // empty once forgotten
    std::map<std::u16string, platform::ComPtr<IWebHandler>> m_handlers;
};
using WebHandlerHostPtr = platform::ComPtr<platform::ComObject<WebHandlerHost>>;

} // namespace kit
