// The web server over real sockets: routing, who may do what, limits, and uploads handed over to the byte.

#include <map>
#include <regex>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/rig.h"
#include "support/Wire.h"

namespace host::test {
namespace {

using support::Eventually;
using support::FakeWebHandler;
using testing::HasSubstr;

TEST(Server, AnswersAreThoseOfTheTable) {
    const Rig rig(LongLimits(), false);
    struct Case {
        std::string request; // method and target
        std::string_view user;
        unsigned status;
        std::string lines = {};
    };
    const std::string upgrade = "Upgrade: websocket\r\nConnection: Upgrade\r\n";
    const std::string token = "X-Settings-Token: " + rig.site.pageToken + "\r\n";
    const std::string empty = "Content-Length: 0\r\n";
    const std::string same = "Origin: http://localhost:80\r\nSec-Fetch-Site: same-origin\r\n";
    const std::string evil = "Origin: http://evil.example\r\n";
    const Case cases[] = {
        {"GET /", Rig::kViewer, 200},
        {"GET /", Rig::kPhone, 403},
        {"GET /", "", 401},
        {"GET /health", "Authorization: Basic !\r\n", 401},
        {"GET /live/yard", Rig::kPhone, 403},
        {"GET /live/nobody", Rig::kViewer, 404},
        {"GET /snapshot/.jpg", Rig::kViewer, 404},
        {"GET /../../etc/passwd", Rig::kViewer, 404},
        {"HEAD /", Rig::kViewer, 200},
        {"POST /", Rig::kAdmin, 405},
        {"PUT /mobile/config", Rig::kAdmin, 405},
        {"GET /", Rig::kViewer, 413, "Content-Length: 3\r\n"},
        {"GET /", Rig::kViewer, 413, "Transfer-Encoding: chunked\r\n"},
        {"GET /tiles", Rig::kViewer, 426},
        {"GET /tiles", Rig::kViewer, 403, upgrade + evil},
        {"GET /mobile/config", Rig::kAdmin, 200},
        {"GET /mobile/config", Rig::kViewer, 403},
        {"GET /mobile/%63onfig", Rig::kPhone, 403},
        {"GET /mobile/list", Rig::kPhone, 200},
        {"POST /mobile/video/u", Rig::kViewer, 403},
        {"POST /mobile/video/u", "", 401},
        {"GET /mobile/video/u", "", 401},
        // Streams to the handler, and no name where it would look for one.
        {"GET /mobile/x/mobile/video/clock", Rig::kPhone, 404},
        {"POST /mobile/x/mobile/video/u", Rig::kPhone, 405},
        {"GET /mobile/videos", Rig::kPhone, 404},
        {"GET /mobile/video%2Fclock", Rig::kPhone, 404},
        {"GET /mobile/list?x=mobile/video", Rig::kPhone, 404},
        {"GET /mobilex", Rig::kViewer, 404},
        {"GET /healthz", "", 200},
        {"GET /sign-in", "", 200},
        {"POST /sign-in", "", 403, empty}, // programs have no use for it
        {"POST /archive", "", 403, empty},
        {"POST /sign-out", "", 403, empty + evil},
        {"GET /password", Rig::kPhone, 200},
        {"GET /password", "", 401},
        {"POST /password", Rig::kPhone, 403, empty},
        {"GET /phone", "", 200},
        {"GET /phone/manifest.webmanifest", "", 200},
        {"GET /phone/state", "", 401},
        {"POST /phone/pair", Rig::kAdmin, 403, empty}, // programs have no use for it
        {"POST /phone/sign-in", "", 403, empty + evil},
        {"POST /phone/leave", "", 403, empty},
        {"POST /phone/picture", "", 403, empty},
        {"GET /phone/socket", "", 403, upgrade},
        {"POST /cameras/x/control", Rig::kPhone, 403, empty},
        {"POST /cameras/x/control", Rig::kAdmin, 403, evil + empty},
        {"POST /cameras/x/control", Rig::kAdmin, 404, empty},
        {"GET /assets/phone/x", "", 404},
        {"GET /assets/shared/style.css", "", 200},
        {"GET /trust", "", 404}, // TLS is not spoken here
        {"GET /trust/authority.crt", "", 404},
        {"HEAD /readyz", Rig::kWrong, 200},
        {"POST /healthz", Rig::kAdmin, 405},
        {"GET /tinyx", Rig::kViewer, 404},
        {"GET /tiny/clock/picture?width=0", Rig::kViewer, 200},
        {"GET /tiny/clock/x/picture", Rig::kViewer, 404},
        {"GET /tiny/%zz", Rig::kViewer, 404},
        {"GET /" + std::string(3000, 'a'), Rig::kViewer, 414},
        {"GET /a b", Rig::kViewer, 400},
        {"GET /health", Rig::kViewer, 200},
        {"GET /snapshot/yard.jpg", "", 401},
        {"GET /tiles", Rig::kPhone, 403, upgrade},
        {"GET /metrics", Rig::kPhone, 403},
        {"GET /metrics", Rig::kViewer, 200},
        {"GET /recordings", "", 401},
        {"GET /recordings/yard", Rig::kPhone, 403},
        {"GET /recordings/yard", Rig::kViewer, 200},
        {"GET /recordings/yard/at.jpg?t=0", Rig::kPhone, 403},
        {"GET /recordings/yard/at.jpg?t=0", Rig::kViewer, 404},
        {"GET /recordings/yard/export", Rig::kPhone, 403},
        {"GET /recordings/yard/export", Rig::kViewer, 404},
        {"GET /recordings/yard/file?number=1", Rig::kPhone, 403},
        {"GET /recordings/yard/file?number=1", Rig::kViewer, 404},
        {"DELETE /recordings/yard/export?id=x", Rig::kPhone, 403},
        {"DELETE /recordings/yard/export?id=x", Rig::kViewer, 404},
        {"GET /recordings/yard/export/state?id=x", Rig::kPhone, 403},
        {"GET /recordings/yard/export/state?id=x", Rig::kViewer, 404},
        {"GET /tiny", "", 401},
        {"GET /mobile", "", 401},
        {"POST /tiles", Rig::kViewer, 405},
        {"GET /view/clock", Rig::kPhone, 403},
        {"GET /view/clock", Rig::kViewer, 200},
        {"GET /view/clock", Rig::kPhone, 403, upgrade},
        {"GET /assets/live/app.js", "", 401},
        {"GET /assets/live/app.js", Rig::kViewer, 200},
        {"GET /assets/live", Rig::kViewer, 404},
        {"GET /settings", Rig::kViewer, 403},
        {"GET /settings/", Rig::kViewer, 403},
        {"GET /settings/nothing", Rig::kViewer, 403},
        {"GET /settings/nothing", Rig::kAdmin, 404},
        {"GET /settings/", Rig::kAdmin, 200, "Sec-Fetch-Site: cross-site\r\n"}, // a link from elsewhere
        {"GET /settings/state", Rig::kViewer, 403},
        {"GET /settings/state", Rig::kAdmin, 200, same},
        {"GET /settings/state", Rig::kAdmin, 403, "Sec-Fetch-Site: same-site\r\n"},
        {"GET /settings/document", Rig::kPhone, 403},
        {"POST /settings/document", Rig::kAdmin, 405, token + empty},
        {"PUT /settings/document", Rig::kViewer, 403},
        {"PUT /settings/document", Rig::kAdmin, 403, "X-Settings-Token: x\r\n" + empty},
        {"PUT /settings/document", Rig::kAdmin, 403, token + evil + empty},
        {"PUT /settings/document", Rig::kAdmin, 403, token + "Sec-Fetch-Site: cross-site\r\n" + empty},
        {"PUT /settings/document", Rig::kAdmin, 428, token + same + empty},
        {"PUT /settings/document", Rig::kAdmin, 411, token + "Transfer-Encoding: chunked\r\n"},
        {"PUT /settings/document", Rig::kAdmin, 413, token + "Content-Length: 99999999\r\n"},
        {"PUT /settings/language", Rig::kAdmin, 422, token + empty},
        {"GET /settings/preferences", Rig::kViewer, 403},
        {"PUT /settings/preferences", Rig::kAdmin, 403, same + empty},
        {"PUT /settings/preferences", Rig::kAdmin, 428, token + same + empty},
        {"GET /settings/secret", Rig::kViewer, 403},
        {"GET /settings/secret?number=0", Rig::kAdmin, 403},
        {"PUT /settings/language", Rig::kPhone, 403},
        {"GET /events", Rig::kViewer, 200},
        {"GET /events", Rig::kPhone, 403},
        {"GET /events", Rig::kPhone, 403, upgrade},
        {"GET /events", Rig::kViewer, 403, upgrade + evil},
        {"GET /links/x", Rig::kAdmin, 405},
        {"DELETE /links/x", Rig::kViewer, 403},
        {"DELETE /links/x", Rig::kAdmin, 200},
        {"GET /get/x", "", 410},
        {"GET /xslt/enum/all", "", 401},
        {"GET /xslt/enum/all", Rig::kPhone, 302},
        {"GET /nothing", "", 401},
        {"POST /api/nothing", "", 401},
        {"POST /api/nothing", Rig::kViewer, 404},
    };
    for (const Case& c : cases) {
        const bool head = c.request.starts_with("HEAD");
        const Reply reply =
            rig.Ask(c.request + " HTTP/1.1\r\n" + kLocal + std::string(c.user) + c.lines + "\r\n", head);
        EXPECT_EQ(reply.status, c.status) << c.request << ' ' << c.user << c.lines;
        EXPECT_EQ(reply.Header("X-Content-Type-Options"), "nosniff") << c.request;
        EXPECT_THAT(reply.head, HasSubstr("\r\nContent-Security-Policy: default-src '")) << c.request;
        // The camera page has a form of its own.
        const bool asks = c.status == 401 && !c.request.starts_with("GET /phone/");
        EXPECT_EQ(reply.Header("WWW-Authenticate").empty(), !asks) << c.request;
    }
    EXPECT_TRUE(rig.handler->Processed().empty()) << "none of these may reach the component as a stream";
    EXPECT_TRUE(rig.configuration->m_path.IsNull()) << "nor change its settings";
}

TEST(Server, RefusalsAreForReadersWhatTheyRead) {
    Rig rig(LongLimits(), false, "fr");
    rig.AddCamera("yard");
    const std::string browser = "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,*/*;q=0.8\r\n";
    struct Case {
        std::string request;
        std::string_view user;
        std::string_view language;
        unsigned status;
        std::string_view title; // of the page
        std::string_view link;
        std::string_view line; // of the text
    };
    const Case cases[] = {
        {"GET /nothing?a=b&c", Rig::kViewer, "en", 404, "There is nothing here", "/",
         "There is nothing here.\n"},
        {"GET /settings", Rig::kViewer, "de, ru", 403, "Это вам недоступно", "/",
         "This kind of user may not do that.\n"},
        {"GET /settings/nothing", Rig::kAdmin, "en", 404, "There is nothing here", "/",
         R"({"text":"There is nothing here.","problems":[]})"},
        {"GET /", Rig::kPhone, "", 403, "Ceci ne vous est pas ouvert", "/mobile",
         "This kind of user may not do that.\n"},
        {"GET /live/yard?a&b", "", "en", 401, "A sign-in is needed", "/live/yard?a&amp;b", {}},
        {"GET /archive", Rig::kAdmin, "en", 405, "That does not work this way", "/",
         "Only POST is known here.\n"},
        {"GET /snapshot/yard.jpg",
         Rig::kViewer,
         "en",
         503,
         "Not now; try again soon",
         "/snapshot/yard.jpg",
         {}},
        {"GET /get/0", "", "en", 410, "This link is good no more", "/", {}},
    };
    for (const auto& [request, user, language, status, title, link, line] : cases) {
        const std::string head = request + " HTTP/1.1\r\n" + kLocal + std::string(user) +
                                 "Accept-Language: " + std::string(language) + "\r\n";
        const Reply page = rig.Ask(head + browser + "\r\n");
        EXPECT_EQ(page.status, status) << request;
        EXPECT_EQ(page.Header("Content-Type"), "text/html; charset=utf-8") << request;
        EXPECT_THAT(page.body, HasSubstr("<h1>" + std::string(title) + "</h1>")) << request;
        EXPECT_THAT(page.body, HasSubstr("<a href=\"" + std::string(link) + "\">")) << request;
        EXPECT_THAT(page.Header("Content-Security-Policy"), HasSubstr("default-src 'none'"));
        const Reply text = rig.Ask(head + "Accept: */*\r\n\r\n");
        EXPECT_EQ(text.status, status) << request;
        EXPECT_THAT(text.body, testing::Not(HasSubstr("<html"))) << request;
        EXPECT_THAT(text.body, testing::StartsWith(line)) << request;
        for (const char* name : {"Allow", "Retry-After", "WWW-Authenticate"})
            EXPECT_EQ(page.Header(name), text.Header(name)) << request;
    }
}

TEST(Server, KeepsAConnectionForRequestsBehindEachOther) {
    const Rig rig(LongLimits());
    Client client(rig.Port());
    // All in one packet: each head is taken alone.
    client.peer.Send("HEAD / HTTP/1.1\r\n" + kLocal + "\r\nGET /nothing HTTP/1.1\r\n" + kLocal +
                     "\r\nGET / HTTP/1.1\r\n" + kLocal + "Connection: close\r\n\r\n");
    const Reply head = client.ReadReply(true);
    EXPECT_EQ(client.ReadReply().status, 404U);
    const Reply page = client.ReadReply();
    EXPECT_EQ(page.Header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(head.Header("Content-Length"), std::to_string(page.body.size()));
    EXPECT_THAT(page.head, HasSubstr("Connection: close"));
    EXPECT_TRUE(client.peer.IsClosed());
    EXPECT_EQ(rig.counters.accepted, 1U);
    EXPECT_EQ(rig.counters.requests, 3U);

    const Reply same = rig.Get("/", kLocal + "If-None-Match: " + page.Header("ETag") + "\r\n");
    EXPECT_EQ(same.status, 304U);
    EXPECT_EQ(same.body, "");
    EXPECT_EQ(rig.Ask("GET / HTTP/1.0\nHost: localhost\n\n").status, 200U) << "line feeds alone";
}

TEST(Server, DemoAnswersOnlyUnderALoopbackName) {
    const Rig rig;
    EXPECT_EQ(rig.Get("/health", "Host: [::1]:1\r\n").status, 200U);
    for (const char* path : {"/", "/metrics", "/live/yard", "/tiny"}) {
        EXPECT_EQ(rig.Get(path, "Host: localhost.evil.example\r\n").status, 403U) << path;
        // Old phones name no host. Whatever they ask for, here it is not the demo's to give.
        EXPECT_EQ(rig.Get(path, "").status, path == std::string_view("/tiny") ? 403U : 400U) << path;
    }
    for (const char* path : {"/mobile/list", "/settings", "/xslt/enum/all?xslt=cameras.xsl"})
        EXPECT_EQ(rig.Get(path).status, 401U) << path << " needs a user in the demo, too";
}

TEST(Server, UploadReachesTheHandlerWithEveryByteBehindItsHead) {
    EXPECT_TRUE(platform::SetSystemCodePage(1252)); // the server's language
    Rig rig(LongLimits());
    const CamPtr cam = rig.AddCamera("front door");
    std::string behind = support::AuthRecord("secret");
    for (int i = 0; i < 3000; ++i)
        behind += static_cast<char>(i * 7);
    const std::string head =
        "POST /mobile/video/front%20door?a=%20 HTTP/1.1\r\nContent-Length: 99999999999\r\n" +
        std::string(Rig::kPhone) + "\r\n";
    std::vector<Client> phones;
    for (const std::size_t chunk : {std::size_t{1}, head.size() - 2, head.size(), std::size_t{9999}}) {
        const std::size_t before = rig.handler->Processed().size();
        Client& phone = phones.emplace_back(rig.Port());
        ASSERT_TRUE(phone.peer.SendInPieces(head + behind, chunk));
        ASSERT_TRUE(Eventually([&] { return rig.handler->Processed().size() > before; })) << chunk;
        const FakeWebHandler::Call call = rig.handler->Processed().back();
        EXPECT_EQ(call.path, "mobile/video/front door?a=%20");
        EXPECT_EQ(call.head, head);
        EXPECT_EQ(call.codePage, platform::kCodePageUtf8) << "as the phone has signed in";
        EXPECT_EQ(FakeWebHandler::Read(call.socket, behind.size()), behind) << chunk;
        EXPECT_EQ(platform::send(call.socket, "\x0A", 1, 0), 1);
        EXPECT_EQ(phone.peer.Receive(1), "\x0A");
    }
    EXPECT_TRUE(Eventually([&] { return rig.counters.open == 0; })) << "handed over is not held";
    EXPECT_EQ(rig.counters.Begun(SessionKind::Upload), 4U);
    cam->Show(MakeBlock(16, 16));
    EXPECT_GT(rig.feeds->Find("front door")->Meters().firstPictureNanoseconds, 0) << "since its request";

    // A viewer's path stays as it came, and nothing is waited for.
    Client viewer(rig.Port());
    viewer.peer.Send("GET /mobile/video/front%20door HTTP/1.1\r\n" + std::string(Rig::kPhone) + "\r\n");
    ASSERT_TRUE(Eventually([&] { return rig.handler->Processed().size() == 5; }));
    EXPECT_EQ(rig.handler->Processed().back().path, "mobile/video/front%20door");
    EXPECT_TRUE(platform::SetSystemCodePage(platform::kCodePageUtf8));
}

TEST(Server, UploadWithoutItsRecordOrDeniedIsClosed) {
    const Rig rig;
    const std::string head = "POST /mobile/video HTTP/1.1\r\n" + std::string(Rig::kPhone) + "\r\n";
    Client slow(rig.Port());
    slow.peer.Send(head + support::AuthRecord("secret").substr(1));
    Client gone(rig.Port());
    gone.peer.Send(head + "half");
    gone.peer.FinishSending();
    EXPECT_TRUE(slow.peer.IsClosed(5000));
    EXPECT_TRUE(gone.peer.IsClosed(5000));
    EXPECT_EQ(rig.Refused(Refusal::RecordTimeout), 1U);
    EXPECT_TRUE(rig.handler->Processed().empty());

    // A denied record is a wrong password for that camera, and the sixth is one too many to be looked at.
    rig.handler->m_processResult = E_ACCESSDENIED;
    for (std::size_t wrong = 1; wrong <= 5; ++wrong) {
        Client phone(rig.Port());
        phone.peer.Send(head + support::AuthRecord("wrong"));
        EXPECT_TRUE(phone.peer.IsClosed(5000));
        EXPECT_TRUE(Eventually([&] { return rig.Refused(Refusal::UploadDenied) == wrong; }));
    }
    EXPECT_EQ(rig.counters.Begun(SessionKind::Upload), 0U);
    EXPECT_TRUE(Eventually([&] { return rig.counters.open == 0; }));
    EXPECT_EQ(rig.Ask(head + support::AuthRecord("wrong")).status, 429U);
    EXPECT_EQ(rig.handler->Processed().size(), 5U);
    Reply reply;
    int wrong = 0; // a machine that is slow gives the sixth and some later ones their turns
    while (++wrong < 12 && reply.status != 429U)
        reply = rig.Get("/mobile/list", std::string(Rig::kWrong));
    EXPECT_GT(wrong, 6);
    EXPECT_EQ(reply.status, 429U);
    EXPECT_GE(std::stoi("0" + reply.Header("Retry-After")), 1);
    EXPECT_EQ(rig.Get("/mobile/list", std::string(Rig::kViewer)).status, 200U) << "from the same address";
}

TEST(Server, HandlerAnswersAndFailuresArePassedOn) {
    const Rig rig;
    rig.handler->m_answerBody = std::string("ab\0b\r\n\r\n\xFF", 9);
    const auto ask = [&] { return rig.Get("/mobile/list%20x?q=1", "X-A: 1\r\n" + std::string(Rig::kPhone)); };
    EXPECT_EQ(ask().body, rig.handler->m_answerBody);
    ASSERT_EQ(rig.handler->Requested().size(), 1U);
    EXPECT_EQ(rig.handler->Requested()[0].path, "mobile/list%20x?q=1");
    EXPECT_THAT(rig.handler->Requested()[0].head, HasSubstr("\r\nX-A: 1\r\n"));
    rig.handler->m_answerHead = u"";
    EXPECT_EQ(ask().Header("Content-Type"), "application/octet-stream");
    for (const auto& [hr, status] : {std::pair{E_NOTIMPL, 501U},
                                     {E_INVALIDARG, 400},
                                     {E_ACCESSDENIED, 403},
                                     {E_ELEMENT_NOT_FOUND, 404},
                                     {E_FAIL, 500}}) {
        rig.handler->m_requestResult = hr;
        EXPECT_EQ(ask().status, status);
    }
    rig.handler->m_requestResult = S_OK;
    rig.handler->m_answerBody = std::string(std::size_t{16} << 20, 'x');
    Client stuck(rig.Port(), 4096);
    stuck.peer.Send("GET /mobile HTTP/1.1\r\n" + std::string(Rig::kPhone) + "\r\n");
    EXPECT_FALSE(stuck.peer.Receive(100).empty());
    EXPECT_TRUE(Eventually([&] { return rig.counters.open == 0; })) << "one that reads nothing more";
    // Nor can a viewer that reads nothing hold the component, which sends without a limit of its own.
    Client viewer(rig.Port(), 4096);
    viewer.peer.Send("GET /mobile/video/clock HTTP/1.1\r\n" + std::string(Rig::kPhone) + "\r\n");
    ASSERT_TRUE(Eventually([&] { return rig.handler->Processed().size() == 1; }));
    const auto size = static_cast<int>(rig.handler->m_answerBody.size());
    EXPECT_LT(platform::send(rig.handler->Processed()[0].socket, rig.handler->m_answerBody.data(), size, 0),
              size);
}

TEST(WebHandlerHost, TellsTheSenderOfARequestAndForgetsAtTheEnd) {
    const Rig rig;
    for (const char16_t* word : {u"", u"a/b"})
        EXPECT_EQ(rig.hosts->RegisterHandler(word, rig.handler.Get()), E_INVALIDARG);
    SRequestAuth auth;
    const auto ask = [&](std::string_view user) {
        const platform::Bstr head(platform::ToWide("GET /x HTTP/1.1\r\n" + std::string(user) + "\r\n"));
        return rig.hosts->GetRequestAuth(head.Get(), &auth);
    };
    for (const std::string_view user : {std::string_view(), Rig::kWrong})
        EXPECT_EQ(ask(user), E_ACCESSDENIED);
    EXPECT_TRUE(auth.bstrLogin == nullptr && auth.bstrPassword == nullptr && auth.pData == nullptr);
    ASSERT_EQ(ask(Rig::kPhone), S_OK);
    EXPECT_EQ(platform::Bstr::Adopt(auth.bstrLogin).View(), u"phone");
    EXPECT_EQ(platform::Bstr::Adopt(auth.bstrPassword).View(), u"secret");
    EXPECT_EQ(rig.authenticator.OwnerOf({reinterpret_cast<char*>(auth.pData), auth.nSize}).value().login,
              "phone");
    CoTaskMemFree(auth.pData);
    rig.hosts->Forget();
    EXPECT_EQ(ask(Rig::kPhone), E_UNEXPECTED);
    EXPECT_EQ(rig.hosts->RegisterHandler(u"a", rig.handler.Get()), E_UNEXPECTED);
    EXPECT_EQ(rig.Get("/mobile/list", std::string(Rig::kPhone)).status, 404U);
}

TEST(Server, HeadsThatDoNotComeAreAnsweredAndCounted) {
    const Rig rig;
    Client silent(rig.Port());
    Client half(rig.Port());
    half.peer.Send("GET / HTTP/1.1\r\nHost");
    EXPECT_EQ(half.ReadReply().status, 408U);
    EXPECT_TRUE(silent.peer.IsClosed(5000));
    EXPECT_EQ(rig.Refused(Refusal::HeadTimeout), 1U) << "a connection without a byte is no request";
    EXPECT_EQ(rig.Ask("GET / HTTP/1.1\r\nX: " + std::string(kMaxHeadBytes, 'x')).status, 431U);
    EXPECT_EQ(rig.Ask("nonsense\r\n\r\n").status, 400U);
    EXPECT_EQ(rig.Refused(Refusal::HeadInvalid), 2U);
}

TEST(Server, ConnectionsAreLimitedPerAddressAndInAll) {
    for (const bool perAddress : {true, false}) {
        Limits limits = LongLimits();
        (perAddress ? limits.maxPerAddress : limits.maxConnections) = 3;
        const Rig rig(limits);
        std::vector<Client> held;
        for (int i = 0; i < 3; ++i)
            held.emplace_back(rig.Port());
        ASSERT_TRUE(Eventually([&] { return rig.counters.open == 3; }));
        Client tooMany(rig.Port());
        const Reply reply = tooMany.ReadReply();
        EXPECT_EQ(reply.status, 503U);
        EXPECT_EQ(reply.Header("Retry-After"), "2");
        EXPECT_TRUE(tooMany.peer.IsClosed());
        EXPECT_EQ(rig.Get("/healthz").status, 200U);
        EXPECT_EQ(rig.Get("/health").status, 503U);
        EXPECT_EQ(rig.Refused(perAddress ? Refusal::TooManyFromAddress : Refusal::TooManyConnections), 2U);
        held.pop_back();
        ASSERT_TRUE(Eventually([&] { return rig.counters.open == 2; }));
        EXPECT_EQ(rig.Get("/health").status, 200U);
    }
}

TEST(Server, SnapshotIsOfNowOrRefused) {
    Rig rig;
    const CamPtr cam = rig.AddCamera("yard");
    const auto ask = [&] { return rig.Get("/snapshot/yard.jpg"); };
    EXPECT_THAT(ask().body, HasSubstr("no picture yet"));
    cam->Show(MakeBlock(320, 240));
    Reply reply = ask();
    EXPECT_EQ(reply.Header("Content-Type"), "image/jpeg");
    EXPECT_EQ(reply.Header("Cache-Control"), "no-store");
    EXPECT_TRUE(reply.body.starts_with("\xFF\xD8") && reply.body.ends_with("\xFF\xD9"));
    std::this_thread::sleep_for(500ms);
    reply = ask();
    EXPECT_EQ(reply.status, 503U);
    EXPECT_THAT(reply.body, HasSubstr("too old"));
    EXPECT_EQ(reply.Header("Retry-After"), "2");
}

TEST(Server, HostileNamesAreEscapedWhereverTheyStand) {
    Rig rig(LongLimits());
    const CamPtr cam = rig.AddCamera("a\"b\\c\n<i>/é %");
    cam->Show(MakeBlock(32, 16));
    cam->Show("");
    cam->SetPhone(true);
    rig.feeds->PollConnections();
    EXPECT_EQ(rig.Get("/snapshot/a%22b%5Cc%0A%3Ci%3E%2F%C3%A9%20%25.jpg").status, 200U);
    EXPECT_THAT(rig.Get("/health").body,
                HasSubstr(R"({"name":"a\"b\\c\n<i>/é %","type":"320x240","connected":true,)"
                          R"("frames":1,"failed":1,"fps":0.0,"width":32,"height":16,)"));
    const std::string metrics = rig.Get("/metrics").body;
    EXPECT_THAT(metrics,
                HasSubstr("\nmorrowstream_camera_frames_total{camera=\"a\\\"b\\\\c\\n<i>/é %\"} 1\n"));
    EXPECT_THAT(metrics, HasSubstr("\nmorrowstream_connections_total 3\n"));
    EXPECT_THAT(
        rig.Get("/tiny").body,
        HasSubstr("<a href=\"/tiny/a%22b%5Cc%0A%3Ci%3E%2F%C3%A9%20%25\">a&quot;b\\c &lt;i&gt;/é %</a>"));
}

// Every line of the format, told what it must be (the text format of Prometheus, version 0.0.4).
std::map<std::string, double> ReadMetrics(const std::string& text) {
    static const std::regex comment(
        "# (HELP [a-z_]+ .+|TYPE ([a-z_]+_total counter|[a-z_]+ (gauge|histogram)))");
    static const std::regex sample(R"re(([a-z_]+(?:\{(?:[a-z]+="(?:[^"\\]|\\.)*",?)+\})?) ([0-9.]+))re");
    std::map<std::string, double> samples;
    std::istringstream lines(text);
    std::smatch found;
    for (std::string line; std::getline(lines, line);) {
        if (std::regex_match(line, found, sample))
            EXPECT_TRUE(samples.emplace(found[1], std::stod(found[2])).second) << line;
        else
            EXPECT_TRUE(std::regex_match(line, comment)) << line;
    }
    return samples;
}

