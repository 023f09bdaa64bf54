#include "host/notices/channel.h"

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include <mosquitto.h>
#include <poll.h>

#include "host/notices/topics.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr int kKeepAlive = 30;                    // seconds
constexpr std::chrono::seconds kBrokerWithin{10}; // with the look-up of its name
constexpr std::chrono::seconds kAnswerDeadline{10};
constexpr std::chrono::seconds kLookInterval{1};
constexpr std::chrono::seconds kFirstReconnect{1};
constexpr std::chrono::seconds kLongestReconnect{60};
constexpr int kAtLeastOnce = 1;

struct ClientEnd {
    void operator()(mosquitto* client) const noexcept { mosquitto_destroy(client); }
};

// One connection to a broker, on one thread.
class Broker {
public:
    Broker(const MqttPreferences& mqtt, const std::string& willTopic)
        : m_server(mqtt.server), m_port(mqtt.port), m_client(mosquitto_new(nullptr, true, this)) {
        if (!m_client)
            throw std::bad_alloc();
        mosquitto_connect_callback_set(m_client.get(), [](mosquitto*, void* broker, int code) {
            static_cast<Broker*>(broker)->m_answer = code;
        });
        mosquitto_disconnect_callback_set(m_client.get(), [](mosquitto*, void* broker, int) {
            static_cast<Broker*>(broker)->m_lost = true;
        });
        mosquitto_publish_callback_set(m_client.get(), [](mosquitto*, void* broker, int message) {
            static_cast<Broker*>(broker)->m_unanswered.erase(message);
        });
        (void)mosquitto_will_set(m_client.get(), willTopic.c_str(), 7, "offline", kAtLeastOnce, true);
        if (!mqtt.user.empty())
            (void)mosquitto_username_pw_set(m_client.get(), mqtt.user.c_str(),
                                            mqtt.password.empty() ? nullptr : mqtt.password.c_str());
        if (!mqtt.tls)
            return;
        const auto& [folder, file] = TrustedAuthorities();
        m_trouble = mosquitto_tls_set(m_client.get(), file.empty() ? nullptr : file.c_str(), folder.c_str(),
                                      nullptr, nullptr, nullptr);
        mosquitto_log_callback_set(m_client.get(), [](mosquitto*, void* broker, int level, const char* text) {
            std::string& said = static_cast<Broker*>(broker)->m_said;
            if (level == MOSQ_LOG_ERR && said.empty()) // what follows is less exact
                said = text;
        });
    }

    // Begins the connection. Empty, or why there is none. Waits for what the system waits for; no other call
    // may come meanwhile.
    std::string Reach() {
        if (m_trouble != MOSQ_ERR_SUCCESS)
            return Reason(m_trouble);
        // The library's own way to connect waits for as long as the system does.
        if (std::string reason = WhyNotReached(m_server, m_port); !reason.empty())
            return reason;
        const int code = mosquitto_connect(m_client.get(), m_server.c_str(), m_port, kKeepAlive);
        return code == MOSQ_ERR_SUCCESS ? "" : Reason(code);
    }

    // Empty when the broker has let us in; else why not.
    std::string AwaitEntry(const NoticeSignals& signals) {
        const auto deadline = Clock::now() + kAnswerDeadline;
        while (!m_answer && Serve(signals, false, deadline))
            ;
        if (m_answer && *m_answer != 0)
            return mosquitto_connack_string(*m_answer);
        return m_answer ? "" : m_trouble != MOSQ_ERR_SUCCESS ? Reason(m_trouble) : "it does not answer";
    }

    [[nodiscard]] bool IsConnected() const noexcept { return m_answer == 0 && !m_lost; }

    bool Publish(const std::string& topic, std::string_view payload, bool retain) {
        int message = 0;
        const int code =
            mosquitto_publish(m_client.get(), &message, topic.c_str(), static_cast<int>(payload.size()),
                              payload.data(), kAtLeastOnce, retain);
        if (code == MOSQ_ERR_SUCCESS)
            m_unanswered.insert(message);
        else
            m_trouble = code;
        return code == MOSQ_ERR_SUCCESS;
    }

    // Empty once the broker has all; else why not.
    std::string AwaitAnswers(const NoticeSignals& signals) {
        const auto deadline = Clock::now() + kAnswerDeadline;
        while (!m_unanswered.empty() && IsConnected() && Serve(signals, false, deadline))
            ;
        if (m_unanswered.empty())
            return "";
        return m_trouble != MOSQ_ERR_SUCCESS ? Reason(m_trouble) : "it does not say that it has it";
    }

