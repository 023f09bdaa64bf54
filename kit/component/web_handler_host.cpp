#include "kit/component/web_handler_host.h"

#include <cstring>

#include "platform/text.h"

namespace kit {

using platform::Bstr;
using platform::ComPtr;

HRESULT WebHandlerHost::RegisterHandler(const char16_t* szWord, IWebHandler* pHandler) {
    if (szWord == nullptr || pHandler == nullptr)
        return E_POINTER;
    const std::u16string_view word(szWord);
    if (word.empty() || word.find(u'/') != std::u16string_view::npos)
        return E_INVALIDARG;
    const std::lock_guard guard(m_mutex);
    if (!m_identify)
        return E_UNEXPECTED;
    m_handlers.insert_or_assign(std::u16string(word), ComPtr<IWebHandler>(pHandler));
    return S_OK;
}

HRESULT WebHandlerHost::GetRequestAuth(BSTR head, SRequestAuth* pAuth) {
    if (pAuth == nullptr)
        return E_POINTER;
    try {
        Identify identify;
        {
            const std::lock_guard guard(m_mutex);
            identify = m_identify;
        }
        if (!identify)
            return E_UNEXPECTED;
        const auto identity = identify(platform::ToNarrow(platform::ViewOf(head)));
        if (!identity)
            return E_ACCESSDENIED;
        const std::string& token = identity->token;
        Bstr login(platform::FromUtf8(identity->login));
        Bstr password(platform::FromUtf8(identity->password));
        auto* data = static_cast<std::uint8_t*>(CoTaskMemAlloc(token.size()));
        if (data != nullptr) // A counted block. NOLINTNEXTLINE(bugprone-not-null-terminated-result)
            std::memcpy(data, token.data(), token.size());
        else if (!token.empty()) // nothing is allocated for an empty block
            return E_OUTOFMEMORY;
        *pAuth = {login.Detach(), password.Detach(), static_cast<std::uint32_t>(token.size()), data};
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_FAIL; // no randomness for the block
    }
}

ComPtr<IWebHandler> WebHandlerHost::HandlerOf(std::u16string_view path) const {
    const auto end = path.find_first_of(u"/?");
    const std::lock_guard guard(m_mutex);
    const auto found = m_handlers.find(std::u16string(path.substr(0, end)));
    return found != m_handlers.end() ? found->second : nullptr;
}

void WebHandlerHost::Forget() {
    std::map<std::u16string, ComPtr<IWebHandler>> handlers; // released outside the lock
    const std::lock_guard guard(m_mutex);
    handlers.swap(m_handlers);
    m_identify = nullptr;
}

} // namespace kit
