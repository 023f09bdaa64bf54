#include "platform/socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
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

std::size_t CountDescriptors() {
    const auto files = std::filesystem::directory_iterator("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

struct Outcome {
    int result;
    std::uint32_t error;
};

class SocketTest : public testing::Test {
protected:
    ~SocketTest() override {
        platform::closesocket(handle);
        pair.far.Close();
        EXPECT_EQ(platform::OpenSocketCount(), 0U);
        EXPECT_EQ(CountDescriptors(), descriptorsBefore) << "a descriptor is lost";
    }

    // Runs one blocking call on another thread, waits until that thread sleeps in the system, and does
    // `interfere`. A call that does not end by that is a failure; the end of the peer then ends it.
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
        EXPECT_TRUE(support::Eventually([&] {
            std::string line;
            std::getline(std::ifstream("/proc/self/task/" + std::to_string(threadId) + "/stat"), line);
            const auto name = line.rfind(") ");
            return name != std::string::npos && line[name + 2] == 'S';
        }));
        interfere(thread.load());
        if (outcome.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
            ADD_FAILURE() << "the call goes on";
            pair.far.Close();
        }
        return outcome.get();
    }

    const std::size_t descriptorsBefore = CountDescriptors();
    support::TcpPair pair;
    const int descriptor = pair.near.Get();
    SOCKET handle = pair.Adopt();
};

TEST_F(SocketTest, CarriesBytesUntilThePeerCloses) {
    EXPECT_TRUE((::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0);
    platform::SetLastError(4711);
    // More than the buffers between the two hold, so send has to go on after a part.
    const std::string sent(std::size_t{8} << 20, 'm');
    auto received = std::async(std::launch::async, [&] { return pair.far.Receive(sent.size()); });
    EXPECT_EQ(platform::send(handle, sent.data(), static_cast<int>(sent.size()), 0),
              static_cast<int>(sent.size()));
    EXPECT_TRUE(received.get() == sent);

    char buffer[16];
    pair.far.Send("grant");
    EXPECT_EQ(platform::recv(handle, buffer, 0, 0), 0) << "asks for nothing, waits for nothing";
    EXPECT_EQ(platform::recv(handle, buffer, sizeof buffer, 0), 5);
    pair.far.FinishSending();
    EXPECT_EQ(platform::recv(handle, buffer, sizeof buffer, 0), 0);
    EXPECT_EQ(platform::LastError(), 4711U) << "success leaves the last error alone";
}

TEST_F(SocketTest, CloseEndsABlockedReceive) {
    char byte;
    const Outcome outcome = RunBlocked([&] { return platform::recv(handle, &byte, 1, 0); },
                                       [&](pthread_t) { EXPECT_EQ(platform::closesocket(handle), 0); });
    EXPECT_EQ(outcome.result, kSocketError);
    EXPECT_EQ(outcome.error, platform::kSocketInterrupted);
    EXPECT_TRUE(pair.far.IsClosed());
}

TEST_F(SocketTest, CloseEndsABlockedSend) {
    const std::string bytes(std::size_t{16} << 20, 'm');
    const int size = static_cast<int>(bytes.size());
    // Until nothing fits any more; the system moves bytes between the two buffers for a moment.
    for (int refusals = 0; refusals < 3; platform::Sleep(20))
        refusals += ::send(descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT) < 0 ? 1 : 0;
    const Outcome outcome = RunBlocked([&] { return platform::send(handle, bytes.data(), size, 0); },
                                       [&](pthread_t) { EXPECT_EQ(platform::closesocket(handle), 0); });
    EXPECT_TRUE(outcome.result == kSocketError ? outcome.error == platform::kSocketInterrupted
                                               : outcome.result > 0 && outcome.result < size)
        << outcome.result;
    // The descriptor went with its last user: behind what was under way stands the end.
    EXPECT_TRUE(pair.far.IsClosed());
}

TEST_F(SocketTest, SignalsDoNotEndAWait) {
    struct sigaction action {};
    action.sa_handler = [](int) {}; // without SA_RESTART
    struct sigaction before {};
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &before), 0);
    char byte = 0;
    const Outcome outcome = RunBlocked([&] { return platform::recv(handle, &byte, 1, 0); },
                                       [&](pthread_t thread) {
                                           ::pthread_kill(thread, SIGUSR1);
                                           platform::Sleep(20);
                                           pair.far.Send("s");
                                       });
    EXPECT_TRUE(outcome.result == 1 && byte == 's') << outcome.result;
    ::sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(SocketTest, SendToAPeerThatLeftFailsWithoutASignal) {
    pair.far.Close();
    EXPECT_TRUE(support::Eventually([&] { return platform::send(handle, "late", 4, 0) == kSocketError; }));
    const std::uint32_t error = platform::LastSocketError();
    EXPECT_TRUE(error == platform::kSocketShutdown || error == platform::kSocketConnectionReset) << error;
}

TEST_F(SocketTest, RefusesWhatIsNoOpenHandle) {
    const SOCKET closed = support::TcpPair().Adopt();
    ASSERT_EQ(platform::closesocket(closed), 0);
    const SOCKET reused = support::TcpPair().Adopt(); // in the slot of the closed one
    ASSERT_EQ(reused & 0xFFFFFFFF, closed & 0xFFFFFFFF);
    pair.far.Send("bytes for who takes a wrong handle, who would wait without");
    char byte = 0;
    for (const SOCKET bad : {SOCKET{0}, INVALID_SOCKET, closed, SOCKET{1} << 32 | 0xFFFF,
                             handle + (SOCKET{1} << 32), handle & 0xFFFFFFFF}) {
        const auto refused = [](int result) {
            const std::uint32_t error = platform::LastSocketError();
            platform::SetLastError(0);
            return result == kSocketError && error == platform::kSocketNotASocket;
        };
        EXPECT_TRUE(refused(platform::recv(bad, &byte, 1, 0)) && refused(platform::send(bad, &byte, 1, 0)) &&
                    refused(platform::closesocket(bad)))
            << bad;
    }
    EXPECT_EQ(platform::closesocket(reused), 0);

    const struct {
        void* buffer;
        int size, flags;
        std::uint32_t error;
    } arguments[] = {{&byte, -1, 0, platform::kSocketInvalid},
                     {&byte, 1, MSG_PEEK, platform::kSocketInvalid},
                     {nullptr, 1, 0, platform::kSocketFault}};
    for (const auto& a : arguments) {
        EXPECT_EQ(platform::recv(handle, a.buffer, a.size, a.flags), kSocketError);
        EXPECT_EQ(platform::LastSocketError(), a.error);
        EXPECT_EQ(platform::send(handle, a.buffer, a.size, a.flags), kSocketError);
        EXPECT_EQ(platform::LastSocketError(), a.error);
    }
}

TEST(AdoptSocketTest, ClosesWhatItRefuses) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const std::pair<int, std::uint32_t> rows[] = {
        {-1, platform::kSocketNotASocket},
        {pipe[0], platform::kSocketNotASocket},
        {::socket(AF_INET, SOCK_DGRAM, 0), platform::kSocketInvalid}};
    for (const auto& [descriptor, error] : rows) {
        EXPECT_EQ(platform::AdoptSocket(descriptor), INVALID_SOCKET);
        EXPECT_EQ(platform::LastSocketError(), error);
        EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1) << "left open";
    }
    ::close(pipe[1]);
}