    // Does what the connection needs, until something happens. False at the deadline, the stop signal, the
    // wake-up where that counts, and the end of the connection.
    bool Serve(const NoticeSignals& signals, bool untilWoken, Clock::time_point deadline) {
        const int socket = mosquitto_socket(m_client.get());
        if (socket < 0)
            return false;
        const bool writes = mosquitto_want_write(m_client.get());
        const auto soon = std::min(deadline, Clock::now() + kLookInterval);
        const Waited waited = WaitFor({.socket = socket,
                                       .socketEvents = static_cast<short>(writes ? POLLIN | POLLOUT : POLLIN),
                                       .wakeup = untilWoken ? &signals.wakeup : nullptr,
                                       .stop = &signals.stop},
                                      soon);
        if (waited == Waited::Stopped || waited == Waited::Woken)
            return false;
        int code = MOSQ_ERR_SUCCESS;
        if (waited == Waited::Ready) {
            code = mosquitto_loop_read(m_client.get(), 1);
            if (code == MOSQ_ERR_SUCCESS && mosquitto_want_write(m_client.get()))
                code = mosquitto_loop_write(m_client.get(), 1);
        }
        if (code == MOSQ_ERR_SUCCESS)
            code = mosquitto_loop_misc(m_client.get()); // keep-alives
        if (code != MOSQ_ERR_SUCCESS) {
            m_trouble = code;
            m_lost = true;
            return false;
        }
        return Clock::now() < deadline;
    }

    // Says good-bye, as far as the other end takes it at once: the last will is for those who do not.
    void Leave() { (void)mosquitto_disconnect(m_client.get()); }

private:
    [[nodiscard]] std::string Reason(int code) const {
        // The library has one text for all that can be wrong with TLS; the reason ends what it logs.
        if (code == MOSQ_ERR_TLS && !m_said.empty())
            return "TLS: " + m_said.substr(m_said.find_last_of(':') + 1);
        return code == MOSQ_ERR_ERRNO ? "the connection ended" : mosquitto_strerror(code);
    }

    const std::string m_server;
    const int m_port;
    const std::unique_ptr<mosquitto, ClientEnd> m_client;
    std::optional<int> m_answer; // of the broker to the connection; 0: it is one
    bool m_lost = false;
    std::set<int> m_unanswered; // what was published
    int m_trouble = MOSQ_ERR_SUCCESS;
    std::string m_said; // by the library, of the first error
};

class Mqtt final : public NoticeChannel {
public:
    Mqtt(const NoticeSignals& signals, NoticeAccess access)
        : m_signals(signals), m_access(std::move(access)) {
        static const int ready = mosquitto_lib_init();
        if (ready != MOSQ_ERR_SUCCESS)
            throw std::runtime_error(std::string("libmosquitto does not start: ") +
                                     mosquitto_strerror(ready));
    }
    ~Mqtt() override { End(); }

    bool SetUp(const Preferences& preferences) override {
        m_kinds = preferences.notices.kinds;
        m_cameras.clear();
        for (const auto& [camera, own] : preferences.cameras)
            m_cameras.insert(camera);
        if (preferences.notices.mqtt != m_mqtt) {
            // What stood at the former place is not left there for somebody to take for the present.
            if (IsConnected()) {
                for (const auto& [camera, told] : m_told)
                    Withdraw(camera);
                (void)m_broker->AwaitAnswers(m_signals);
            }
            End();
            m_mqtt = preferences.notices.mqtt;
            m_reconnect = kFirstReconnect;
            m_nextConnect = Clock::time_point::min();
        }
        return !m_mqtt.server.empty();
    }

    // States of cameras follow these, whatever is told of.
    bool Wants(const std::string& kind) const override {
        return m_kinds.contains(kind) || kind == kMotionBegan || kind == kMotionEnded;
    }

    NoticeOutcome Send(const Notice& notice) override {
        using enum NoticeOutcome::Result;
        std::string reason = Connect();
        if (!reason.empty())
            return {Failed, platform::Printable(reason)};
        const Topics topics(m_mqtt.topic);
        bool published = true;
        if (notice.kind == kMotionBegan || notice.kind == kMotionEnded)
            m_motion[notice.camera] = notice.kind == kMotionBegan;
        if (notice.number == 0 || m_kinds.contains(notice.kind)) {
            published = m_broker->Publish(topics.Event(), notice.json, false);
            if (!notice.camera.empty()) {
                const std::string picture =
                    m_mqtt.snapshots ? m_access.picture(notice.camera) : std::string();
                published = published &&
                            m_broker->Publish(topics.OfCamera(notice.camera, "event"), notice.json, false);
                if (!picture.empty())
                    published = published &&
                                m_broker->Publish(topics.OfCamera(notice.camera, "picture"), picture, true);
            }
        }
        if (published) {
            TellStates();
            reason = m_broker->AwaitAnswers(m_signals);
        } else {
            reason = "it cannot be sent";
        }
        if (!reason.empty())
            Lose();
        return reason.empty() ? NoticeOutcome{Taken, "the broker has it"}
                              : NoticeOutcome{Failed, platform::Printable(reason)};
    }