TEST(Server, MetricsTellWhatCamerasCostAndWhoIsThere) {
    Rig rig(LongLimits());
    const CamPtr cam = rig.AddCamera("yard");
    const auto asked = Clock::now();
    const auto show = [&](int count) {
        std::jthread receiver([&] { // as each connection has one
            while (count-- > 0)
                cam->Show(MakeBlock(320, 240));
        });
    };
    const auto value = [&](const std::string& name, const std::string& more = "") {
        return ReadMetrics(rig.Get("/metrics").body)
            .at("morrowstream_" + name + "{camera=\"yard\"" + more + "}");
    };
    show(5);
    EXPECT_EQ(value("camera_credit_stalls_total"), 0);
    // The picture was there before the host knew that its phone was let in.
    rig.feeds->Find("yard")->SessionBegan(asked, "a");
    EXPECT_GT(value("camera_first_picture_seconds"), 0);
    rig.feeds->Find("yard")->SessionBegan(Clock::now(), "a");
    std::this_thread::sleep_for(20ms);
    show(17);
    for (int i = 0; i < 2; ++i) // the second one shares it
        EXPECT_EQ(rig.Get("/snapshot/yard.jpg").status, 200U);
    EXPECT_GE(value("camera_first_picture_seconds"), 0.02);
    EXPECT_EQ(value("camera_decode_seconds_count"), 16)
        << "what the thread did before the first is not known";
    EXPECT_EQ(value("camera_encode_seconds_count"), 1);
    EXPECT_GT(value("camera_encode_seconds_sum"), 0);
    EXPECT_LE(value("camera_decode_seconds_bucket", ",le=\"0.0002\""),
              value("camera_decode_seconds_bucket", ",le=\"0.5\""));
    EXPECT_EQ(value("camera_decode_seconds_bucket", ",le=\"+Inf\""), 16);
    // Work that outlasts four pictures at this camera's rate.
    for (int i = 0; i < 200; ++i)
        cam->Show(MakeBlock(16, 16));
    const std::chrono::nanoseconds arrival = Clock::now().time_since_epoch();
    std::this_thread::sleep_for(100ms);
    (void)rig.feeds->Find("yard")->OnVideoFrame(
        platform::ComObject<support::LentFrame>::Create(MakeBlock(16, 16), "", arrival.count(), 0).Get());
    EXPECT_GT(value("camera_credit_stalls_total"), 0);
    EXPECT_GT(value("camera_credit_stall_seconds_total"), 0);
}

