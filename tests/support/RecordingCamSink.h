// A camera's sink that counts what it is given and keeps the sizes.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "interfaces/ICam.h"
#include "support/Fake.h"

namespace support {

class RecordingCamSink : public Fake<ICamSink> {
public:
    // One entry a call: the block's size in bytes, 0 for a frame without content, -1 for no frame.
    std::vector<long> Calls() const {
        const std::lock_guard guard(m_mutex);
        return m_calls;
    }
    std::size_t Count() const { return Calls().size(); }

    // What each call answers, and what it does first.
    std::atomic<HRESULT> m_result{S_OK};
    std::function<void(IVideoFrame*)> m_onFrame;

    HRESULT OnVideoFrame(IVideoFrame* frame) override {
        long size = -1;
        if (frame != nullptr) {
            std::uint8_t* bytes = nullptr;
            std::uint32_t count = 0;
            size = SUCCEEDED(frame->GetFrameContent(&bytes, &count)) ? static_cast<long>(count) : 0;
            CoTaskMemFree(bytes);
        }
        {
            const std::lock_guard guard(m_mutex);
            m_calls.push_back(size);
        }
        if (m_onFrame)
            m_onFrame(frame);
        return m_result;
    }

protected:
    ~RecordingCamSink() = default;

private:
    mutable std::mutex m_mutex;
    std::vector<long> m_calls;
};

using RecordingCamSinkObject = platform::ComObject<RecordingCamSink>;

} // namespace support