    void Rest(Clock::time_point until) override {
        while (Clock::now() < until && !m_signals.stop.IsSet() && !m_signals.wakeup.IsSet()) {
            const auto soon = std::min(until, Clock::now() + kLookInterval);
            if (!m_mqtt.server.empty() && !IsConnected() && Clock::now() >= m_nextConnect)
                (void)Connect();
            if (!IsConnected()) {
                (void)WaitFor({.wakeup = &m_signals.wakeup, .stop = &m_signals.stop},
                              m_mqtt.server.empty() ? until : soon);
                continue;
            }
            TellStates();
            while (m_broker->Serve(m_signals, true, soon))
                ;
            if (!IsConnected())
                Lose();
        }
    }

private:
    static constexpr std::string_view kMotionBegan = "motion-began";
    static constexpr std::string_view kMotionEnded = "motion-ended";

    struct Told {
        std::optional<bool> connected;
        std::optional<bool> motion;
    };

    [[nodiscard]] bool IsConnected() const noexcept { return m_broker && m_broker->IsConnected(); }

    std::string Connect() {
        if (IsConnected())
            return "";
        const Topics topics(m_mqtt.topic);
        const auto broker = std::make_shared<Broker>(m_mqtt, topics.Status());
        const auto unreached =
            m_errand.Run([broker] { return broker->Reach(); }, m_signals.stop, Clock::now() + kBrokerWithin);
        std::string reason = unreached.value_or("no connection comes about");
        if (reason.empty()) {
            m_broker = broker;
            reason = m_broker->AwaitEntry(m_signals);
        }
        if (!reason.empty()) {
            Lose();
            return reason;
        }
        m_reconnect = kFirstReconnect;
        m_told.clear();
        (void)m_broker->Publish(topics.Status(), "online", true);
        TellStates();
        return "";
    }

    void Lose() {
        m_broker.reset();
        m_nextConnect = Clock::now() + m_reconnect;
        m_reconnect = std::min(2 * m_reconnect, Clock::duration(kLongestReconnect));
    }

    // What is so now of each camera, where the broker has something else.
    void TellStates() {
        std::erase_if(m_motion, [&](const auto& entry) { return !m_cameras.contains(entry.first); });
        std::erase_if(m_told, [&](const auto& entry) {
            const bool gone = !m_cameras.contains(entry.first);
            if (gone)
                Withdraw(entry.first);
            return gone;
        });
        for (const std::string& camera : m_cameras) {
            const auto [told, isNew] = m_told.try_emplace(camera);
            if (isNew && m_mqtt.discovery) {
                for (const auto& [topic, json] : HomeAssistantEntities(m_mqtt, camera))
                    (void)m_broker->Publish(topic, json, true);
            }
            const auto motion = m_motion.find(camera);
            Tell(camera, "connected", m_access.isConnected(camera), told->second.connected);
            Tell(camera, "motion", motion != m_motion.end() && motion->second, told->second.motion);
        }
    }

    void Tell(const std::string& camera, std::string_view what, bool on, std::optional<bool>& told) {
        if (told != on &&
            m_broker->Publish(Topics(m_mqtt.topic).OfCamera(camera, what), on ? "ON" : "OFF", true))
            told = on;
    }

    // An empty retained message is none.
    void Withdraw(const std::string& camera) {
        if (m_mqtt.discovery) {
            for (const auto& [topic, json] : HomeAssistantEntities(m_mqtt, camera))
                (void)m_broker->Publish(topic, "", true);
        }
        for (const char* what : {"connected", "motion", "picture"})
            (void)m_broker->Publish(Topics(m_mqtt.topic).OfCamera(camera, what), "", true);
    }

    // The last will is for connections that break: somebody who goes says so.
    void End() {
        if (IsConnected()) {
            (void)m_broker->Publish(Topics(m_mqtt.topic).Status(), "offline", true);
            m_broker->Leave();
        }
        m_broker.reset();
    }

    const NoticeSignals& m_signals;
    const NoticeAccess m_access;
    MqttPreferences m_mqtt;
    WordSet m_kinds;
    std::set<std::string> m_cameras;  // of the settings: those that come and go there, not with a phone
    std::shared_ptr<Broker> m_broker; // null: no connection
    Errand m_errand;                  // on the way to one; shares it
    Clock::duration m_reconnect = kFirstReconnect;
    Clock::time_point m_nextConnect = Clock::time_point::min();
    // What the broker has, by camera. One that stands here is announced to Home Assistant.
    std::map<std::string, Told> m_told;
    std::map<std::string, bool> m_motion; // by camera, as its last event says
};

} // namespace

std::unique_ptr<NoticeChannel> MakeMqtt(const NoticeSignals& signals, NoticeAccess access) {
    return std::make_unique<Mqtt>(signals, std::move(access));
}

} // namespace host
