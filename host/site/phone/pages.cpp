#include "host/site/phone/pages.h"

#include <algorithm>
#include <charconv>

#include <poll.h>

#include <nlohmann/json.hpp>

#include "host/bridge/phone_talk.h"
#include "host/html/page.h"
#include "host/http/page_socket.h"
#include "host/log/console.h"
#include "host/site/phone/post_talks.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

Phones::Sender SenderOf(const Request& request) {
    return {request.peer.text, request.Field("User-Agent")};
}

// A message has room for a picture that is too long, so that the page hears why it ends.
constexpr std::size_t kMostMessageBytes = 128 * 1024;

class PhoneSocket final : public PageSocket {
public:
    PhoneSocket(EventLoop& loop, Stream stream, const Request& request, const Limits& limits,
                std::unique_ptr<PhoneTalk> talk, std::function<void()> begun)
        : PageSocket(loop, std::move(stream), request, limits, {kMostMessageBytes, kRestart}),
          m_talk(std::move(talk)), m_begun(std::move(begun)), m_tick(MakeTimer()) {}

private:
    void OnOpen() override {
        Watch(m_talk->Signal(), [this] {
            m_talk->Wake();
            Step();
        });
        AwaitTick();
    }

    void AwaitTick() {
        At(m_tick, Clock::now() + PhoneTalk::kTick, [this] {
            Step();
            AwaitTick();
        });
    }

    bool OnMessage(std::string_view message) override {
        if (!m_talk->OnText(message, Clock::now()))
            return false;
        Step();
        return true;
    }

    bool OnBinary(std::string_view message) override {
        const auto picture = ReadPagePicture(message);
        if (!picture || !m_talk->OnPicture(*picture, Clock::now()))
            return false;
        Step();
        return true;
    }

    void SendNext() override {
        if (m_message = m_talk->Next(); !m_message.empty())
            Text(m_message);
        else if (m_talk->Ended())
            Close(*m_talk->Ended());
    }

    // An upload begins with the server's lock, which somebody may hold who changes the settings.
    void Step() {
        if (m_talk->MayWait(Clock::now()))
            return Elsewhere([this] { m_talk->Step(Clock::now()); }, [this] { Look(); });
        m_talk->Step(Clock::now());
        Look();
    }

    void Look() {
        if (m_talk->IsReady() && !std::exchange(m_hasBegun, true))
            m_begun();
        AwaitComponent();
    }

    void AwaitComponent() {
        const int fd = m_talk->Fd();
        if (fd < 0 || m_upload != m_talk->Uploads()) {
            m_upload = m_talk->Uploads();
            m_component = fd < 0 ? nullptr : MakeSide(fd);
            m_reads = m_writes = false;
        }
        if (fd < 0)
            return;
        Await(POLLIN, m_reads);
        if (m_talk->AwaitsWrite())
            Await(POLLOUT, m_writes);
    }

    void Await(short event, bool& waits) {
        if (std::exchange(waits, true))
            return;
        Once(m_component, event, [this, &waits, upload = m_upload] {
            if (upload != m_upload)
                return;
            waits = false;
            Step();
        });
    }

    const std::unique_ptr<PhoneTalk> m_talk;
    const std::function<void()> m_begun;
    TimerPtr m_tick;
    SidePtr m_component; // of the upload with that number
    unsigned m_upload = 0;
    bool m_reads = false;
    bool m_writes = false;
    bool m_hasBegun = false;
    std::string m_message; // that is being written
};

} // namespace

PhonePages::PhonePages(const BridgeParts& parts, const SessionCookie& cookie, const Limits& limits,
                       const Wakeup& stop, EventLoops& loops, const std::string& language, Spend spend)
    : m_parts(parts), m_cookie(cookie), m_limits(limits), m_stop(stop), m_loops(loops), m_language(language),
      m_spend(std::move(spend)), m_phones(std::make_unique<BrowserPhones>()),
      m_posts(std::make_unique<PostTalks>()) {}

PhonePages::~PhonePages() = default;

Answer PhonePages::Page(const Request& request) const {
    Answer answer = PageAnswer("phone/index.html", request, m_language);
    answer.headers["Permissions-Policy"] = "camera=(self)";
    return answer;
}

Answer PhonePages::Manifest(const Request& request) const {
    const auto phone = PhoneOf(request);
    const std::string name = phone ? phone->camera : "Morrowstream";
    const auto icon = [](std::string_view file, std::string_view sizes, std::string_view purpose) {
        return Json{{"src", "/assets/" + std::string(file)},
                    {"sizes", sizes},
                    {"type", file.ends_with(".svg") ? "image/svg+xml" : "image/png"},
                    {"purpose", purpose}};
    };
    Answer answer = Answer::Json(
        200, {{"id", "/phone"},
              {"name", name},
              {"short_name", name},
              {"start_url", "/phone"},
              {"scope", "/phone"},
              {"display", "standalone"},
              {"background_color", "#0f1314"},
              {"theme_color", "#0f6b66"},
              {"icons",
               {icon("shared/icon.svg", "any", "any"), icon("phone/icon-192.png", "192x192", "any"),
                icon("phone/icon-512.png", "512x512", "any"),
                icon("phone/icon-maskable.png", "512x512", "maskable")}}});
    answer.type = "application/manifest+json";
    return answer;
}

std::optional<Phones::Known> PhonePages::PhoneOf(const Request& request) const {
    const std::string_view number = m_cookie.In(request);
    return number.empty() ? std::nullopt : m_parts.phones.Find(number, request.secure, SenderOf(request));
}

