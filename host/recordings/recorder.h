// Records what cameras send: always, or while something moves.
//
// The threads that receive pictures put them into a queue with a limit and go on. A thread of the recorder's
// own takes from them what may be passed on, as watchers get it, and writes it; when the disk does not keep
// up, pictures are dropped, counted and told.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/base/shared_table.h"
#include "host/feed/picture_tap.h"
#include "host/recordings/library.h"
#include "host/recordings/picture_queue.h"

namespace host {

// Counted since the start. Any thread reads.
struct CameraRecording {
    std::string camera;
    bool recording = false; // a file is open
    std::uint64_t pictures = 0;
    std::uint64_t bytes = 0;   // of pictures
    std::uint64_t dropped = 0; // there was no room for them in the queue
};

class RecorderWriter;

class Recorder : public TapMaker {
public:
    // Both outlive this.
    Recorder(Library& library, Disk& disk, TellRecordingNews tell, const RecorderLimits& limits = {});
    // Ends all files.
    ~Recorder() override;

    // All below: any thread; they wait for no disk.

    std::shared_ptr<PictureTap> TapOf(const std::string& camera) override;
    // What is to be recorded from now on; cameras that are not named are not.
    void SetModes(std::map<std::string, RecordMode, std::less<>> modes);
    // Of cameras that are recorded on motion. What came in the seconds before is recorded, too.
    void MotionBegan(const std::string& camera);
    void MotionEnded(const std::string& camera);

    // In the order of names; of cameras that have been recorded.
    [[nodiscard]] std::vector<CameraRecording> Figures() const;
    // Why nothing is recorded; empty when all is that shall be.
    [[nodiscard]] std::string PausedBecause() const;

    // Returns when all that came before is written; for tests.
    void Settle();

private:
    RecorderChannelPtr ChannelOf(const std::string& camera);
    void Tell(RecorderItem::Kind kind, const std::string& camera);

    Library& m_library;
    const std::shared_ptr<PictureQueue> m_queue; // taps may outlive the recorder
    const std::unique_ptr<RecorderWriter> m_writer;
    mutable std::mutex m_mutex;              // the two below
    SharedTable<RecorderChannel> m_channels; // by camera
    std::map<std::string, RecordMode, std::less<>> m_modes;
    std::thread m_thread;
};

} // namespace host
