// Many hosts as one server, simulated: where the first of its parts is busy all the time, and how soon
// pictures are back when machines die. Fed with what each step costs, as `bench/cluster --costs` measures it.
//
// Nothing of the server runs here. Each part is a queue that serves one after the other (a network interface,
// a thread) or some at a time (cores); every step of a picture is an event that enters the next queue.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Seconds = double;

struct Options {
    // What there is.
    double cameras = 100'000;
    double watchers = 20'000; // each looks at one camera, whichever
    double hosts = 40;
    double cores = 4;    // of a machine, for each program on it
    double engines = 40; // servers of NATS, each on a machine of its own or of a host
    double fps = 1;
    double bytes = 3'400; // of a picture
    double gigabits = 1;  // of a machine's network
    // What a step costs, in microseconds of a core.
    double receive = 90; // a phone's picture: reading and decoding
    double send = 10;    // to one watcher
    double ask = 30;     // a question, at who asks
    double answer = 160; // question and answer, at the owner
    double show = 180;   // the answer at who asked: opening and decoding
    double message = 80; // at a server of NATS, of whatever size
    double signIn = 500; // of a phone or a page that comes back
    double claim = 420;  // an entry of its camera in three replicas, one after the other
    double hear = 20;    // of such an entry, at each host
    // What happens.
    double seconds = 20;
    double dying = 1;     // hosts that die at once, after half of the time
    double noticed = 2.5; // until the balancer ends their phones' connections
};

struct Option {
    const char* name;
    double Options::*value;
};
constexpr Option kOptions[] = {
    {"cameras", &Options::cameras}, {"watchers", &Options::watchers}, {"hosts", &Options::hosts},
    {"cores", &Options::cores},     {"engines", &Options::engines},   {"fps", &Options::fps},
    {"bytes", &Options::bytes},     {"gigabits", &Options::gigabits}, {"receive", &Options::receive},
    {"send", &Options::send},       {"ask", &Options::ask},           {"answer", &Options::answer},
    {"show", &Options::show},       {"message", &Options::message},   {"sign-in", &Options::signIn},
    {"claim", &Options::claim},     {"hear", &Options::hear},         {"seconds", &Options::seconds},
    {"dying", &Options::dying},     {"noticed", &Options::noticed},
};

// Serves so many at a time, in the order in which they come.
class Queue {
public:
    explicit Queue(unsigned places = 1) : m_free(places, 0) {}
    // When who comes now is done.
    Seconds Serve(Seconds now, Seconds takes) {
        const auto first = std::min_element(m_free.begin(), m_free.end());
        *first = std::max(*first, now) + takes;
        m_busy += takes;
        return *first;
    }
    [[nodiscard]] double Load(Seconds time) const {
        return m_busy / time / static_cast<double>(m_free.size());
    }
    void Forget() { m_busy = 0; }

private:
    std::vector<Seconds> m_free;
    Seconds m_busy = 0;
};

struct Machine {
    explicit Machine(unsigned places) : cores(places) {}
    Queue cores;
    Queue peers; // the one thread that asks, answers and shows
    Queue in;
    Queue out;
    bool lives = true;
};

struct Engine {
    explicit Engine(unsigned places) : work(places) {}
    Queue work; // each of its connections has a thread of its own
    Queue in;
    Queue out;
};

