// Where the host keeps what it knows: values by their keys, each with the revision that it has.
//
// A store is one bucket, that is, the things of one kind: users, sessions, tokens, phones, links, cameras,
// preferences. A host by itself keeps each in a file of its data folder; hosts that are one server share
// them. A table that stands on a store has the rules, and in its memory what each request needs; the store
// has the entries, and knows nothing of what they mean.
//
// The settings and the preferences of a host by itself stand in no store: the component writes its document
// itself, and takes all of a save or none of it, in the order that it was given; and a change of either is in
// force also where the disk did not take it, and is written later. None of that is so of entries that are
// changed one by one. Hosts that share them put them into stores first, and both files follow.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

// Any thread, and several at a time. Where it says nothing else, a call may wait, kLongestWait in all, though
// not while the store knows that it cannot be reached: none is made under a lock that a request or a picture
// waits for.
class Store {
public:
    // Grows with each change of a key, whoever makes it; 0: the key is not there.
    using Revision = std::uint64_t;
    // Keys are any bytes, 1 to kMaxKeyBytes of them; values any bytes, none to kMaxValueBytes.
    static constexpr std::size_t kMaxKeyBytes = 1024;
    static constexpr std::size_t kMaxValueBytes = 1'000'000;
    static constexpr std::chrono::seconds kLongestWait{5};

    struct Entry {
        std::string value;
        Revision revision = 0;
        friend bool operator==(const Entry&, const Entry&) = default;
    };

    enum class Result {
        Done,
        Conflict,    // somebody else has changed the key; nothing was done
        Unreachable, // not written, or not known to be; may be tried again. A watch tells what became of it
        Refused      // not written, and would not be another time: a key or a value beyond its limits
    };
    struct Change {
        std::string key;
        std::optional<std::string> value{}; // nothing: the entry goes
        Revision follows = 0; // the revision that is to be changed; 0: there is none, or none any more
    };
    struct Outcome {
        Result result = Result::Done;
        Revision revision = 0;          // with Done: of what was put; 0 of what was removed
        std::optional<Entry> present{}; // with Conflict: what is there; nothing where nothing is
        std::string why{};              // with Unreachable and Refused: a line for the log
    };
    struct Reading {
        Result result = Result::Done; // or Unreachable
        std::optional<Entry> entry{}; // nothing where nothing is there
        std::string why{};
    };

    Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    virtual ~Store() = default;

    // As it is now, for everybody.
    [[nodiscard]] virtual Reading Get(std::string_view key) = 0;
    // Each change by itself: those that nobody came before are carried out, whatever becomes of the others.
    // No two are of one key. One outcome each, in the same order.
    [[nodiscard]] virtual std::vector<Outcome> Write(std::span<const Change> changes) = 0;
    [[nodiscard]] Outcome Put(std::string key, std::string value, Revision follows) {
        const Change change{std::move(key), std::move(value), follows};
        return Write({&change, 1}).front();
    }
    [[nodiscard]] Outcome Remove(std::string key, Revision follows) {
        const Change change{std::move(key), std::nullopt, follows};
        return Write({&change, 1}).front();
    }

    struct Update {
        std::string key;
        std::optional<std::string> value{}; // nothing: it is gone
        Revision revision = 0;              // of what was put; with what is gone, one above the last it had
    };
    // The first call has all that is there, be it nothing; those behind it have what has changed since, the
    // changes of one key in their order. Between two calls some may have been left out, but never the last
    // one of a key. The changes of one's own come as well, and one may come again: its revision tells. One
    // call at a time, from a thread of the store, or from one that is in Watch, Refresh or Write; it must not
    // call the store.
    using Listener = std::function<void(std::span<const Update> updates)>;
    // Until it is let go of, which waits for a call that is running. The store outlives it.
    using Watching = std::shared_ptr<const void>;
    // A file has made the first call when this returns; a store that others share makes it once it has been
    // read.
    [[nodiscard]] virtual Watching Watch(Listener listener) = 0;
    // Others put entries there while this host runs, whole buckets in no order towards each other.
    [[nodiscard]] virtual bool IsShared() const noexcept { return true; }
    // Looks whether somebody else has changed what is there, where nobody tells so. Waits for nothing, and
    // costs next to nothing where nobody has.
    virtual void Refresh() {}
};

} // namespace host
