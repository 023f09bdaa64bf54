// A subscriber that writes down what it hears: "+name" and "-name".
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "interfaces/IVideoSource.h"
#include "platform/text.h"
#include "support/Fake.h"

namespace support {

class RecordingVideoSink : public Fake<IVideoSourceSink> {
public:
    std::vector<std::string> Take() {
        const std::lock_guard guard(m_mutex);
        return std::exchange(m_heard, {});
    }

    HRESULT m_removedResult = S_OK;
    std::function<void(BSTR)> m_onAdded;

    HRESULT OnCamAdded(BSTR name) override {
        Note('+', name);
        if (m_onAdded)
            m_onAdded(name);
        return E_FAIL; // nobody acts on it
    }
    HRESULT OnCamRemoved(BSTR name) override {
        Note('-', name);
        return m_removedResult;
    }

protected:
    ~RecordingVideoSink() = default;

private:
    void Note(char what, BSTR name) {
        const std::lock_guard guard(m_mutex);
        m_heard.push_back(what + platform::ToUtf8(platform::ViewOf(name)));
    }

    std::mutex m_mutex;
    std::vector<std::string> m_heard;
};

using RecordingVideoSinkObject = platform::ComObject<RecordingVideoSink>;

} // namespace support