// A browser that is asked for a name and a password opens a window of its own, which helps nobody here.
Answer PhonePages::NoPhone() {
    return Answer::Refusal(Form::Json, 401, "This browser is no camera, or is none any more.");
}

Answer PhonePages::State(const Request& request) const {
    const auto phone = PhoneOf(request);
    return phone ? Answer::Json(200, {{"camera", phone->camera}, {"secure", request.secure}}) : NoPhone();
}

// A phone that this browser was before ends: it has one camera.
Answer PhonePages::Begin(const Request& request, const std::string& camera) const {
    if (const auto former = PhoneOf(request))
        m_parts.phones.End(former->id);
    Console::Get().Log("message", "a browser at " + request.peer.text + " is the camera \"" +
                                      Printable(camera) + "\" from now on");
    Answer answer = Answer::Json(200, {{"camera", camera}, {"secure", request.secure}});
    answer.headers["Set-Cookie"] =
        m_cookie.Line(request, m_parts.phones.Begin(camera, request.secure, SenderOf(request)));
    return answer;
}

Answer PhonePages::Pair(const Request& request, std::string_view form) const {
    const auto camera = m_spend(FormValue(form, "token").value_or(""));
    if (camera)
        return Begin(request, *camera);
    m_parts.counters.Refuse(Refusal::Forbidden);
    return Answer::Refusal(Form::Json, 403, "This code was used, was revoked or is too old.");
}

Answer PhonePages::SignIn(const Request& request, std::string_view form) const {
    const auto name = FormValue(form, "name");
    const auto password = FormValue(form, "password");
    if (!name || !password || name->empty())
        return Answer::Refusal(Form::Json, 400, "The form has the name and the password of a camera.");
    const host::SignIn signIn =
        m_parts.authenticator.Check(BasicAuthorization({*name, *password}), request.peer);
    if (signIn.result == host::SignIn::Result::TurnedAway) {
        m_parts.counters.Refuse(Refusal::Throttled);
        LogRefusal(request, *name, {}, "too many wrong passwords");
        Answer answer =
            Answer::Refusal(Form::Json, 429, "Too many wrong passwords, or too many sign-ins at once.");
        answer.headers["Retry-After"] = std::to_string(signIn.retryAfter.count());
        return answer;
    }
    // A user's own sign-in is good for other pages.
    if (signIn.result == host::SignIn::Result::Known && signIn.camera)
        return Begin(request, *name);
    m_parts.counters.Refuse(Refusal::Unauthorized);
    LogRefusal(request, *name, {}, kWrongPassword);
    return Answer::Refusal(Form::Json, 403, "There is no camera of that name with that password.");
}

Answer PhonePages::Leave(const Request& request) const {
    if (const auto phone = PhoneOf(request))
        m_parts.phones.End(phone->id);
    Answer answer = Answer::Json(200, Json::object());
    answer.headers["Set-Cookie"] = m_cookie.Line(request, {});
    return answer;
}

void PhonePages::StartSocket(Stream stream, const Request& request, const Phones::Known& phone,
                             std::function<void()> begun, std::shared_ptr<const void> held) const {
    auto talk = std::make_unique<PhoneTalk>(m_parts, *m_phones, phone, request.peer.text);
    PageSocket::Start(std::make_unique<PhoneSocket>(m_loops.Choose(), std::move(stream), request, m_limits,
                                                    std::move(talk), std::move(begun)),
                      std::move(held));
}

Answer PhonePages::TakePicture(const Request& request, std::string_view body) const {
    const auto phone = PhoneOf(request);
    if (!phone)
        return NoPhone();
    PostTalks::Post post{phone->id, std::nullopt, std::nullopt};
    if (!QueryParameter(request.query, "state").empty())
        post.state = FormValue(request.query, "state").value_or("");
    if (!body.empty()) {
        const std::string_view text = QueryParameter(request.query, "number");
        std::uint32_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc{} || end != text.data() + text.size())
            return Answer::Refusal(Form::Json, 400, "A picture has a number.");
        post.picture = PagePicture{number, body};
    }
    const auto messages = m_posts->Answer(
        post, [&] { return std::make_unique<PhoneTalk>(m_parts, *m_phones, *phone, request.peer.text); },
        m_stop, m_limits.writeStall);
    return messages ? Answer::Json(200, *messages)
                    : Answer::Refusal(Form::Json, 409, "A phone sends one picture at a time.");
}

void PhonePages::Sweep() const {
    m_posts->Sweep();
    for (const auto& pause : m_phones->TakeEndedPauses(
             [this](const std::string& phone) { return m_parts.phones.IsGood(phone); })) {
        if (const FeedPtr feed = m_parts.feeds.Find(pause.camera))
            m_parts.feeds.SetPhone(*feed.Get(), pause.session, std::nullopt);
    }
}

Answer PhonePages::Control(std::string_view rest, std::string_view body) const {
    constexpr std::string_view kControl = "/control";
    const auto camera = rest.ends_with(kControl)
                            ? PercentDecode(rest.substr(0, rest.size() - kControl.size()))
                            : std::nullopt;
    if (!camera || !m_parts.feeds.Find(*camera))
        return Answer::Refusal(Form::Json, 404, "There is no camera of that name.");
    auto message = ControlMessage(body);
    if (!message)
        return Answer::Refusal(Form::Json, 422, "This is nothing that a phone's page does.");
    return m_phones->Control(*camera, std::move(*message))
               ? Answer::Json(202, Json::object())
               : Answer::Refusal(Form::Json, 409, "No browser is sending for this camera.");
}

} // namespace host
