#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string>

#include "interfaces/ILogEngine.h"
#include "platform/modules.h"
#include "platform/scope.h"
#include "platform/text.h"
#include "runtime/trace/Trace.h"

namespace {

// Set by the first line that finds the library, and never changed again.
std::atomic<ILogEngine*> g_pEngine{nullptr};

// Two threads may come here at once: both load the library and both store the same engine. A failed attempt
// stores nothing, so the next line tries again.
ILogEngine* GetEngine() {
    if (ILogEngine* pEngine = g_pEngine.load(std::memory_order_acquire))
        return pEngine;
    platform::Library* pLibrary = platform::LoadLibrary(kLogEngineLibrary);
    if (pLibrary == nullptr)
        return nullptr;
    const platform::Export pExport = platform::FindExport(pLibrary, kLogEngineExport);
    if (pExport == nullptr)
        return nullptr;
    ILogEngine* pEngine = reinterpret_cast<GetXmlLogEngineFunction>(pExport)();
    if (pEngine == nullptr)
        return nullptr;
    g_pEngine.store(pEngine, std::memory_order_release);
    static std::once_flag attached;
    std::call_once(attached, [pEngine] {
        pEngine->Attach(true);
        std::atexit([] { g_pEngine.load(std::memory_order_acquire)->Attach(false); });
    });
    return pEngine;
}

// Converts a wide text to the thread's code page. ASCII is the same in every code page, so most lines need
// neither a conversion nor the heap.
class CNarrowText {
public:
    explicit CNarrowText(const char16_t* szText) {
        const std::u16string_view text(szText);
        if (text.size() < m_aInline.size() && std::ranges::all_of(text, [](char16_t c) { return c < 0x80; }))
            std::ranges::transform(text, m_aInline.begin(), [](char16_t c) { return static_cast<char>(c); });
        else
            m_strLong = platform::ToNarrow(text);
    }
    [[nodiscard]] const char* Get() const noexcept {
        return m_strLong.empty() ? m_aInline.data() : m_strLong.c_str();
    }

private:
    std::array<char, 128> m_aInline{};
    std::string m_strLong; // empty while the text stands inline
};

} // namespace

void LogWrite(const SLogSite& site, const char16_t* szChannel, const char16_t* szText) {
    ILogEngine* pEngine = GetEngine();
    if (pEngine == nullptr)
        return;
    if (!pEngine->IsEnabled() && szChannel != nullptr)
        return;
    ThrowStatusWithoutMemory([&] {
        const CNarrowText channel(szChannel == nullptr ? u"DIRECT" : szChannel);
        const CNarrowText text(szText);
        pEngine->Write(site.szFunction, site.szFile, site.nLine, text.Get(), channel.Get());
    });
}

void LogFormatted(const SLogSite& site, const char16_t* szChannel, std::u16string_view format,
                  std::span<const CFormatArgument> arguments) {
    std::array<char16_t, kLogLineLimit + 1> aMessage{};
    FormatWide(aMessage, format, arguments);
    LogWrite(site, szChannel, aMessage.data());
}

void LogFailedCondition(const SLogSite& site, const CMarkedValues& oMarked, const char* szCondition) {
    const platform::AtScopeEnd keep(
        [nError = platform::LastError()] { platform::SetLastError(nError); }); // the engine may change it
    CLogExpression expression;
    oMarked.RecordIn(expression);
    // The composed text is an argument, not a format: a percent sign in it stands for itself.
    LogPrintf(site, kChannelAssertion, u"%s", expression.Compose(szCondition));
}
