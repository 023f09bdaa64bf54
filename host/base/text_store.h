// A store in a text file of the data folder: one entry a line, the key up to the first tab, the value behind
// it.
#pragma once

#include <list>
#include <map>
#include <mutex>

#include "host/base/store.h"
#include "host/base/text_table.h"
#include "platform/files.h"

namespace host {

// The file has mode 0600 and is replaced as a whole, so that what Write is given is on the disk when it
// returns: all of it, or nothing. Neither keys nor values have line ends, and keys no tabs and no "#" in
// front.
//
// Any thread. m_mutex is held while the file is written and listeners are called.
class TextStore final : public Store {
public:
    struct Format {
        std::string title; // the first lines of the file, each with "#" in front
        std::string what;  // it is, for errors: "users file"
        std::string key;   // what a key is, for errors: "login"
        // What is wrong with a line; empty: nothing.
        std::function<std::string(const TextLine& line)> check;
        // Going on without a line would lose something: the file is not taken at all. Otherwise the line is
        // left out.
        bool strict = false;
    };
    // Reads the file, which need not be there. With an empty path all is kept in memory alone. Throws
    // StartError for a file that cannot be read or has a line that is wrong, where the format is strict.
    TextStore(std::string path, Format format);

    [[nodiscard]] Reading Get(std::string_view key) override;
    [[nodiscard]] std::vector<Outcome> Write(std::span<const Change> changes) override;
    [[nodiscard]] Watching Watch(Listener listener) override;
    // Reads the file again when somebody has replaced it. One that cannot be read meanwhile, or is wrong,
    // leaves the entries as they are.
    void Refresh() override;
    [[nodiscard]] bool IsShared() const noexcept override { return false; }

private:
    using Entries = std::map<std::string, Entry, std::less<>>;
    using Pending = std::map<std::string_view, const Change*>; // by key
    // A listener as long as somebody wants to hear: m_mutex of the store stands before this one.
    struct Ear {
        std::mutex mutex;
        Listener listener; // empty: let go of
    };

    [[nodiscard]] std::map<std::string, std::string> ReadFile();
    // With m_mutex held.
    [[nodiscard]] std::string ContentWith(const Pending& pending) const;
    void Tell(std::span<const Update> updates);

    const std::string m_path;
    const Format m_format;
    std::mutex m_mutex;   // everything below
    bool m_titled = true; // the file has the title of its format, if it is there
    Entries m_entries;
    Revision m_last = 0; // of all keys
    platform::FileStamp m_stamp{};
    std::list<std::weak_ptr<Ear>> m_ears;
};

} // namespace host
