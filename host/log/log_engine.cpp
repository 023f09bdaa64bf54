#include "host/log/console.h"

#include <atomic>
#include <string>
#include <string_view>

#include "interfaces/ILogEngine.h"
#include "platform/library.h"
#include "platform/text.h"

namespace host {
namespace {

class ConsoleLogEngine final : public ILogEngine {
public:
    void SetVerbosity(Verbosity verbosity) noexcept { m_verbosity = verbosity; }

    bool IsEnabled() override { return true; }

    void Write(const char* szFunction, const char* szFile, std::int32_t nLine, const char* szText,
               const char* szChannel) override try {
        const std::string_view channel = szChannel != nullptr ? szChannel : "";
        const Verbosity verbosity = m_verbosity;
        // Rates stand in the status line, and "message" tells of every grant to a phone.
        if (verbosity != Verbosity::Verbose && (channel == "FPS" || channel == "message"))
            return;
        if (verbosity == Verbosity::Quiet && channel == "mobile")
            return;
        std::string text = platform::ToUtf8(platform::ToWide(szText != nullptr ? szText : ""));
        while (text.ends_with('\n') || text.ends_with('\r'))
            text.pop_back();
        if (verbosity == Verbosity::Verbose && szFunction != nullptr && szFile != nullptr)
            text += std::string("  [") + szFunction + ", " + szFile + ":" + std::to_string(nLine) + "]";
        Console::Get().Log(channel, text);
    } catch (const std::exception&) {
        // Out of memory: the line is lost, its caller is not.
    }

    void Flush() override {}
    void Attach(bool) override {}

private:
    std::atomic<Verbosity> m_verbosity{Verbosity::Normal};
};

ConsoleLogEngine& Engine() {
    static ConsoleLogEngine engine;
    return engine;
}

ILogEngine* GetEngine() {
    return &Engine();
}

} // namespace

void RegisterLogEngine(Verbosity verbosity) {
    Engine().SetVerbosity(verbosity);
    Console::Get(); // made before the engine's last line, so that it ends after it
    platform::RegisterLibrary(kLogEngineLibrary,
                              {{kLogEngineExport, reinterpret_cast<platform::Export>(&GetEngine)}});
}

} // namespace host
