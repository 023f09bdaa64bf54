#include "kit/log/log_engine.h"

#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "interfaces/ILogEngine.h"
#include "platform/modules.h"
#include "platform/text.h"

namespace kit {
namespace {

class TargetLogEngine final : public ILogEngine {
public:
    void Set(std::shared_ptr<const LogTarget> target) {
        const std::lock_guard guard(m_mutex);
        m_target.swap(target);
    }

    bool IsEnabled() override { return Target() != nullptr; }

    void Write(const char* szFunction, const char* szFile, std::int32_t nLine, const char* szText,
               const char* szChannel) override try {
        const auto target = Target();
        const std::string_view channel = szChannel != nullptr ? szChannel : "";
        if (!target || (target->wants && !target->wants(channel)))
            return;
        std::string text = platform::ToUtf8(platform::ToWide(szText != nullptr ? szText : ""));
        while (text.ends_with('\n') || text.ends_with('\r'))
            text.pop_back();
        target->write({.channel = channel,
                       .text = text,
                       .function = szFunction != nullptr ? szFunction : "",
                       .file = szFile != nullptr ? szFile : "",
                       .number = nLine});
    } catch (const std::exception&) {
        // The line is lost, its caller is not.
    }

    void Flush() override {}
    void Attach(bool) override {}

private:
    // Lines are rare, and what a target does with one takes longer than this lock.
    std::shared_ptr<const LogTarget> Target() {
        const std::lock_guard guard(m_mutex);
        return m_target;
    }

    std::mutex m_mutex;
    std::shared_ptr<const LogTarget> m_target; // under m_mutex; null while there is none
};

// Never ends: the component may write lines until the process does.
TargetLogEngine& Engine() {
    static TargetLogEngine& engine = *std::make_unique<TargetLogEngine>().release();
    return engine;
}

ILogEngine* GetEngine() {
    return &Engine();
}

} // namespace

void SetLogTarget(LogTarget target) {
    Engine().Set(target.write ? std::make_shared<const LogTarget>(std::move(target)) : nullptr);
    platform::RegisterLibrary(kLogEngineLibrary,
                              {{kLogEngineExport, reinterpret_cast<platform::Export>(&GetEngine)}});
}

} // namespace kit
