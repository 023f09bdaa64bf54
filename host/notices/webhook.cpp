#include "host/notices/channel.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <curl/curl.h>

#include "host/tls/digest.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::chrono::seconds kConnectDeadline{5};
constexpr std::chrono::seconds kWholeDeadline{10};
// Nothing that a receiver says matters; this much is read so that the connection can be used again.
constexpr std::size_t kMostAnswerBytes = 64 * 1024;

struct CurlEnd {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
using CurlPtr = std::unique_ptr<CURL, CurlEnd>;

class HeaderLines {
public:
    void Add(const std::string& line) {
        curl_slist* const longer = curl_slist_append(m_lines.get(), line.c_str());
        if (longer == nullptr)
            throw std::bad_alloc();
        (void)m_lines.release();
        m_lines.reset(longer);
    }
    [[nodiscard]] curl_slist* Get() const noexcept { return m_lines.get(); }

private:
    std::unique_ptr<curl_slist, CurlEnd> m_lines;
};

std::size_t CountAnswer(char*, std::size_t, std::size_t size, void* received) {
    auto& bytes = *static_cast<std::size_t*>(received);
    bytes += size;
    return bytes <= kMostAnswerBytes ? size : 0;
}

int EndAtStop(void* stop, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<const Wakeup*>(stop)->IsSet() ? 1 : 0;
}

// 408, 425 and 429 ask for another try; 401, 403 and 404 are somebody's mistake in the settings of either
// side, and events shall wait for its repair.
bool RefusesTheNotice(long status) {
    constexpr std::array kLater{401L, 403L, 404L, 408L, 425L, 429L};
    return status >= 400 && status < 500 && std::ranges::find(kLater, status) == kLater.end();
}

class Webhook final : public NoticeChannel {
public:
    explicit Webhook(const NoticeSignals& signals) : m_signals(signals) {
        static const CURLcode ready = curl_global_init(CURL_GLOBAL_DEFAULT);
        if (ready != CURLE_OK)
            throw std::runtime_error(std::string("libcurl does not start: ") + curl_easy_strerror(ready));
    }

    bool SetUp(const Preferences& preferences) override {
        m_webhook = preferences.notices.webhook;
        m_kinds = preferences.notices.kinds;
        m_handle.reset(); // a connection of another server
        return !m_webhook.address.empty();
    }

    bool Wants(const std::string& kind) const override { return m_kinds.contains(kind); }

    NoticeOutcome Send(const Notice& notice) override {
        using enum NoticeOutcome::Result;
        if (!m_handle)
            m_handle.reset(curl_easy_init());
        if (!m_handle)
            return {Failed, "there is no memory for a request"};
        const HeaderLines headers = HeadersOf(notice);
        std::array<char, CURL_ERROR_SIZE> reason{};
        std::size_t received = 0;
        Prepare(notice, headers, reason.data(), &received);
        const CURLcode code = curl_easy_perform(m_handle.get());
        long status = 0;
        curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &status);
        // Nothing may point to what is gone when the handle is used next.
        curl_easy_reset(m_handle.get());
        // Who has said how it stands may go on talking, or end in the middle.
        if (status < 200) {
            const std::string text = reason[0] != '\0' ? reason.data() : curl_easy_strerror(code);
            return {Failed, platform::Printable(text)};
        }
        const std::string answered = "it answered with status " + std::to_string(status);
        if (status >= 200 && status < 300)
            return {Taken, answered};
        return {RefusesTheNotice(status) ? Refused : Failed, answered};
    }

    void Rest(Clock::time_point until) override {
        (void)WaitFor({.wakeup = &m_signals.wakeup, .stop = &m_signals.stop}, until);
    }

private:
    HeaderLines HeadersOf(const Notice& notice) const {
        const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
        const std::string time = std::to_string(now.time_since_epoch().count());
        HeaderLines headers;
        headers.Add("Content-Type: application/json");
        headers.Add("Expect:"); // no round trip before a short body
        headers.Add("X-Morrowstream-Event: " + std::to_string(notice.number));
        headers.Add("X-Morrowstream-Time: " + time);
        if (!m_webhook.secret.empty())
            headers.Add("X-Morrowstream-Signature: sha256=" +
                        HmacSha256(m_webhook.secret, time + "." + notice.json));
        return headers;
    }

    void Prepare(const Notice& notice, const HeaderLines& headers, char* reason, std::size_t* received) {
        CURL* const handle = m_handle.get();
        const auto milliseconds = [](std::chrono::milliseconds time) {
            return static_cast<long>(time.count());
        };
        curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, reason);
        curl_easy_setopt(handle, CURLOPT_URL, m_webhook.address.c_str());
        curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
        const Authorities& authorities = TrustedAuthorities();
        curl_easy_setopt(handle, CURLOPT_CAPATH, authorities.folder.c_str());
        if (!authorities.file.empty())
            curl_easy_setopt(handle, CURLOPT_CAINFO, authorities.file.c_str());
        curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, milliseconds(kConnectDeadline));
        curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, milliseconds(kWholeDeadline));
        // A thread that still looks up the name is left, not waited for.
        curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);
        curl_easy_setopt(handle, CURLOPT_USERAGENT, "Morrowstream/" MORROWSTREAM_VERSION);
        curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.Get());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(notice.json.size()));
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, notice.json.data());
        curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &CountAnswer);
        curl_easy_setopt(handle, CURLOPT_WRITEDATA, received);
        curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
        curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, &EndAtStop);
        curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &m_signals.stop);
    }

    const NoticeSignals& m_signals;
    WebhookPreferences m_webhook;
    WordSet m_kinds;
    CurlPtr m_handle;
};

} // namespace

std::unique_ptr<NoticeChannel> MakeWebhook(const NoticeSignals& signals) {
    return std::make_unique<Webhook>(signals);
}

} // namespace host
