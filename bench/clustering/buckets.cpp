// The entries that hosts share, while servers of NATS die and stand still: are they alike at all hosts
// afterwards, is nothing lost that was confirmed?
//
//     cluster_buckets [ROUNDS [SECONDS [SEED]]]
//
// Three servers of NATS, and what three hosts have of a bucket, in this process; somebody changes entries at
// each in turn, thirty times a second. A round kills a server, or stops it, for about SECONDS, and starts or
// continues it. Ends with status 1 when the hosts did not have the same within half a minute.

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/base/store_mirror.h"
#include "host/cluster/bucket.h"
#include "host/cluster/link.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using host::Store;

constexpr int kServers = 3;
constexpr int kPort = 24222; // and the next ones, on the loopback
constexpr auto kPatience = 30s;
constexpr std::size_t kKept = 20; // entries that are there at a time

double SecondsSince(Clock::time_point then) {
    return std::chrono::duration<double>(Clock::now() - then).count();
}

// One server of NATS, with the settings of packaging/cluster.
class Server {
public:
    Server(const std::filesystem::path& folder, int number)
        : m_file(folder / ("server-" + std::to_string(number))) {
        std::ofstream out(m_file);
        out << "server_name: s" << number << "\nlisten: \"127.0.0.1:" << kPort + number
            << "\"\nping_interval: \"500ms\"\nping_max: 2\nwrite_deadline: \"2s\"\njetstream { store_dir: \""
            << m_file.string()
            << ".store\" }\ncluster {\nname: buckets\nlisten: \"127.0.0.1:" << kPort + kServers + number
            << "\"\nroutes: [\n";
        for (int other = 0; other < kServers; ++other)
            out << "\"nats://127.0.0.1:" << kPort + kServers + other << "\"\n";
        out << "]\n}\n";
        out.close();
        Start();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() { Kill(); }

    void Start() {
        m_process = ::fork();
        if (m_process != 0)
            return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int quiet = ::open("/dev/null", O_RDWR);
        ::dup2(quiet, 1);
        ::dup2(quiet, 2);
        ::execlp("nats-server", "nats-server", "-c", m_file.c_str(), nullptr);
        ::_exit(127);
    }
    void Kill() const {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
    }
    void Signal(int signal) const { ::kill(m_process, signal); }

private:
    const std::filesystem::path m_file;
    pid_t m_process = -1;
};

// What a host has of the bucket.
struct HostView {
    HostView(const std::vector<std::string>& servers, const std::string& name)
        : link({servers},
               std::make_shared<const host::cluster::Sealer>(host::cluster::Secrets::Of(std::string(32, 's')),
                                                             name),
               [name](const std::string& line) { std::printf("  %s: %s\n", name.c_str(), line.c_str()); }),
          bucket(std::make_shared<host::cluster::Bucket>(
              link, host::cluster::BucketOptions{"cameras", kServers}, host::cluster::Secret("names"))) {}

    std::map<std::string, std::string, std::less<>> Look() {
        const std::lock_guard guard(mutex);
        (void)mirror->Refresh();
        return mirror->ValuesNow();
    }

    host::cluster::Link link;
    std::shared_ptr<host::cluster::Bucket> bucket;
    std::mutex mutex; // the mirror
    std::optional<host::StoreMirror> mirror;
};

// Adds an entry, and removes the one that was added twenty before.
class Writer {
public:
    explicit Writer(std::vector<std::unique_ptr<HostView>>& hosts)
        : m_hosts(hosts), m_thread([this] { Run(); }) {}
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() {
        m_ended = true;
        m_thread.join();
    }

    // Nothing is changed while this is held.
    std::unique_lock<std::mutex> Pause() { return std::unique_lock(m_mutex); }
    // With it: what is wrong at a host; empty when it has what was confirmed, and no more.
    [[nodiscard]] std::string Wrong(const std::map<std::string, std::string, std::less<>>& values) const {
        for (const auto& [key, value] : m_there) {
            if (const auto found = values.find(key); found == values.end() || found->second != value)
                return "has not " + key;
        }
        for (const auto& [key, value] : values) {
            if (!m_there.contains(key) && !m_unknown.contains(key))
                return "has " + key + ", which was removed";
        }
        return {};
    }
    [[nodiscard]] std::size_t Confirmed() const { return m_confirmed; }

private:
    void Run() {
        std::deque<std::string> added;
        for (std::size_t number = 0; !m_ended; ++number, std::this_thread::sleep_for(30ms)) {
            const auto guard = Pause();
            added.push_back("entry" + std::to_string(number));
            Change(added.back(), std::to_string(number));
            if (added.size() <= kKept)
                continue;
            Change(added.front(), std::nullopt);
            added.pop_front();
        }
    }