TEST(AdoptSocketTest, GivesWhatWasReadAheadFirst) {
    support::TcpPair pair;
    const SOCKET handle = platform::AdoptSocket(pair.near.Release(), "header", 6);
    pair.far.Send("body");
    std::string received;
    char buffer[4];
    while (received.size() < 10) {
        const int count = platform::recv(handle, buffer, sizeof buffer, 0);
        ASSERT_GT(count, 0);
        received.append(buffer, static_cast<std::size_t>(count));
    }
    EXPECT_EQ(received, "headerbody");
    EXPECT_EQ(platform::closesocket(handle), 0);
    // The next one in the place has nothing ahead.
    support::TcpPair other;
    const SOCKET next = platform::AdoptSocket(other.near.Release());
    other.far.FinishSending();
    EXPECT_EQ(platform::recv(next, buffer, sizeof buffer, 0), 0);
    EXPECT_EQ(platform::closesocket(next), 0);
}

// Every message on a connection is that connection's own handle. Readers use handles that are being closed
// and whose slots and descriptors are taken by new connections at the same time.
TEST(SocketRaceTest, NoByteOfANewConnectionReachesAnOldHandle) {
    constexpr int kConnections = 1500;
    const std::size_t descriptorsBefore = CountDescriptors();
    std::array<std::atomic<SOCKET>, 2> current{};
    std::atomic<std::size_t> lanesAtWork{current.size()};
    std::atomic<std::uint64_t> received{0}, foreign{0}, wrongEnds{0};
    std::vector<std::jthread> threads;
    for (auto& lane : current) {
        threads.emplace_back([&] {
            support::Descriptor oldPeer;
            for (int n = 0; n <= kConnections; ++n) {
                SOCKET handle = 0; // at the end there is none
                support::Descriptor peer;
                if (n < kConnections) {
                    int ends[2];
                    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
                    peer = support::Descriptor(ends[1]);
                    handle = platform::AdoptSocket(ends[0]);
                    const std::array<SOCKET, 4> messages{handle, handle, handle, handle};
                    ASSERT_EQ(::send(ends[1], &messages, sizeof messages, MSG_NOSIGNAL),
                              ssize_t{sizeof messages});
                }
                ASSERT_EQ(platform::closesocket(lane.exchange(handle)), n == 0 ? kSocketError : 0);
                oldPeer = std::move(peer);
                std::this_thread::yield();
            }
            --lanesAtWork;
        });
        for (int n = 0; n < 3; ++n) {
            threads.emplace_back([&] {
                while (lanesAtWork > 0) {
                    const SOCKET handle = lane;
                    SOCKET message = 0;
                    const int count = platform::recv(handle, &message, sizeof message, 0);
                    const std::uint32_t error = platform::LastSocketError();
                    if (count == static_cast<int>(sizeof message)) {
                        ++received;
                        foreign += message != handle;
                    } else {
                        wrongEnds += count != kSocketError || (error != platform::kSocketInterrupted &&
                                                               error != platform::kSocketNotASocket);
                    }
                }
            });
        }
    }
    threads.clear();
    EXPECT_GT(received, 0U);
    EXPECT_EQ(foreign, 0U);
    EXPECT_EQ(wrongEnds, 0U);
    EXPECT_EQ(platform::OpenSocketCount(), 0U);
    EXPECT_EQ(CountDescriptors(), descriptorsBefore);
}

} // namespace
