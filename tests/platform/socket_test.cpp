#include "platform/socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <future>
#include <latch>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/status.h"
#include "platform/threads.h"
#include "support/TcpPair.h"
#include "support/Wait.h"

namespace {

using platform::kSocketError;

enum class Transport { Local, Tcp };

// Two connected descriptors; the receiver of the pair closes them.
std::pair<support::Descriptor, support::Descriptor> MakeConnection(Transport transport) {
    if (transport == Transport::Tcp) {
        support::TcpPair pair;
        return {std::move(pair.near), support::Descriptor(::dup(pair.far.Get()))};
    }
    int ends[2];
    support::Must(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
    return {support::Descriptor(ends[0]), support::Descriptor(ends[1])};
}

// Waits until the thread of that number sleeps in the system.
bool WaitUntilBlocked(std::uint32_t threadId) {
    const std::string path = "/proc/self/task/" + std::to_string(threadId) + "/stat";
    return support::Eventually([&] {
        std::string line;
        std::getline(std::ifstream(path), line);
        const auto name = line.rfind(") ");
        return name != std::string::npos && line[name + 2] == 'S';
    });
}

std::size_t CountDescriptors() {
    const auto files = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

// A handle and the plain descriptor of its peer.
struct Connection {
    explicit Connection(Transport transport) {
        auto [ours, theirs] = MakeConnection(transport);
        descriptor = ours.Release();
        peer = theirs.Release();
    }
    ~Connection() {
        platform::closesocket(handle);
        ::close(peer);
    }
    void Adopt() { handle = platform::AdoptSocket(descriptor); }

    int descriptor = -1;
    int peer = -1;
    SOCKET handle = INVALID_SOCKET;
};

struct Outcome {
    int result;
    std::uint32_t error;
};

// Runs one blocking call on another thread, waits until it blocks, then does `interfere`.
template <class Call, class Interfere>
Outcome RunBlocked(Call call, Interfere interfere) {
    std::atomic<std::uint32_t> threadId{0};
    std::atomic<pthread_t> thread{};
    auto outcome = std::async(std::launch::async, [&] {
        thread = ::pthread_self();
        threadId = platform::CurrentThreadId();
        const int result = call();
        return Outcome{result, platform::LastSocketError()};
    });
    while (threadId == 0)
        std::this_thread::yield();
    EXPECT_TRUE(WaitUntilBlocked(threadId));
    interfere(thread.load());
    return outcome.get();
}

class SocketTest : public testing::TestWithParam<Transport> {
protected:
    void SetUp() override { m_descriptorsBefore = CountDescriptors(); }
    void TearDown() override {
        EXPECT_EQ(platform::OpenSocketCount(), 0U);
        EXPECT_EQ(CountDescriptors(), m_descriptorsBefore) << "a descriptor is lost";
    }

private:
    std::size_t m_descriptorsBefore = 0;
};

INSTANTIATE_TEST_SUITE_P(Transports, SocketTest, testing::Values(Transport::Local, Transport::Tcp),
                         [](const auto& row) { return row.param == Transport::Tcp ? "Tcp" : "Local"; });

TEST_P(SocketTest, CarriesBytesUntilThePeerCloses) {
    Connection connection(GetParam());
    connection.Adopt();
    EXPECT_TRUE((::fcntl(connection.descriptor, F_GETFD) & FD_CLOEXEC) != 0);
    platform::SetLastError(4711);

    // More than the buffers between the two hold, so send has to go on after a part.
    const std::string sent(std::size_t{8} << 20, 'm');
    auto received = std::async(std::launch::async, [&] {
        std::string bytes(sent.size(), '\0');
        const ssize_t count = ::recv(connection.peer, bytes.data(), bytes.size(), MSG_WAITALL);
        bytes.resize(static_cast<std::size_t>(count));
        return bytes;
    });
    EXPECT_EQ(platform::send(connection.handle, sent.data(), static_cast<int>(sent.size()), 0),
              static_cast<int>(sent.size()));
    EXPECT_TRUE(received.get() == sent);

    char buffer[16];
    ASSERT_EQ(::send(connection.peer, "grant", 5, 0), 5);
    EXPECT_EQ(platform::recv(connection.handle, buffer, 0, 0), 0) << "asks for nothing, waits for nothing";
    EXPECT_EQ(platform::recv(connection.handle, buffer, sizeof buffer, 0), 5);
    ::shutdown(connection.peer, SHUT_WR);
    EXPECT_EQ(platform::recv(connection.handle, buffer, sizeof buffer, 0), 0);
    EXPECT_EQ(platform::LastError(), 4711U) << "success leaves the last error alone";
}

TEST_P(SocketTest, CloseEndsABlockedReceive) {
    Connection connection(GetParam());
    connection.Adopt();
    char byte;
    const Outcome outcome =
        RunBlocked([&] { return platform::recv(connection.handle, &byte, 1, 0); },
                   [&](pthread_t) { EXPECT_EQ(platform::closesocket(connection.handle), 0); });
    EXPECT_EQ(outcome.result, kSocketError);
    EXPECT_EQ(outcome.error, platform::kSocketInterrupted);
    EXPECT_EQ(::recv(connection.peer, &byte, 1, 0), 0) << "the peer sees the end";
}

TEST_P(SocketTest, CloseEndsABlockedSend) {
    Connection connection(GetParam());
    ASSERT_EQ(::fcntl(connection.descriptor, F_SETFL, O_NONBLOCK), 0);
    // Until nothing fits any more; the system moves bytes between the two buffers for a moment.
    for (int refusals = 0; refusals < 3;) {
        if (::send(connection.descriptor, "x", 1, 0) < 0) {
            ASSERT_EQ(errno, EAGAIN);
            ++refusals;
            platform::Sleep(20);
        }
    }
    connection.Adopt();
    const std::string bytes(std::size_t{16} << 20, 'm');
    const int size = static_cast<int>(bytes.size());
    const Outcome outcome =
        RunBlocked([&] { return platform::send(connection.handle, bytes.data(), size, 0); },
                   [&](pthread_t) { EXPECT_EQ(platform::closesocket(connection.handle), 0); });
    if (outcome.result == kSocketError)
        EXPECT_EQ(outcome.error, platform::kSocketInterrupted);
    else
        EXPECT_TRUE(outcome.result > 0 && outcome.result < size) << outcome.result;
    // The descriptor went with its last user: behind what was under way stands the end.
    std::string rest(size, '\0');
    EXPECT_LT(::recv(connection.peer, rest.data(), rest.size(), MSG_WAITALL), size);
}

TEST_P(SocketTest, SignalsDoNotEndAWait) {
    struct sigaction action {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    struct sigaction before {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
    Connection connection(GetParam());
    connection.Adopt();
    char byte = 0;
    const Outcome outcome = RunBlocked([&] { return platform::recv(connection.handle, &byte, 1, 0); },
                                       [&](pthread_t thread) {
                                           ::pthread_kill(thread, SIGUSR1);
                                           platform::Sleep(20);
                                           EXPECT_EQ(::send(connection.peer, "s", 1, 0), 1);
                                       });
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(byte, 's');
    ::sigaction(SIGUSR1, &before, nullptr);
}

TEST_P(SocketTest, SendToAPeerThatLeftFailsWithoutASignal) {
    Connection connection(GetParam());
    connection.Adopt();
    ::close(std::exchange(connection.peer, -1));
    int result = 0;
    for (int n = 0; n < 100 && result != kSocketError; ++n) {
        result = platform::send(connection.handle, "late", 4, 0);
        platform::Sleep(1);
    }
    EXPECT_EQ(result, kSocketError);
    const std::uint32_t error = platform::LastSocketError();
    EXPECT_TRUE(error == platform::kSocketShutdown || error == platform::kSocketConnectionReset) << error;
}

TEST_P(SocketTest, RefusesWhatIsNoOpenHandle) {
    Connection connection(GetParam());
    connection.Adopt();
    Connection closed(GetParam());
    closed.Adopt();
    ASSERT_EQ(platform::closesocket(closed.handle), 0);
    Connection reused(GetParam()); // in the slot of the closed one
    reused.Adopt();
    ASSERT_EQ(reused.handle & 0xFFFFFFFF, closed.handle & 0xFFFFFFFF);
    const SOCKET bad[] = {0,
                          INVALID_SOCKET,
                          closed.handle,
                          SOCKET{1} << 32 | 0xFFFF,
                          connection.handle + (SOCKET{1} << 32),
                          connection.handle & 0xFFFFFFFF};
    char byte = 0;
    for (const SOCKET handle : bad) {
        const auto refused = [&](int result) {
            return result == kSocketError && platform::LastSocketError() == platform::kSocketNotASocket;
        };
        EXPECT_TRUE(refused(platform::recv(handle, &byte, 1, 0))) << handle;
        EXPECT_TRUE(refused(platform::send(handle, &byte, 1, 0))) << handle;
        EXPECT_TRUE(refused(platform::closesocket(handle))) << handle;
        platform::SetLastError(0);
    }

    const struct {
        void* buffer;
        int size;
        int flags;
        std::uint32_t error;
    } arguments[] = {{&byte, -1, 0, platform::kSocketInvalid},
                     {&byte, 1, MSG_PEEK, platform::kSocketInvalid},
                     {nullptr, 1, 0, platform::kSocketFault}};
    for (const auto& a : arguments) {
        EXPECT_EQ(platform::recv(connection.handle, a.buffer, a.size, a.flags), kSocketError);
        EXPECT_EQ(platform::LastSocketError(), a.error);
        EXPECT_EQ(platform::send(connection.handle, a.buffer, a.size, a.flags), kSocketError);
        EXPECT_EQ(platform::LastSocketError(), a.error);
    }
}

TEST(AdoptSocketTest, ClosesWhatItRefuses) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const struct {
        int descriptor;
        std::uint32_t error;
    } rows[] = {{-1, platform::kSocketNotASocket},
                {pipe[0], platform::kSocketNotASocket},
                {::socket(AF_INET, SOCK_DGRAM, 0), platform::kSocketInvalid}};
    for (const auto& row : rows) {
        EXPECT_EQ(platform::AdoptSocket(row.descriptor), INVALID_SOCKET);
        EXPECT_EQ(platform::LastSocketError(), row.error);
        EXPECT_EQ(::fcntl(row.descriptor, F_GETFD), -1) << "left open";
    }
    ::close(pipe[1]);
}

// Every message on a connection is that connection's own handle. Readers use handles that are being closed
// and whose slots and descriptors are taken by new connections at the same time.
TEST(SocketRaceTest, NoByteOfANewConnectionReachesAnOldHandle) {
    constexpr int kLanes = 2;
    constexpr int kReadersPerLane = 3;
    constexpr int kConnectionsPerLane = 1500;
    constexpr int kMessages = 4;
    const std::size_t descriptorsBefore = CountDescriptors();
    std::array<std::atomic<SOCKET>, kLanes> current{};
    std::atomic<int> lanesAtWork{kLanes};
    std::atomic<std::uint64_t> received{0};
    std::atomic<std::uint64_t> foreign{0};
    std::atomic<std::uint64_t> wrongEnds{0};

    {
        std::vector<std::jthread> threads;
        for (auto& lane : current) {
            threads.emplace_back([&] {
                int oldPeer = -1;
                for (int n = 0; n <= kConnectionsPerLane; ++n) {
                    SOCKET handle = 0; // at the end there is none
                    int peer = -1;
                    if (n < kConnectionsPerLane) {
                        auto [ours, theirs] = MakeConnection(Transport::Local);
                        peer = theirs.Release();
                        handle = platform::AdoptSocket(ours.Release());
                        for (int m = 0; m < kMessages; ++m)
                            ASSERT_EQ(::send(peer, &handle, sizeof handle, MSG_NOSIGNAL),
                                      ssize_t{sizeof handle});
                    }
                    const SOCKET old = lane.exchange(handle);
                    ASSERT_EQ(platform::closesocket(old), n == 0 ? kSocketError : 0);
                    ::close(oldPeer);
                    oldPeer = peer;
                    std::this_thread::yield();
                }
                --lanesAtWork;
            });
            for (int n = 0; n < kReadersPerLane; ++n) {
                threads.emplace_back([&] {
                    while (lanesAtWork > 0) {
                        const SOCKET handle = lane;
                        SOCKET message = 0;
                        const int count = platform::recv(handle, &message, sizeof message, 0);
                        if (count == static_cast<int>(sizeof message)) {
                            ++received;
                            foreign += message != handle;
                            continue;
                        }
                        const std::uint32_t error = platform::LastSocketError();
                        wrongEnds += count != kSocketError || (error != platform::kSocketInterrupted &&
                                                               error != platform::kSocketNotASocket);
                    }
                });
            }
        }
    }
    EXPECT_GT(received, 0U);
    EXPECT_EQ(foreign, 0U);
    EXPECT_EQ(wrongEnds, 0U);
    EXPECT_EQ(platform::OpenSocketCount(), 0U);
    EXPECT_EQ(CountDescriptors(), descriptorsBefore);
}

} // namespace
