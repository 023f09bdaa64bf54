// A log engine that remembers its lines. One for the process, since the component keeps the first engine that
// it finds; each test empties it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "interfaces/ILogEngine.h"
#include "platform/modules.h"
#include "support/Texts.h"

namespace support {

struct LogLine {
    std::string channel;
    std::string text;
    std::string function;
    std::string file;
    std::int32_t line = 0;
};

class RecordingLog final : public ILogEngine {
public:
    // Makes the engine findable by the component, and empty.
    static RecordingLog& Fresh() {
        // Never destroyed: the component detaches from it when the process ends.
        static auto* const log = new RecordingLog;
        log->Clear();
        platform::RegisterLibrary(kLogEngineLibrary,
                                  {{kLogEngineExport, reinterpret_cast<platform::Export>(
                                                          static_cast<GetXmlLogEngineFunction>(&Get))}});
        instance = log;
        return *log;
    }

    // Both leave an error of their own behind, as engines do that write files.
    bool IsEnabled() override {
        platform::SetLastError(platform::kErrorInvalidHandle);
        const std::lock_guard guard(m_mutex);
        return m_enabled;
    }
    void Write(const char* function, const char* file, std::int32_t line, const char* text,
               const char* channel) override {
        platform::SetLastError(platform::kErrorInvalidHandle);
        const std::lock_guard guard(m_mutex);
        m_lines.push_back({channel, text, function, file, line});
    }
    void Flush() override {}
    void Attach(bool attach) override {
        const std::lock_guard guard(m_mutex);
        m_attachCalls += attach ? "+" : "-";
    }

    void Clear() {
        const std::lock_guard guard(m_mutex);
        m_lines.clear();
        m_enabled = true;
    }
    void Enable(bool enabled) {
        const std::lock_guard guard(m_mutex);
        m_enabled = enabled;
    }
    std::vector<LogLine> Lines() const {
        const std::lock_guard guard(m_mutex);
        return m_lines;
    }
    // "channel: text" of every line; with channels named, of the lines on those.
    support::Lines Texts(std::initializer_list<std::string_view> channels = {}) const {
        support::Lines texts;
        for (const LogLine& line : Lines()) {
            if (channels.size() == 0 || std::ranges::count(channels, line.channel) != 0)
                texts.push_back(line.channel + ": " + line.text);
        }
        return texts;
    }
    // "+" for each Attach(true), "-" for each Attach(false).
    std::string AttachCalls() const {
        const std::lock_guard guard(m_mutex);
        return m_attachCalls;
    }

private:
    RecordingLog() = default;
    static ILogEngine* Get() { return instance; }
    static inline RecordingLog* instance = nullptr;

    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
    std::string m_attachCalls;
    bool m_enabled = true;
};

} // namespace support
