// Frames, and a camera's video source, without the component.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "image/FrameBlock.h"
#include "interfaces/ICam.h"
#include "interfaces/ICamSettings.h"
#include "interfaces/IReceivedPicture.h"
#include "interfaces/IVideoSource.h"
#include "platform/text.h"
#include "support/Fake.h"

namespace support {

// A frame block as the component makes it, with every plane at one value.
inline std::string MakeBlock(int width, int height, bool grey = false, int luma = 128, int cr = 128,
                             int cb = 128) {
    const std::size_t area = width * height;
    const BITMAPINFOHEADER header = FrameLayout{grey ? ImageKindGrey : ImageKindYV12, width, height}.Header();
    std::string block(reinterpret_cast<const char*>(&header), sizeof header);
    block.append(area, static_cast<char>(luma));
    if (!grey)
        block.append(area / 4, static_cast<char>(cr)).append(area / 4, static_cast<char>(cb));
    return block.append(sizeof header + header.biSizeImage - block.size(), '\0');
}

class Frame : public Fake<IVideoFrame> {
public:
    // An empty block is a picture that could not be decoded.
    explicit Frame(std::string block) : m_block(std::move(block)) {}

    HRESULT GetFrameContent(std::uint8_t** bitmap, std::uint32_t* size) override {
        if (m_block.empty())
            return E_UNEXPECTED;
        *bitmap = static_cast<std::uint8_t*>(CoTaskMemAlloc(m_block.size()));
        std::memcpy(*bitmap, m_block.data(), m_block.size());
        *size = static_cast<std::uint32_t>(m_block.size());
        return S_OK;
    }
    HRESULT Reserved() override { return E_NOTIMPL; }
    HRESULT GetFrameTag(std::uint32_t*) override { return E_NOTIMPL; }

protected:
    ~Frame() = default;

private:
    const std::string m_block;
};

// A frame as the component gives it: block and file are lent.
class LentFrame : public Fake<IVideoFrame, IReceivedPicture> {
public:
    LentFrame(std::string block, std::string file, std::int64_t monotonic, std::int64_t utc)
        : m_block(std::move(block)), m_file(std::move(file)), m_monotonic(monotonic), m_utc(utc) {}

    HRESULT GetFrameContent(std::uint8_t**, std::uint32_t*) override {
        ADD_FAILURE() << "nothing is to be copied";
        return E_UNEXPECTED;
    }
    HRESULT Reserved() override { return E_NOTIMPL; }
    HRESULT GetFrameTag(std::uint32_t*) override { return E_NOTIMPL; }
    HRESULT GetFile(const std::uint8_t** bytes, std::uint32_t* size) override {
        return Lend(m_file, bytes, size);
    }
    HRESULT GetArrival(std::int64_t* monotonic, std::int64_t* utc) override {
        *monotonic = m_monotonic;
        *utc = m_utc;
        return S_OK;
    }
    HRESULT GetFrameBlock(const std::uint8_t** bytes, std::uint32_t* size) override {
        return m_block.empty() ? E_UNEXPECTED : Lend(m_block, bytes, size);
    }
    static inline std::atomic<int> s_alive{0};

protected:
    ~LentFrame() { --s_alive; }

private:
    static HRESULT Lend(const std::string& from, const std::uint8_t** bytes, std::uint32_t* size) {
        *bytes = reinterpret_cast<const std::uint8_t*>(from.data());
        *size = static_cast<std::uint32_t>(from.size());
        return S_OK;
    }
    const std::string m_block, m_file;
    const std::int64_t m_monotonic, m_utc;
    const int m_counted = ++s_alive;
};

// A camera that takes one sink and says whether its phone is there.
class Cam : public Fake<ICam, ICamSettings> {
public:
    // Hands a block to the sink, as the thread that receives frames does.
    void Show(std::string block) {
        const std::lock_guard guard(m_mutex);
        if (m_sink)
            m_sink->OnVideoFrame(platform::ComObject<Frame>::Create(std::move(block)).Get());
    }
    void SetPhone(bool there) {
        const std::lock_guard guard(m_mutex);
        m_phone = there;
    }
    [[nodiscard]] bool HasSink() const {
        const std::lock_guard guard(m_mutex);
        return static_cast<bool>(m_sink);
    }

    HRESULT Connect(ICamSink* sink) override {
        const std::lock_guard guard(m_mutex);
        if (m_sink && m_sink.Get() != sink)
            return E_UNEXPECTED;
        m_sink = platform::ComPtr<ICamSink>(sink);
        return S_OK;
    }
    HRESULT Disconnect(ICamSink* sink) override {
        const std::lock_guard guard(m_mutex);
        if (!m_sink)
            return S_FALSE;
        if (m_sink.Get() != sink)
            return E_UNEXPECTED;
        m_sink = nullptr;
        return S_OK;
    }
    HRESULT GetSetting(std::int32_t setting, SVariant* value) override {
        if (setting != kCamSettingConnected)
            return E_NOTIMPL;
        const std::lock_guard guard(m_mutex);
        value->vt = VT_BOOL;
        value->boolVal = m_phone ? 1 : 0;
        return S_OK;
    }
    HRESULT Reserved(std::int32_t, const SVariant*) override { return E_NOTIMPL; }

protected:
    ~Cam() = default;

private:
    mutable std::mutex m_mutex;
    platform::ComPtr<ICamSink> m_sink;
    bool m_phone = false;
};
using CamPtr = platform::ComPtr<platform::ComObject<Cam>>;

// Cameras by name. The sink is told by hand.
class VideoSource : public Fake<IVideoSource> {
public:
    CamPtr Put(const std::string& name) {
        const std::lock_guard guard(m_mutex);
        return m_cams[name] = platform::ComObject<Cam>::Create();
    }

    HRESULT Subscribe(IVideoSourceSink*) override { return E_NOTIMPL; }
    HRESULT Unsubscribe(IVideoSourceSink*) override { return E_NOTIMPL; }
    HRESULT ConnectToCam(BSTR name, ICam** cam) override {
        const std::lock_guard guard(m_mutex);
        const auto found = m_cams.find(platform::ToUtf8(platform::ViewOf(name)));
        if (found == m_cams.end())
            return E_FAIL;
        found->second->AddRef();
        *cam = found->second.Get();
        return S_OK;
    }
    HRESULT NoOperation(BSTR) override { return S_OK; }
    HRESULT RemoveCam(BSTR) override { return E_NOTIMPL; }

protected:
    ~VideoSource() = default;

private:
    std::mutex m_mutex;
    std::map<std::string, CamPtr> m_cams;
};
using VideoSourcePtr = platform::ComPtr<platform::ComObject<VideoSource>>;

} // namespace support
