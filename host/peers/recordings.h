// Looking back over all hosts of a cluster. A camera's recordings stay on the hosts that its phone was
// connected to; whoever looks back at any host sees them as one.
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/base/cluster.h"
#include "host/base/store_mirror.h"
#include "host/peers/recording_answers.h"
#include "host/peers/talk.h"
#include "host/recordings/source.h"

namespace host {

// Numbers of cameras and files are the same at every host: behind a mark of the host that has them stand
// those that it uses itself.
//
// What other hosts have is asked for while somebody looks back. What a host had is also kept in a store, for
// as long as it is away: that is shown as a gap that may come back.
class SharedRecordings final : public RecordingSource {
public:
    struct Parts {
        RecordingSource& local;
        Cluster& cluster;
        std::string node;                               // this host's name
        std::function<std::vector<std::string>()> live; // the hosts that live
        std::shared_ptr<Store> catalogues;              // a host's name and what it has recorded
    };
    explicit SharedRecordings(Parts parts);
    ~SharedRecordings() override;

    [[nodiscard]] std::vector<RecordedCamera> Cameras() const override;
    [[nodiscard]] std::vector<ListedCamera> Listed() const override;
    [[nodiscard]] std::optional<TimeSpan> Extent(std::int64_t camera) const override;
    [[nodiscard]] RecordedTimes Times(std::int64_t camera, TimeSpan span, UnixMs gap,
                                      bool ofAll) const override;
    [[nodiscard]] std::optional<RecordedPicture> Picture(std::int64_t camera, UnixMs time, int step,
                                                         std::int64_t file) const override;
    [[nodiscard]] RecordedRange Range(std::int64_t camera, TimeSpan span) const override;
    [[nodiscard]] std::unique_ptr<StoredFile> Open(FileKey key) const override;
    Kept KeepFiles(std::int64_t camera, TimeSpan span, bool keep) override;

private:
    struct Catalogue {
        std::vector<ListedCamera> cameras;
        bool away = false; // the host does not answer
    };
    using Catalogues = std::map<std::string, Catalogue>; // by the host's name; of others
    // What one host has of a camera.
    struct Share {
        std::string node; // empty: this one
        std::int64_t camera = 0;
        TimeSpan extent;
        bool away = false;
    };

    [[nodiscard]] std::shared_ptr<const Catalogues> Others() const;
    [[nodiscard]] Catalogues AskOthers() const;
    void NoteAway(const std::string& node) const;
    [[nodiscard]] std::vector<Share> SharesOf(std::int64_t camera) const;
    // Asks the hosts of these shares, this one as well, and has the answers in the shares' order; nothing of
    // those that are away.
    template <typename Answer, typename Here, typename There>
    [[nodiscard]] std::vector<std::optional<Answer>> AskShares(const std::vector<Share>& shares,
                                                               const Here& here, const There& question,
                                                               Answer (*read)(const PeerDocument&)) const;
    void KeepCatalogue();

    const Parts m_parts;
    const PeerAsker m_asker;
    RecordingAnswers m_answers;
    mutable std::mutex m_mutex; // the members down to the next blank line
    mutable std::condition_variable m_looked;
    mutable std::shared_ptr<const Catalogues> m_others = std::make_shared<const Catalogues>();
    mutable Clock::time_point m_nextLook{};
    mutable bool m_looking = false;
    mutable StoreMirror m_kept;

    Wakeup m_stop;
    std::thread m_keeper;
    PeerAnswerer m_answerer; // last: it uses the above
};

} // namespace host