double Percentile(std::vector<double>& values, double share) {
    if (values.empty())
        return 0;
    const auto at =
        values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

class Simulation {
public:
    explicit Simulation(const Options& options)
        : m_o(options), m_hosts(Count(options.hosts), Machine(static_cast<unsigned>(options.cores))),
          m_engines(Count(options.engines), Engine(static_cast<unsigned>(options.cores))),
          m_cameras(Count(options.cameras)) {
        for (std::size_t i = 0; i < m_cameras.size(); ++i) {
            m_cameras[i].owner = i % m_hosts.size();
            At(Uniform(1 / m_o.fps), [this, i] { TakePicture(i, 0); });
        }
        for (std::size_t i = 0; i < Count(options.watchers); ++i)
            Look(Random(m_cameras.size()), Random(m_hosts.size()));
    }

    void Run() {
        const Seconds half = m_o.seconds / 2;
        At(half / 2, [this] { Begin(); });
        At(half, [this] { ShowSteady(); });
        At(half, [this] { Die(); });
        while (!m_events.empty() && m_now <= m_o.seconds + kBehind) {
            std::ranges::pop_heap(m_events, Later);
            const Event event = std::move(m_events.back());
            m_events.pop_back();
            m_now = event.at;
            event.happens();
        }
        ShowRecovery();
    }

private:
    static constexpr Seconds kBehind = 10;
    static constexpr double kSmall = 300; // bytes of a question or an entry
    static constexpr double kMicro = 1e-6;

    struct Event {
        Seconds at;
        std::uint64_t order;
        std::function<void()> happens;
    };
    static bool Later(const Event& one, const Event& other) {
        return one.at != other.at ? one.at > other.at : one.order > other.order;
    }
    struct Pull {
        std::uint64_t shown = 0; // number of the last picture that was answered
        std::uint64_t last = 0;  // that came to the watchers
        unsigned watchers = 0;
        bool waits = false;    // its question is at the owner
        bool inFlight = false; // it, or its answer, is somewhere
        bool back = false;     // a picture came behind the death
    };
    struct Camera {
        std::size_t owner = 0;
        std::uint64_t number = 0;
        unsigned life = 0; // of its phone's connection
        Seconds taken = 0; // the newest picture's
        bool connected = true;
        std::map<std::size_t, Pull> pulls; // by host
    };

    static std::size_t Count(double value) { return static_cast<std::size_t>(std::max(1.0, value)); }
    std::size_t Random(std::size_t below) {
        return std::uniform_int_distribution<std::size_t>(0, below - 1)(m_random);
    }
    Seconds Uniform(Seconds below) { return std::uniform_real_distribution<>(0, below)(m_random); }
    void At(Seconds when, std::function<void()> happens) {
        m_events.push_back({when, m_order++, std::move(happens)});
        std::ranges::push_heap(m_events, Later);
    }
    [[nodiscard]] Seconds Wire(double bytes) const { return bytes * 8 / (m_o.gigabits * 1e9); }

    void Look(std::size_t camera, std::size_t host) {
        Pull& pull = m_cameras[camera].pulls[host];
        ++pull.watchers;
        if (!pull.inFlight && !pull.waits)
            Ask(camera, host);
    }

    // A phone's picture reaches its host.
    void TakePicture(std::size_t index, unsigned life) {
        Camera& camera = m_cameras[index];
        if (camera.life != life)
            return;
        At(m_now + 1 / m_o.fps, [=, this] { TakePicture(index, life); });
        Machine& host = m_hosts[camera.owner];
        const Seconds taken = m_now;
        At(host.in.Serve(m_now, Wire(m_o.bytes)), [=, this, &host] {
            At(host.cores.Serve(m_now, m_o.receive * kMicro), [=, this] { Received(index, life, taken); });
        });
    }

    void Received(std::size_t index, unsigned life, Seconds taken) {
        Camera& camera = m_cameras[index];
        if (camera.life != life)
            return;
        ++camera.number;
        camera.taken = taken;
        for (auto& [host, pull] : camera.pulls) {
            if (host == camera.owner)
                Shown(index, host, camera.number, taken);
            else if (pull.waits)
                Answer(index, host);
        }
    }

    // A text goes from a host to another one, over the servers that they are connected to.
    void Carry(std::size_t from, std::size_t to, double bytes, std::function<void()> then) {
        const std::size_t first = from % m_engines.size();
        const std::size_t second = to % m_engines.size();
        At(m_hosts[from].out.Serve(m_now, Wire(bytes)), [=, this] {
            Pass(first, bytes, [=, this] {
                const auto arrive = [=, this] { At(m_hosts[to].in.Serve(m_now, Wire(bytes)), then); };
                first == second ? arrive() : Pass(second, bytes, arrive);
            });
        });
    }
    void Pass(std::size_t index, double bytes, std::function<void()> then) {
        Engine& engine = m_engines[index];
        At(engine.in.Serve(m_now, Wire(bytes)), [=, this, &engine] {
            At(engine.work.Serve(m_now, m_o.message * kMicro),
               [=, this, &engine] { At(engine.out.Serve(m_now, Wire(bytes)), then); });
        });
    }

    void Ask(std::size_t index, std::size_t host) {
        Camera& camera = m_cameras[index];
        Pull& pull = camera.pulls[host];
        if (!camera.connected || host == camera.owner || !m_hosts[host].lives)
            return;
        pull.inFlight = true;
        const unsigned life = camera.life;
        At(m_hosts[host].peers.Serve(m_now, m_o.ask * kMicro), [=, this] {
            Carry(host, m_cameras[index].owner, kSmall, [=, this] { Asked(index, host, life); });
        });
    }

    void Asked(std::size_t index, std::size_t host, unsigned life) {
        Camera& camera = m_cameras[index];
        if (camera.life != life)
            return;
        Pull& pull = camera.pulls[host];
        pull.inFlight = false;
        camera.number > pull.shown ? Answer(index, host) : static_cast<void>(pull.waits = true);
    }

    void Answer(std::size_t index, std::size_t host) {
        Camera& camera = m_cameras[index];
        Pull& pull = camera.pulls[host];
        pull.waits = false;
        pull.inFlight = true;
        pull.shown = camera.number;
        const unsigned life = camera.life;
        const Seconds taken = camera.taken;
        At(m_hosts[camera.owner].peers.Serve(m_now, m_o.answer * kMicro), [=, this, number = camera.number] {
            Carry(m_cameras[index].owner, host, m_o.bytes + kSmall, [=, this] {
                At(m_hosts[host].peers.Serve(m_now, m_o.show * kMicro), [=, this] {
                    if (m_cameras[index].life != life || !m_hosts[host].lives)
                        return;
                    Shown(index, host, number, taken);
                    m_cameras[index].pulls[host].inFlight = false;
                    Ask(index, host);
                });
            });
        });
    }

    // It goes to all who look at that host.
    void Shown(std::size_t index, std::size_t host, std::uint64_t number, Seconds taken) {
        Pull& pull = m_cameras[index].pulls[host];
        if (pull.watchers == 0 || !m_hosts[host].lives)
            return;
        Machine& machine = m_hosts[host];
        Seconds done = m_now;
        for (unsigned i = 0; i < pull.watchers; ++i)
            done = std::max(done, machine.cores.Serve(m_now, m_o.send * kMicro));
        done = machine.out.Serve(done, Wire(m_o.bytes * pull.watchers));
        const std::uint64_t last = std::exchange(pull.last, number);
        if (m_now >= m_begin && m_died == 0) {
            m_shown += pull.watchers;
            m_wanted += pull.watchers * (last == 0 ? 1 : number - last);
            if (m_cameras[index].owner != host)
                m_delays.push_back(done - taken);
        }
        if (m_died > 0 && taken > m_died && !std::exchange(pull.back, true) &&
            m_hit.contains(index * m_hosts.size() + host))
            m_recovered.push_back(done - m_died);
    }

    void Begin() {
        m_begin = m_now;
        for (Machine& host : m_hosts) {
            for (Queue* const queue : {&host.cores, &host.peers, &host.in, &host.out})
                queue->Forget();
        }
        for (Engine& engine : m_engines) {
            for (Queue* const queue : {&engine.work, &engine.in, &engine.out})
                queue->Forget();
        }
    }

    template <class Machines, class Select>
    double Busiest(const Machines& machines, Select select) const {
        double most = 0;
        for (const auto& machine : machines)
            most = std::max(most, (machine.*select).Load(m_now - m_begin));
        return 100 * most;
    }

    void ShowSteady() {
        std::printf("| %.0f | %.0f | %.0f | %.0f | %.0f %% | %.0f %% | %.0f %% | %.0f %% | %.0f %% | %.1f | "
                    "%.1f | %.1f |",
                    m_o.cameras, m_o.watchers, m_o.hosts, m_o.engines, Busiest(m_hosts, &Machine::cores),
                    Busiest(m_hosts, &Machine::peers),
                    std::max(Busiest(m_hosts, &Machine::in), Busiest(m_hosts, &Machine::out)),
                    Busiest(m_engines, &Engine::work),
                    std::max(Busiest(m_engines, &Engine::in), Busiest(m_engines, &Engine::out)),
                    1e3 * Percentile(m_delays, 0.5), 1e3 * Percentile(m_delays, 0.99),
                    100 * (1 - std::min(1.0, static_cast<double>(m_shown) /
                                                 static_cast<double>(std::max<std::uint64_t>(m_wanted, 1)))));
    }

    // Machines go; who was there comes back once the balancer has noticed.
    void Die() {
        m_died = m_now;
        const std::size_t dying = std::min(Count(m_o.dying), m_hosts.size() - 1);
        for (std::size_t host = 0; host < dying; ++host)
            m_hosts[host].lives = false;
        const Seconds back = m_now + m_o.noticed;
        for (std::size_t i = 0; i < m_cameras.size(); ++i) {
            Camera& camera = m_cameras[i];
            const bool lost = camera.owner < dying;
            if (lost) {
                ++camera.life;
                camera.connected = false;
                ++m_lostPhones;
                At(back, [this, i] { ComeBack(i); });
            }
            std::vector<std::size_t> moved;
            for (auto& [host, pull] : camera.pulls) {
                if (lost)
                    pull.waits = pull.inFlight = false;
                moved.insert(moved.end(), host < dying ? std::exchange(pull.watchers, 0) : 0, host);
                if (lost && host >= dying && pull.watchers > 0)
                    m_hit.insert(i * m_hosts.size() + host);
            }
            for (std::size_t n = 0; n < moved.size(); ++n)
                At(back, [this, i] { LookAgain(i); });
        }
    }

    std::size_t Living() {
        for (;;) {
            const std::size_t host = Random(m_hosts.size());
            if (m_hosts[host].lives)
                return host;
        }
    }

    void LookAgain(std::size_t index) {
        const std::size_t host = Living();
        m_hit.insert(index * m_hosts.size() + host);
        At(m_hosts[host].cores.Serve(m_now, m_o.signIn * kMicro), [=, this] { Look(index, host); });
    }

    // It signs in, its entry is put, all hosts hear of that, and it sends.
    void ComeBack(std::size_t index) {
        const std::size_t host = Living();
        At(m_hosts[host].cores.Serve(m_now, m_o.signIn * kMicro), [=, this] {
            At(m_entries.Serve(m_now, m_o.claim * kMicro), [=, this] {
                for (std::size_t other = 0; other < m_hosts.size(); ++other) {
                    m_engines[other % m_engines.size()].work.Serve(m_now, m_o.message * kMicro);
                    const Seconds heard = m_hosts[other].cores.Serve(m_now, m_o.hear * kMicro);
                    if (m_cameras[index].pulls.contains(other) && m_hosts[other].lives)
                        At(heard, [=, this] { Ask(index, other); });
                }
                Camera& camera = m_cameras[index];
                camera.owner = host;
                camera.connected = true;
                camera.number += 1'000'000; // numbers of a new owner are higher
                TakePicture(index, camera.life);
                m_phonesBack.push_back(m_now - m_died);
            });
        });
    }

    void ShowRecovery() {
        std::printf(" %zu | %.1f | %.1f | %zu | %.1f | %.1f |\n", m_lostPhones, Percentile(m_phonesBack, 0.5),
                    Percentile(m_phonesBack, 1), m_recovered.size(), Percentile(m_recovered, 0.5),
                    Percentile(m_recovered, 0.95));
    }

    const Options m_o;
    std::mt19937_64 m_random{1};
    std::vector<Machine> m_hosts;
    std::vector<Engine> m_engines;
    Queue m_entries; // the server that leads the replicas of the owners' bucket
    std::vector<Camera> m_cameras;
    std::vector<Event> m_events; // a heap, the next one in front
    std::uint64_t m_order = 0;
    Seconds m_now = 0;
    Seconds m_begin = 1e9;
    Seconds m_died = 0;
    std::set<std::size_t> m_hit; // camera and host of who lost a picture
    std::uint64_t m_shown = 0;
    std::uint64_t m_wanted = 0;
    std::size_t m_lostPhones = 0;
    std::vector<double> m_delays;
    std::vector<double> m_recovered;
    std::vector<double> m_phonesBack;
};

bool Read(std::string_view word, Options& options) {
    const auto equals = word.find('=');
    for (const Option& option : kOptions) {
        if (equals == std::string_view::npos || word.substr(0, equals) != option.name)
            continue;
        const char* const end = word.data() + word.size();
        const auto [read, error] = std::from_chars(word.data() + equals + 1, end, options.*option.value);
        return error == std::errc{} && read == end && options.*option.value > 0;
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (!Read(argv[i], options)) {
            std::fprintf(stderr, "usage: cluster_simulation [NAME=NUMBER]...\n");
            for (const Option& option : kOptions)
                std::fprintf(stderr, "  %s=%g\n", option.name, options.*option.value);
            return 2;
        }
    }
    std::printf("| cameras | watchers | hosts | servers | cores | peers | network | server | its network | "
                "hop, ms | 99 %% | skipped, %% | phones back | s, "
                "median | last | watchers | s, median | 95 %% "
                "|\n|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n");
    Simulation(options).Run();
    return 0;
}
