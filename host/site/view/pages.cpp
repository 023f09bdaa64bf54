#include "host/site/view/pages.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "host/http/answer.h"
#include "host/http/page_socket.h"
#include "kit/packer/frame_packer.h"

namespace host {
namespace {

class ViewSession final : public PageSocket {
public:
    ViewSession(Stream stream, const Request& request, kit::SourcePtr source, const ViewPages& pages)
        : PageSocket(pages.loops.Choose(), std::move(stream), request, pages.limits),
          m_watching(pages.counters, SessionKind::Page), m_packers(pages.packers),
          m_source(std::move(source)), m_next(MakeTimer()), m_heartbeat(MakeTimer()) {}

private:
    void OnOpen() override { AwaitHeartbeat(); }

    void AwaitHeartbeat() {
        At(m_heartbeat, Clock::now() + m_limits.stateInterval, [this] {
            if (m_inFlight && Clock::now() - m_sentAt > m_limits.ackDeadline)
                return Close();
            m_statePending = m_sequence != 0;
            AwaitHeartbeat();
        });
    }

    bool OnMessage(std::string_view message) override {
        if (message.starts_with("set "))
            return OnSet(message.substr(4));
        if (!message.starts_with("ack "))
            return false;
        std::uint32_t number = 0;
        const char* const end = message.data() + message.size();
        const auto [parsed, error] = std::from_chars(message.data() + 4, end, number);
        if (error != std::errc{} || parsed != end)
            return false;
        m_inFlight = m_inFlight && number != m_sequence;
        return true;
    }

    bool OnSet(std::string_view text) {
        const auto parameters = kit::ParsePackerParameters(text);
        if (parameters)
            m_wanted = parameters;
        return parameters.has_value();
    }

    // Not before the picture of the last packer is written.
    void Change() {
        m_packed = {};
        m_packer = std::make_unique<kit::FramePacker>(*m_wanted, m_packers);
        m_packer->ContinueAt(m_sequence + 1);
        m_wanted.reset();
        m_due = Clock::now();
    }

    void SendNext() override {
        if (m_gone)
            return Close(); // the page has been told
        if (std::exchange(m_made, false))
            return SendPicture();
        if (m_wanted)
            Change();
        if (m_statePending)
            return SendState();
        if (!m_packer || m_inFlight)
            return;
        const auto now = Clock::now();
        if (now < m_due)
            return At(m_next, m_due, [] {});
        if (!m_packer->HasMore())
            return Close();
        m_sentAt = now;
        Elsewhere([this] { Make(); });
    }

    // The source may read a file for it, and packing takes its time.
    void Make() {
        m_picture = m_source->Now();
        if (m_picture)
            m_packed = m_packer->Pack(kit::PlanesOf(*m_picture));
        m_made = true;
    }

    void SendState() {
        m_statePending = false;
        m_state = JsonText({{"type", "view"}, {"picture", !m_placeholder}});
        Text(m_state);
    }

    void SendPicture() {
        const kit::PicturePtr picture = std::exchange(m_picture, nullptr);
        if (!picture) {
            m_gone = true;
            m_state = JsonText({{"type", "gone"}});
            return Text(m_state);
        }
        const bool placeholder = picture->Sequence() == 0;
        m_statePending = placeholder != m_placeholder;
        m_placeholder = placeholder;
        if (m_packed.jpeg.empty())
            return Close();
        ++m_sequence;
        m_inFlight = true;
        // A picture that waited for its acknowledgement is not made up for by a burst.
        const auto interval = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(1 / m_packer->Parameters().fps));
        m_due = std::max(m_due + interval, m_sentAt);
        Binary({reinterpret_cast<const char*>(m_packed.header.data()), m_packed.header.size()},
               m_packed.jpeg);
    }

    const WatchGuard m_watching;
    kit::PackerCounters& m_packers;
    const kit::SourcePtr m_source;
    TimerPtr m_next;
    TimerPtr m_heartbeat;
    std::optional<kit::PackerParameters> m_wanted; // by the page, and not in force yet
    std::unique_ptr<kit::FramePacker> m_packer;    // null until the page has said what it wants
    std::uint32_t m_sequence = 0;                  // of the last picture that was sent
    bool m_inFlight = false;
    Clock::time_point m_sentAt;
    Clock::time_point m_due;
    bool m_placeholder = false;
    bool m_statePending = false;
    bool m_gone = false;
    bool m_made = false; // m_picture and m_packed are to be sent; null: there are no more
    kit::PicturePtr m_picture;
    // The message that is being written.
    kit::FramePacker::Packed m_packed;
    std::string m_state;
};

} // namespace

kit::SourcePtr ViewPages::SourceOf(std::string_view encoded, const Rights& rights) const {
    const auto key = PercentDecode(encoded);
    return key ? sources.Open(*key, rights) : nullptr;
}

void ViewPages::Start(Stream stream, const Request& request, kit::SourcePtr source,
                      std::shared_ptr<const void> held) const {
    PageSocket::Start(std::make_unique<ViewSession>(std::move(stream), request, std::move(source), *this),
                      std::move(held));
}

} // namespace host
