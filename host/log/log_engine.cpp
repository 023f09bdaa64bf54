#include "host/log/console.h"

#include <string>
#include <string_view>

#include "interfaces/ILogEngine.h"
#include "platform/modules.h"
#include "platform/text.h"

namespace host {
namespace {

class ConsoleLogEngine final : public ILogEngine {
public:
    bool IsEnabled() override { return true; }

    void Write(const char* szFunction, const char* szFile, std::int32_t nLine, const char* szText,
               const char* szChannel) override try {
        const std::string_view channel = szChannel != nullptr ? szChannel : "";
        Console& console = Console::Get();
        const bool verbose = console.HowVerbose() == Verbosity::Verbose;
        // The component's own "message" tells of every grant to a phone.
        if (!console.Shows(channel) || (channel == "message" && !verbose))
            return;
        std::string text = platform::ToUtf8(platform::ToWide(szText != nullptr ? szText : ""));
        while (text.ends_with('\n') || text.ends_with('\r'))
            text.pop_back();
        if (verbose && szFunction != nullptr && szFile != nullptr)
            text += std::string("  [") + szFunction + ", " + szFile + ":" + std::to_string(nLine) + "]";
        console.Log(channel, text);
    } catch (const std::exception&) {
        // Out of memory: the line is lost, its caller is not.
    }

    void Flush() override { Console::Get().Flush(); }
    void Attach(bool) override {}
};

ConsoleLogEngine& Engine() {
    static ConsoleLogEngine engine;
    return engine;
}

ILogEngine* GetEngine() {
    return &Engine();
}

} // namespace

void RegisterLogEngine() {
    Console::Get(); // made before the engine's last line, so that it ends after it
    platform::RegisterLibrary(kLogEngineLibrary,
                              {{kLogEngineExport, reinterpret_cast<platform::Export>(&GetEngine)}});
}

} // namespace host
