// Who may ask for what at every address of the host, and who sees which camera there.

#include <array>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/rig.h"
#include "host/site/addresses.h"
#include "platform/text.h"
#include "support/Wire.h"

namespace host::test {
namespace {

using testing::HasSubstr;
using testing::Not;

// Cameras that a viewer of a list sees, that nobody but administrators and viewers of all see, and that there
// are none of. Names of one length, so that answers differ by nothing else.
constexpr std::string_view kShown = "shown-cam";
constexpr std::string_view kHidden = "hidden-cm";
constexpr std::string_view kAbsent = "absent-cm";

std::string BasicLine(const std::string& login, const std::string& password) {
    return "Authorization: " + BasicAuthorization({login, password}) + "\r\n";
}

// All of an answer but when it was made; what it was asked for may stand in it.
std::string TextOf(const Reply& reply) {
    static const std::regex kDate("\r\nDate: [^\r]*");
    static const std::regex kName{std::string(kHidden)};
    return std::regex_replace(std::regex_replace(reply.head, kDate, "") + reply.body, kName,
                              std::string(kAbsent));
}

// A host in which everybody of the table below has signed in.
class House {
public:
    House() {
        rig.settings.ChangeCameras(
            std::array{CameraChange{.name = std::string(kShown), .password = "secret"},
                       CameraChange{.name = std::string(kHidden), .password = "secret"}},
            Anyhow);
        for (const std::string_view name : {kShown, kHidden})
            cams.push_back(rig.AddCamera(std::string(name)));
        rig.authenticator.SetPhonesWatchAll(false);
        rig.authenticator.PutUser(
            "lena",
            {.kind = UserKind::Viewer, .password = "secret", .cameras = CameraNames{std::string(kShown)}});
        const auto token = rig.tokens.Make("lena", Tokens::Scope::All, "t");
        visitors = {std::string(Rig::kAdmin),
                    std::string(Rig::kViewer),
                    BasicLine("lena", "secret"),
                    BasicLine(std::string(kShown), "secret"),
                    std::string(Rig::kPhone),
                    "Authorization: Bearer " + token->token + "\r\n",
                    ""};
        // An upload, or a phone that watches, is for the component.
        rig.handler->m_processResult = E_FAIL;
    }

    // `request` is a method, "WS" for a WebSocket, and a target.
    Reply Ask(std::string request, const std::string& lines) const {
        std::string head = lines;
        if (request.starts_with("WS ")) {
            request.replace(0, 2, "GET");
            head += "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n";
        }
        const bool upload = request.starts_with("POST /mobile/video/");
        head = request + " HTTP/1.1\r\n" + kLocal +
               "Origin: http://localhost:80\r\nX-Settings-Token: " + rig.site.pageToken + "\r\n" + head;
        if (!request.starts_with("GET"))
            head += "Content-Length: 0\r\n";
        asked.insert(FindAddress(*ParseRequest(head + "\r\n").request).address);
        return rig.Ask(head + "\r\n" + (upload ? support::AuthRecord("secret") : ""));
    }

    static bool Anyhow(const Settings::CameraReading& /*present*/) { return true; }