TEST(Server, SmallPagesSpeakTheLanguageThatIsAskedFor) {
    Rig rig(LongLimits(), true, "lv");
    const CamPtr cam = rig.AddCamera("yard");
    cam->Show(MakeBlock(64, 48));
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"", "lv", "Kameras"},
        {"ru-RU,ru;q=0.9,en;q=0.8", "ru", "Камеры"},
        {"en;q=0.3, KA ; q=0.8", "ka", "კამერები"},
        {"es;q=0, *;q=0.1", "lv", "Kameras"},
        {"*, en;q=0.9", "lv", "Kameras"},
        {"es;q=2,-,;;,en-,=", "en", "Cameras"}};
    for (const auto& [accept, language, title] : cases) {
        const Reply reply = rig.Get("/tiny", "Host: localhost\r\nAccept-Language: " + accept + "\r\n");
        EXPECT_EQ(reply.Header("Content-Language"), language) << accept;
        EXPECT_EQ(reply.Header("Vary"), "Accept-Language");
        EXPECT_THAT(reply.body, HasSubstr("<h1>" + title + "</h1>")) << accept;
    }
    const std::string page = rig.Get("/tiny/yard?width=96&every=10&width=x&every=3").body;
    EXPECT_THAT(page, HasSubstr("<meta http-equiv=\"refresh\" content=\"10\">"));
    EXPECT_THAT(page, HasSubstr(" width=\"96\" height=\"72\" "));
    EXPECT_THAT(page, HasSubstr("<a href=\"/tiny/yard?every=60&amp;width=96\">60</a>"));
    const std::string picture = rig.Get("/tiny/yard/picture?width=240").body;
    EXPECT_EQ(picture.substr(picture.find("\xFF\xC0") + 5, 4), std::string("\0\xB4\0\xF0", 4)) << "240x180";
}

} // namespace
} // namespace host::test