    void Change(const std::string& key, std::optional<std::string> value) {
        HostView& host = *m_hosts[m_turn++ % m_hosts.size()];
        Store::Revision follows = 0;
        {
            const std::lock_guard guard(host.mutex);
            (void)host.mirror->Refresh();
            const auto found = host.mirror->Now().find(key);
            if (!value && found == host.mirror->Now().end())
                return;
            follows = found != host.mirror->Now().end() ? found->second.revision : 0;
        }
        const std::array changes{Store::Change{key, value, follows}};
        const auto outcomes = host.bucket->Write(changes);
        {
            const std::lock_guard guard(host.mutex);
            (void)host.mirror->Settle(changes, outcomes);
        }
        if (outcomes.front().result == Store::Result::Unreachable) { // it may be written
            m_unknown.insert(key);
            m_there.erase(key);
        } else if (outcomes.front().result == Store::Result::Done) {
            ++m_confirmed;
            m_unknown.erase(key);
            if (value)
                m_there[key] = *value;
            else
                m_there.erase(key);
        }
    }

    std::vector<std::unique_ptr<HostView>>& m_hosts;
    std::mutex m_mutex; // the members down to the next blank line
    std::map<std::string, std::string> m_there;
    std::set<std::string> m_unknown;
    std::size_t m_confirmed = 0;
    std::size_t m_turn = 0;

    std::atomic<bool> m_ended{false};
    std::thread m_thread;
};

int Run(const std::filesystem::path& folder, int rounds, double away, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::unique_ptr<Server>> servers;
    std::vector<std::string> addresses;
    for (int i = 0; i < kServers; ++i) {
        servers.push_back(std::make_unique<Server>(folder, i));
        addresses.push_back("nats://127.0.0.1:" + std::to_string(kPort + i));
    }
    std::vector<std::unique_ptr<HostView>> hosts;
    for (const char* const name : {"a", "b", "c"}) {
        hosts.push_back(std::make_unique<HostView>(addresses, name));
        if (!hosts.back()->bucket->AwaitRead(kPatience)) {
            std::fprintf(stderr, "cluster_buckets: the servers of NATS do not answer\n");
            return 1;
        }
        hosts.back()->mirror.emplace(hosts.back()->bucket);
    }
    Writer writer(hosts);
    int failed = 0;
    for (int round = 1; round <= rounds; ++round) {
        Server& server = *servers[random() % kServers];
        const bool stops = random() % 3 == 0;
        const auto pause =
            std::chrono::duration<double>(away * (0.5 + static_cast<double>(random() % 1000) / 1000));
        stops ? server.Signal(SIGSTOP) : server.Kill();
        std::this_thread::sleep_for(pause);
        stops ? server.Signal(SIGCONT) : server.Start();
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 2500));
        const auto held = writer.Pause();
        const auto since = Clock::now();
        std::string wrong;
        do {
            wrong.clear();
            const auto first = hosts.front()->Look();
            for (const auto& host : hosts) {
                const auto values = host->Look();
                const std::string one = writer.Wrong(values);
                wrong = !wrong.empty() ? wrong : !one.empty() ? one : values != first ? "differs" : "";
            }
            if (!wrong.empty())
                std::this_thread::sleep_for(20ms);
        } while (!wrong.empty() && Clock::now() - since < kPatience);
        failed += !wrong.empty();
        std::printf("round %d, a server %s for %.1f s: alike %s%.1f s later; %zu changes confirmed%s%s\n",
                    round, stops ? "stopped" : "killed", pause.count(), wrong.empty() ? "" : "not even ",
                    SecondsSince(since), writer.Confirmed(), wrong.empty() ? "" : "; a host ", wrong.c_str());
        std::fflush(stdout);
    }
    std::printf("%d of %d rounds failed\n", failed, rounds);
    return failed == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 20;
    const double away = argc > 2 ? std::atof(argv[2]) : 3;
    const unsigned seed = argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : 1;
    if (rounds <= 0 || away <= 0) {
        std::fprintf(stderr, "usage: cluster_buckets [ROUNDS [SECONDS [SEED]]]\n");
        return 2;
    }
    const auto folder =
        std::filesystem::temp_directory_path() / ("morrow-buckets-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    const int status = Run(folder, rounds, away, seed);
    std::filesystem::remove_all(folder);
    return status;
}