    Rig rig{LongLimits(), false};
    std::vector<CamPtr> cams;
    std::vector<std::string> visitors; // lines of their sign-ins
    mutable std::set<const Address*> asked;
};

// Everybody is let in at the first group, and nobody without a sign-in at the others; a camera that somebody
// does not see is one that there is not.
TEST(Rights, AtEveryAddressAreThoseOfTheVisitor) {
    const House house;
    struct Case {
        std::string_view request;
        // Who is let in: an administrator, a viewer of all, a viewer of a list, a camera, a phone, the token
        // of the viewer of a list, nobody.
        std::string_view let;
    };
    // "{}" stands for a camera.
    const Case cases[] = {
        {"GET /assets/phone/app.js", "+++++++"},
        {"GET /assets/shared/style.css", "+++++++"},
        {"GET /healthz", "+++++++"},
        {"GET /readyz", "+++++++"},
        {"GET /get/{}", "+++++++"},
        {"GET /phone", "+++++++"},
        {"GET /phone/manifest.webmanifest", "+++++++"},
        {"GET /phone/state", "-------"}, // by the cookie of a phone alone
        {"POST /phone/pair", "-------"},
        {"POST /phone/sign-in", "+++++++"},
        {"POST /phone/leave", "+++++++"},
        {"POST /phone/picture", "-------"},
        {"WS /phone/socket", "-------"},
        {"GET /sign-in", "+++++++"},
        {"POST /sign-in", "+++++++"},
        {"POST /sign-out", "+++++++"},
        {"POST /archive", "+++++++"},
        {"GET /trust", "+++++++"},
        {"GET /trust/authority.crt", "+++++++"},
        {"GET /api/v1/openapi.json", "+++++++"},
        // Who watches
        {"GET /", "+++--+-"},
        {"WS /tiles", "+++--+-"},
        {"GET /live/{}", "+++--+-"},
        {"GET /snapshot/{}.jpg", "+++--+-"},
        {"GET /view/{}", "+++--+-"},
        {"WS /view/{}", "+++--+-"},
        {"GET /tiny", "+++--+-"},
        {"GET /tiny/{}", "+++--+-"},
        {"GET /tiny/{}/picture", "+++--+-"},
        {"GET /assets/live/app.js", "+++--+-"},
        {"GET /health", "+++--+-"},
        {"GET /metrics", "+++--+-"},
        {"GET /events", "+++--+-"},
        {"WS /events", "+++--+-"},
        {"GET /api/v1/events?camera={}", "+++--+-"},
        {"GET /nothing", "+++--+-"},
        {"GET /api/v1/health", "+++--+-"},
        {"GET /api/v1/cameras", "+++--+-"},
        {"GET /api/v1/cameras/{}", "+++--+-"},
        {"GET /api/v1/cameras/{}/state", "+++--+-"},
        {"GET /api/v1/cameras/{}/snapshot", "+++--+-"},
        {"GET /api/x", "+++--+-"},
        {"GET /recordings", "+++--+-"},
        {"GET /recordings/{}", "+++--+-"},
        {"GET /recordings/{}/at.jpg?t=0", "+++--+-"},
        {"GET /recordings/{}/export", "+++--+-"},
        {"GET /recordings/{}/file?number=1", "+++--+-"},
        {"GET /recordings/{}/export/state?id=x", "+++--+-"},
        {"DELETE /recordings/{}/export?id=x", "+++--+-"},
        {"GET /api/v1/recordings", "+++--+-"},
        {"GET /api/v1/recordings/{}", "+++--+-"},
        // Who is on a phone
        {"GET /xslt/enum/all?xslt=cameras.xsl", "+++++--"},
        {"GET /mobile/list", "+++++--"},
        {"GET /mobile/video/{}", "+++++--"},
        {"POST /mobile/video/{}", "+---+--"},
        {"GET /password", "+++++--"},
        {"POST /password", "+++++--"},
        {"PUT /api/v1/password", "+++++--"},
        // Who administers
        {"GET /mobile/config", "+------"},
        {"GET /settings", "+------"},
        {"GET /settings/", "+------"},
        {"GET /settings/x", "+------"},
        {"GET /settings/state", "+------"},
        {"GET /settings/document", "+------"},
        {"PUT /settings/document", "+------"},
        {"GET /settings/preferences", "+------"},
        {"PUT /settings/preferences", "+------"},
        {"GET /settings/secret?number=0", "+------"},
        {"PUT /settings/language", "+------"},
        {"DELETE /links/{}", "+------"},
        {"POST /cameras/{}/control", "+------"},
        {"PATCH /api/v1/cameras", "+------"},
        {"PUT /api/v1/cameras/{}", "+------"},
        {"DELETE /api/v1/cameras/{}", "+------"},
        {"POST /api/v1/cameras/{}/link", "+------"},
        {"GET /users", "+------"},
        {"POST /users", "+------"},
        {"GET /api/v1/users", "+------"},
        {"GET /api/v1/users/{}", "+------"},
        {"PUT /api/v1/users/{}", "+------"},
        {"DELETE /api/v1/users/{}", "+------"},
        {"GET /api/v1/phones", "+------"},
        {"DELETE /api/v1/phones/x", "+------"},
        {"GET /api/v1/tokens", "+------"},
        {"POST /api/v1/tokens", "+------"},
        {"DELETE /api/v1/tokens/x", "+------"},
        {"GET /api/v1/preferences", "+------"},
        {"PUT /api/v1/preferences", "+------"},
        {"PUT /api/v1/recordings/{}/kept", "+------"},
        {"DELETE /api/v1/recordings/{}/kept", "+------"},
        {"GET /api/v1/notices", "+------"},
        {"POST /api/v1/notices/mqtt/test", "+------"},
    };
    const auto with = [](std::string_view request, std::string_view camera) {
        std::string text(request);
        if (const auto at = text.find("{}"); at != std::string::npos)
            text.replace(at, 2, camera);
        return text;
    };
    constexpr std::size_t kSeesAll = 2; // the first visitors
    for (const auto& [request, let] : cases) {
        for (std::size_t i = 0; i < house.visitors.size(); ++i) {
            const std::string& visitor = house.visitors[i];
            const auto what = testing::Message() << request << " as visitor " << i;
            const Reply reply = house.Ask(with(request, kAbsent), visitor);
            const bool refused = reply.status == 401 || reply.status == 403 || reply.status == 405;
            EXPECT_EQ(refused ? '-' : '+', let[i]) << what << ": " << reply.status;
            if (i < kSeesAll || refused)
                continue;
            if (request.find("{}") == std::string_view::npos)
                EXPECT_THAT(reply.head + reply.body, Not(HasSubstr(kHidden))) << what;
            else
                EXPECT_EQ(TextOf(house.Ask(with(request, kHidden), visitor)), TextOf(reply)) << what;
        }
    }
    for (const Address& row : Addresses())
        EXPECT_TRUE(house.asked.contains(&row)) << "no case asks for " << row.pattern << ' ' << row.methods;
}

// The other way round: what somebody sees is there.
TEST(Rights, ShowWhatIsOnesOwn) {
    House house;
    const std::string& lena = house.visitors[2];
    const std::string& camera = house.visitors[3];
    house.cams[0]->Show(MakeBlock(32, 24));
    house.cams[1]->Show(MakeBlock(32, 24));
    for (const char* list : {"/tiny", "/health", "/metrics", "/api/v1/cameras", "/api/v1/health"}) {
        const Reply seen = house.rig.Get(list, kLocal + lena);
        EXPECT_THAT(seen.body, HasSubstr(kShown)) << list;
        EXPECT_THAT(seen.body, Not(HasSubstr(kHidden))) << list;
        EXPECT_THAT(house.rig.Get(list, kLocal + house.visitors[1]).body, HasSubstr(kHidden)) << list;
    }
    EXPECT_THAT(house.rig.Get("/metrics", kLocal + lena).body, Not(HasSubstr("_total 2\n")));
    EXPECT_EQ(house.rig.Get("/snapshot/hidden-cm.jpg", kLocal + lena).status, 404U);
    EXPECT_EQ(house.rig.Get("/snapshot/shown-cam.jpg", kLocal + lena).status, 200U);
    const std::string list = "/xslt/enum/all?xslt=cameras.xsl";
    EXPECT_EQ(house.rig.Get(list, kLocal + camera).body, "shown-cam\tshown-cam\nclock\tclock\n");
    EXPECT_EQ(house.rig.Get(list, kLocal + house.visitors[4]).body, "clock\tclock\n");
    house.rig.authenticator.SetPhonesWatchAll(true);
    for (const std::string& phone : {camera, house.visitors[4]})
        EXPECT_EQ(house.rig.Get(list, kLocal + phone).body,
                  "hidden-cm\thidden-cm\nshown-cam\tshown-cam\nclock\tclock\n");

    // A list of a phone's own counts all the same.
    house.rig.authenticator.PutUser("phone", {.cameras = CameraNames{std::string(kShown)}});
    EXPECT_EQ(house.rig.Get(list, kLocal + house.visitors[4]).body, "shown-cam\tshown-cam\nclock\tclock\n");

    // A version of a list is one of what is in it.
    const std::string version = house.rig.Get("/api/v1/cameras", kLocal + lena).Header("ETag");
    house.rig.authenticator.PutUser("lena",
                                    {.cameras = CameraNames{std::string(kShown), std::string(kHidden)}});
    EXPECT_NE(house.rig.Get("/api/v1/cameras", kLocal + lena).Header("ETag"), version);
}

TEST(Rights, WithdrawnEndWhatIsOpen) {
    House house;
    Rig& rig = house.rig;
    const std::string& lena = house.visitors[2];
    const std::string origin = "Origin: http://localhost\r\n";
    const std::string lines = lena + origin;
    Client live(rig.Port());
    live.peer.Send("GET /live/shown-cam HTTP/1.1\r\n" + kLocal + lena + "\r\n");
    EXPECT_EQ(live.ReadReply(true).status, 200U);
    Page tiles(rig.Port(), lines);
    Page view(rig.Port(), lines, "/view/shown-cam");
    Page clock(rig.Port(), lines, "/view/clock");
    EXPECT_THAT(tiles.ReadNext(1).value_or(""), testing::AllOf(HasSubstr(kShown), Not(HasSubstr(kHidden))));
    ASSERT_TRUE(view.Say("set fps=25") && view.ReadNext(2) && clock.Say("set fps=25") && clock.ReadNext(2));

    // One more camera is none withdrawn; the page of all begins anew.
    const CameraNames both{std::string(kShown), std::string(kHidden)};
    rig.authenticator.PutUser("lena", {.cameras = both});
    rig.site.watches.Sweep();
    EXPECT_TRUE(tiles.IsClosed());
    Page all(rig.Port(), lines);
    EXPECT_THAT(all.ReadNext(1).value_or(""), HasSubstr(kHidden));
    ASSERT_TRUE(view.SayAndBeHeard("ack 1"));
    rig.authenticator.PutUser("lena", {.cameras = CameraNames{std::string(kHidden)}});
    rig.site.watches.Sweep();
    EXPECT_TRUE(live.peer.IsClosed(5000));
    EXPECT_TRUE(view.IsClosed());
    EXPECT_TRUE(all.IsClosed());
    EXPECT_TRUE(clock.SayAndBeHeard("ack 1")) << "everybody's";

    // Of another kind, or with another password, somebody has to sign in anew; a token is for the kind alone.
    const std::string& token = house.visitors[5];
    const Authenticator::UserWish wishes[] = {{.password = "another"}, {.kind = UserKind::Admin}};
    for (const auto& wish : wishes) {
        const bool kind = wish.kind.has_value();
        Page person(rig.Port(), std::string(kind ? Rig::kViewer : lena) + origin, "/view/clock");
        Page program(rig.Port(), token + origin, "/view/clock");
        ASSERT_TRUE(person.SayAndBeHeard("set fps=25") && program.SayAndBeHeard("set fps=25"));
        rig.authenticator.PutUser(kind ? "viewer" : "lena", wish);
        rig.site.watches.Sweep();
        EXPECT_TRUE(person.IsClosed()) << kind;
        EXPECT_TRUE(program.SayAndBeHeard("ack 1")) << kind;
    }
}

TEST(Rights, OfAListStayWithTheUserAndNotWithTheNameOfACamera) {
    House house;
    Rig& rig = house.rig;
    const auto sees = [&](const std::string& login, std::string_view camera) {
        return rig.authenticator.RightsOf(Sessions::Owner{login, false}).Sees(camera);
    };
    const SignIn signIn{.result = SignIn::Result::Known, .credentials = {"lena", "secret"}};
    std::chrono::seconds retryAfter{0};
    EXPECT_EQ(rig.authenticator.ChangePassword(signIn, "secret", "another", {"192.0.2.1", "192.0.2.1"},
                                               &retryAfter),
              Authenticator::PasswordChange::Changed);
    EXPECT_FALSE(sees("lena", kHidden)) << "with a new password";
    rig.authenticator.PutUser("lena", {.kind = UserKind::Admin});
    EXPECT_TRUE(sees("lena", kHidden));
    rig.authenticator.PutUser("lena", {.kind = UserKind::Viewer, .cameras = CameraNames{"all", "a,b", "é"}});
    EXPECT_EQ(UserStore(rig.folder.File("users")).Users().at("lena").cameras,
              (CameraNames{"all", "a,b", "é"}));
    rig.authenticator.PutUser("lena", {.cameras = CameraNames{std::string(kShown)}});
    // Gone, and a new one under its name.
    const CameraChange gone{.name = std::string(kShown), .remove = true};
    rig.settings.ChangeCameras({&gone, 1}, &House::Anyhow);
    EXPECT_EQ(UserStore(rig.folder.File("users")).Users().at("lena").cameras, CameraNames());
    const CameraChange again{.name = std::string(kShown), .password = "x"};
    rig.settings.ChangeCameras({&again, 1}, &House::Anyhow);
    EXPECT_FALSE(sees("lena", kShown));
    EXPECT_TRUE(sees("viewer", kShown));
    EXPECT_EQ(sees("nobody", kShown), false);
}

} // namespace
} // namespace host::test
