// Every limit and every deadline of the host's web server, in one place.
#pragma once

#include <chrono>
#include <cstddef>

namespace host {

struct Limits {
    // What one login and one address may have at a time: pictures packed for viewing phones and pages, live
    // streams of other kinds, and archives that are being built.
    std::size_t maxViewersPerLogin = 32;
    std::size_t maxViewersPerAddress = 300;
    std::size_t maxStreamsPerLogin = 64;
    std::size_t maxStreamsPerAddress = 600;
    std::size_t maxArchivesPerLogin = 2;
    std::size_t maxArchivesPerAddress = 16;

    // Connections that the web server holds at once; an upload stops counting once it is handed over. Many
    // phones of one mobile network, or of one proxy, come from one address, hence its generous share.
    std::size_t maxConnections = 1024;
    std::size_t maxPerAddress = 640;

    // From the first moment of a connection, or from the end of the last answer, until the head is complete.
    std::chrono::milliseconds headDeadline{5000};
    // From the end of an upload's head until its authentication record is there.
    std::chrono::milliseconds recordDeadline{5000};
    // From the end of a head until the body of a request is there.
    std::chrono::milliseconds bodyDeadline{15000};
    // How long a reader may take nothing at all before it is dropped.
    std::chrono::milliseconds writeStall{10000};
    // How long a page may leave a picture unacknowledged.
    std::chrono::milliseconds ackDeadline{10000};
    // Without a picture for this long a watcher is shown that there is none.
    std::chrono::milliseconds staleAfter{3000};
    // Older than this a picture is no answer to "what does the camera see".
    std::chrono::milliseconds snapshotAge{10000};
    // The heartbeat of the multiplexed stream.
    std::chrono::milliseconds stateInterval{1000};
    // How far away the turn of a password may be before its sender is turned away at once: a few of the
    // longest distances between turns, so that somebody who guesses over a few connections does not keep the
    // owner of the same login out.
    std::chrono::milliseconds maxThrottleWait{16000};
};

inline constexpr std::size_t kMaxHeadBytes = 16 * 1024;
inline constexpr std::size_t kMaxTargetBytes = 2048;
// A settings document of ten thousand cameras takes 5.3 MB; this is as much as a document may have at all.
inline constexpr std::size_t kMaxBodyBytes = 16 * 1024 * 1024;
// A form with a name, passwords and a path.
inline constexpr std::size_t kMaxFormBytes = 8 * 1024;
// A batch of changes of the interface for programs: some ten thousand cameras.
inline constexpr std::size_t kMaxApiBodyBytes = 1024 * 1024;
// A picture of a phone's page: what the phones' own protocol has room for.
inline constexpr std::size_t kMaxPhonePictureBytes = 65535;
// Connections beyond the limits, in all and of one address, that are asked for a moment whether they are a
// supervisor's: it must not take a crowd for a dead server.
inline constexpr std::size_t kProbePlaces = 16;
inline constexpr std::size_t kProbesPerAddress = 2;
inline constexpr std::chrono::milliseconds kProbeDeadline{1000};
inline constexpr unsigned kMaxRequestsPerConnection = 1000;
// Messages of the page on the multiplexed stream are short; a list of tiles is the longest.
inline constexpr std::size_t kMaxPageMessageBytes = 16 * 1024;
// Kernel buffer towards a watcher: small, so that what waits in it is a fraction of a second.
inline constexpr int kWatcherSendBuffer = 64 * 1024;
// Connections that the system holds until they are accepted, as many as it grants (net.core.somaxconn): when
// thousands of phones come back at once, the handshake that finds no place is repeated after a second, then
// after two and four, and whoever asks for a page meanwhile waits as long.
inline constexpr int kListenBacklog = 65535;

} // namespace host
