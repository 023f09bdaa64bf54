#include "host/recordings/recorder.h"

#include <utility>

#include "host/recordings/recorder_writer.h"

namespace host {
namespace {

class RecorderTap : public PictureTap {
public:
    RecorderTap(std::shared_ptr<PictureQueue> queue, RecorderChannelPtr channel)
        : m_queue(std::move(queue)), m_channel(std::move(channel)) {}

    void OnPicture(const kit::PicturePtr& picture, std::uint64_t connection) noexcept override {
        if (m_channel->mode.load(std::memory_order_relaxed) != RecordMode::Off &&
            !m_queue->Push(m_channel, picture, connection))
            m_channel->dropped.fetch_add(1, std::memory_order_relaxed);
    }
    [[nodiscard]] bool Watches() const noexcept override {
        return m_channel->mode.load(std::memory_order_relaxed) != RecordMode::Off;
    }

private:
    const std::shared_ptr<PictureQueue> m_queue;
    const RecorderChannelPtr m_channel;
};

} // namespace

Recorder::Recorder(Library& library, Disk& disk, TellRecordingNews tell, const RecorderLimits& limits)
    : m_library(library), m_queue(std::make_shared<PictureQueue>(limits)),
      m_writer(std::make_unique<RecorderWriter>(library, disk, std::move(tell), limits)),
      m_thread([this] { m_writer->Run(*m_queue); }) {
    m_library.OnEndWanted([queue = m_queue](FileKey key) {
        RecorderItem item;
        item.kind = RecorderItem::Kind::EndFile;
        item.file = key;
        queue->Tell(std::move(item));
    });
}

Recorder::~Recorder() {
    m_library.OnEndWanted(nullptr);
    m_queue->Close();
    m_thread.join();
}

RecorderChannelPtr Recorder::ChannelOf(const std::string& camera) {
    return m_channels.FindOrMake(camera, [&] {
        auto channel = std::make_shared<RecorderChannel>(camera);
        if (const auto mode = m_modes.find(camera); mode != m_modes.end())
            channel->mode = mode->second;
        return channel;
    });
}

std::shared_ptr<PictureTap> Recorder::TapOf(const std::string& camera) {
    const std::lock_guard guard(m_mutex);
    return std::make_shared<RecorderTap>(m_queue, ChannelOf(camera));
}

void Recorder::SetModes(std::map<std::string, RecordMode, std::less<>> modes) {
    const std::lock_guard guard(m_mutex);
    m_modes = std::move(modes);
    m_channels.ForEach([this](const std::string& camera, const RecorderChannelPtr& channel) {
        const auto found = m_modes.find(camera);
        const RecordMode mode = found != m_modes.end() ? found->second : RecordMode::Off;
        if (channel->mode.exchange(mode) == mode)
            return;
        RecorderItem item;
        item.kind = RecorderItem::Kind::ModeChanged;
        item.channel = channel;
        m_queue->Tell(std::move(item));
    });
}

void Recorder::MotionBegan(const std::string& camera) {
    Tell(RecorderItem::Kind::MotionBegan, camera);
}

void Recorder::MotionEnded(const std::string& camera) {
    Tell(RecorderItem::Kind::MotionEnded, camera);
}

void Recorder::Tell(RecorderItem::Kind kind, const std::string& camera) {
    RecorderItem item;
    item.kind = kind;
    const std::lock_guard guard(m_mutex);
    item.channel = ChannelOf(camera);
    m_queue->Tell(std::move(item));
}

std::vector<CameraRecording> Recorder::Figures() const {
    std::vector<CameraRecording> all;
    const std::lock_guard guard(m_mutex);
    m_channels.ForEach([&all](const std::string& camera, const RecorderChannelPtr& channel) {
        if (channel->mode == RecordMode::Off && channel->pictures == 0)
            return;
        all.push_back({.camera = camera,
                       .recording = channel->recording,
                       .pictures = channel->pictures,
                       .bytes = channel->bytes,
                       .dropped = channel->dropped});
    });
    return all;
}

std::string Recorder::PausedBecause() const {
    return m_writer->PausedBecause();
}

void Recorder::Settle() {
    m_queue->Settle();
}

} // namespace host
