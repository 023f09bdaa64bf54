#include "host/site/mobile/pages.h"

#include <array>
#include <cerrno>
#include <optional>

#include <poll.h>
#include <sys/socket.h>

namespace host {
namespace {

// What has been read on one side and not yet been taken by the other one.
struct Flow {
    std::array<char, 16384> bytes{};
    std::size_t begin = 0;
    std::size_t end = 0;
    bool ended = false; // nothing more comes
    bool told = false;  // and the other side knows

    [[nodiscard]] bool IsEmpty() const { return begin == end; }
    [[nodiscard]] std::string_view Waiting() const { return {bytes.data() + begin, end - begin}; }
};

enum class Step { Moved, Waits, Broken };

template <class Read>
Step ReadInto(Flow& flow, Read read) {
    const ssize_t got = read(flow.bytes.data(), flow.bytes.size());
    if (got == Stream::kAgain)
        return Step::Waits;
    flow.begin = 0;
    flow.end = got > 0 ? static_cast<std::size_t>(got) : 0;
    flow.ended = got <= 0;
    return Step::Moved;
}

template <class Write>
Step WriteFrom(Flow& flow, Write write) {
    const ssize_t sent = write(flow.Waiting());
    if (sent == Stream::kAgain)
        return Step::Waits;
    if (sent <= 0)
        return Step::Broken;
    flow.begin += static_cast<std::size_t>(sent);
    return Step::Moved;
}

class Carrier {
public:
    Carrier(Stream& phone, Stream& component, const Wakeup& stop, std::chrono::milliseconds stall)
        : m_phone(phone), m_component(component), m_stop(stop), m_stall(stall) {}

    void Run() {
        auto moved = Clock::now();
        for (;;) {
            m_events = {};
            const Step up = Move(m_up, m_phone, 0, m_component, 1);
            const Step down = Move(m_down, m_component, 1, m_phone, 0);
            if (up == Step::Broken || down == Step::Broken || m_down.told)
                return;
            if (up == Step::Moved || down == Step::Moved) {
                moved = Clock::now();
                continue;
            }
            // The component has ended, and the phone takes its last bytes or does not.
            const auto deadline = m_down.ended ? std::optional(moved + m_stall) : std::nullopt;
            if (!Wait(deadline))
                return;
        }
    }

private:
    // Reads when there is nothing to write, and writes else. `from` and `to` tell where the two stand in
    // m_events.
    Step Move(Flow& flow, Stream& source, std::size_t from, Stream& sink, std::size_t to) {
        if (flow.told)
            return Step::Waits;
        Step step = Step::Waits;
        if (!flow.IsEmpty()) {
            step = WriteFrom(flow, [&](std::string_view bytes) { return sink.Write(bytes); });
            if (step == Step::Waits)
                m_events[to] |= sink.Awaits();
        } else if (!flow.ended) {
            step = ReadInto(flow, [&](char* bytes, std::size_t size) { return source.Read(bytes, size); });
            if (step == Step::Waits)
                m_events[from] |= source.Awaits();
        }
        if (flow.IsEmpty() && flow.ended) {
            sink.EndSending();
            flow.told = true;
        }
        return step;
    }

    // False at the deadline and at the stop.
    bool Wait(std::optional<Clock::time_point> deadline) {
        std::array<pollfd, 3> polled{{{m_events[0] != 0 ? m_phone.Fd() : -1, m_events[0], 0},
                                      {m_events[1] != 0 ? m_component.Fd() : -1, m_events[1], 0},
                                      {m_stop.Fd(), POLLIN, 0}}};
        int timeout = -1;
        if (deadline) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
            if (left <= 0)
                return false;
            timeout = static_cast<int>(left);
        }
        const int ready = ::poll(polled.data(), polled.size(), timeout);
        return (ready > 0 && polled[2].revents == 0) || (ready < 0 && errno == EINTR);
    }

    Stream& m_phone;
    Stream& m_component;
    const Wakeup& m_stop;
    const std::chrono::milliseconds m_stall;
    Flow m_up;
    Flow m_down;
    std::array<short, 2> m_events{};
};

} // namespace

void Bridge::Feed(std::string_view bytes) noexcept {
    (void)::send(m_pair.outer.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void Bridge::Carry(Stream& phone, const Wakeup& stop, std::chrono::milliseconds stall) {
    m_pair.inner.Close();
    Stream component(std::move(m_pair.outer));
    Carrier(phone, component, stop, stall).Run();
    // What is left of the two ends here, so that neither side waits for the other one.
    phone.EndSending();
}

} // namespace host
