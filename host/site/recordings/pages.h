// What was recorded, for people and programs: which cameras and when, single pictures, and parts of it as
// files.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/wait.h"
#include "host/events/event_log.h"
#include "host/http/answer.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"
#include "host/recordings/source.h"
#include "host/site/recordings/export.h"
#include "host/users/authenticator.h"
#include "host/users/rights.h"

namespace host {

// Who asks.
struct RecordingsVisitor {
    const Rights& rights;
    bool admin = false; // sees what is left of cameras that were removed
};

// "NAME" is percent-encoded in all of them. There may be several cameras of a name, one behind the other: the
// parameter `camera` of the query tells which is meant, without it that of the settings, else the newest. A
// moment is one that ReadMoment reads.
struct RecordingPages {
    RecordingSource* recordings; // null: this server records nothing
    EventLog& events;
    const Limits& limits;
    const Wakeup& stop;
    ExportTable& exports;

    // Which cameras have recordings: {"cameras":[{"id":1,"name":"yard","removed":false,"from":MS,"to":MS}]}.
    [[nodiscard]] Answer List(const RecordingsVisitor& visitor) const;
    // What there is of a camera from `from` to `to` (a day up to now, without them):
    // {"now":MS,"first":MS,"last":MS, "spans":[[MS,MS],...],"motion":[[MS,MS],...],
    //  "kept":[[MS,MS],...],"mayKeep":false,"away":[{"host":"b","from":MS,"to":MS}],
    //  "events":[{"time":MS,"kind":"camera-lost","text":"..."}]}, of events the newest first, without those
    //  of
    // motion; administrators are told what kept all cameras from being recorded, too. What is less than `gap`
    // milliseconds apart is one. With `files` 1 also
    // "files":[{"number":1,"from":MS,"to":MS,"bytes":1,"kept":false}].
    [[nodiscard]] Answer Camera(const RecordingsVisitor& visitor, std::string_view name,
                                const Request& request) const;
    // Keeps the files with a picture from `from` to `to` from being removed, or lets them go: {"files":2}.
    [[nodiscard]] Answer Keep(const RecordingsVisitor& visitor, std::string_view name, const Request& request,
                              const SignIn& by, bool keep) const;
    // /recordings/NAME/at.jpg: the picture of the moment `t`, which is the newest at it, or where none was
    // recorded the nearest within `within` milliseconds, ten seconds without that. With `step` 1 the first
    // behind the moment, with -1 the last before it, however far. X-Picture-Time tells when it was taken,
    // X-Picture-File a number that goes with it: given back as `file`, pictures of a time that was twice have
    // their own order.
    [[nodiscard]] Answer Picture(const RecordingsVisitor& visitor, std::string_view name,
                                 const Request& request) const;
    // /recordings/NAME/export: from `from` to `to` as a file: `form` is "mkv", "zip" for single pictures, or
    // "lapse" for a film that is `speed` times as fast. `id`, a number that the client makes up, names it for
    // the two below. Either what to answer, or the call that sends it on the connection.
    struct Export {
        std::optional<Answer> refused;
        std::function<void(Stream& stream)> send{};
    };
    [[nodiscard]] Export Save(const RecordingsVisitor& visitor, std::string_view name,
                              const Request& request) const;
    // /recordings/NAME/file: the recorded file of a `number`, as `files` of the above tells them, with ranges
    // of bytes. Sent as an export is.
    [[nodiscard]] Export File(const RecordingsVisitor& visitor, std::string_view name,
                              const Request& request) const;
    // {"done":0.5,"ended":null|"whole"|"empty"|"failed"}
    [[nodiscard]] Answer ExportProgress(const Request& request) const;
    [[nodiscard]] Answer StopExport(const Request& request) const;

private:
    [[nodiscard]] bool IsSeen(const RecordingsVisitor& visitor, const RecordedCamera& camera) const;
    [[nodiscard]] std::optional<RecordedCamera> Find(const RecordingsVisitor& visitor, std::string_view name,
                                                     const Request& request) const;
};

} // namespace host
