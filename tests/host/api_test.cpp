// The interface for programs: every operation, for every kind of user, with good and bad bodies; and its
// description, which says the same as the table of addresses.

#include <map>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "host/html/page.h"
#include "host/rig.h"
#include "host/site/addresses.h"

namespace host::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;

const json& Described() {
    static const json description = json::parse(AssetOf("api/openapi.json"));
    return description;
}

// "GET /cameras/*": a path as the table of addresses has it, behind "/api/v1".
std::string RowOf(const std::string& method, const std::string& path) {
    return method + ' ' + std::regex_replace(path, std::regex(R"(\{\w+\})"), "*");
}

std::map<std::string, const json*> DescribedRows() {
    std::map<std::string, const json*> rows;
    for (const auto& [path, operations] : Described()["paths"].items()) {
        for (const auto& [name, operation] : operations.items()) {
            std::string method = name;
            std::ranges::transform(method, method.begin(), [](char c) { return static_cast<char>(c & ~32); });
            if (operation.is_object())
                rows[RowOf(method, path)] = &operation;
        }
    }
    return rows;
}

std::string Bearer(const std::string& token) {
    return "Authorization: Bearer " + token + "\r\n";
}

// Asks, and holds the answer against the description.
class Program {
public:
    Reply Ask(const std::string& request, const std::string& lines, const std::string& body = {},
              const std::string& type = "application/json") {
        const auto blank = request.find(' ');
        const std::string method = request.substr(0, blank);
        std::string head = method + " /api/v1" + request.substr(blank + 1) + " HTTP/1.1\r\n" + kLocal + lines;
        if (!body.empty())
            head += "Content-Type: " + type + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
        Reply reply = rig.Ask(head + "\r\n" + body);
        const auto parsed = ParseRequest(head + "\r\n").request;
        const Address* const row = FindAddress(*parsed).address;
        const bool known = row != nullptr && row->pattern.starts_with("/api/v1/");
        const auto told = known ? rows.find(method + ' ' + std::string(row->pattern.substr(7))) : rows.end();
        if (told != rows.end()) {
            asked.insert(told->first);
            EXPECT_TRUE((*told->second)["responses"].contains(std::to_string(reply.status)))
                << request << " answers " << reply.status << ", which is not described";
        }
        if (reply.status >= 400) {
            EXPECT_EQ(reply.Header("Content-Type"), "application/problem+json") << request;
            const json problem = json::parse(reply.body, nullptr, false);
            EXPECT_EQ(problem.value("status", 0U), reply.status) << request << reply.body;
            EXPECT_NE(problem.value("detail", ""), "") << request;
        }
        EXPECT_EQ(reply.body.find("pass-word"), std::string::npos) << request;
        return reply;
    }
    std::string MakeToken(std::string_view login, Tokens::Scope scope) {
        const auto made = rig.tokens.Make(std::string(login), scope, "t");
        return made ? Bearer(made->token) : "";
    }

    Rig rig{LongLimits(), false};
    const std::map<std::string, const json*> rows = DescribedRows();
    std::set<std::string> asked;
};

TEST(Api, DescriptionAndTableOfAddressesSayTheSame) {
    std::set<std::string> served;
    for (const Address& row : Addresses()) {
        if (!row.pattern.starts_with("/api/v1/"))
            continue;
        EXPECT_EQ(row.refusals, Form::Problem) << row.pattern;
        for (const auto& [method, name] : kMethodNames) {
            if ((row.methods & static_cast<unsigned>(method)) != 0 && method != Method::Head)
                served.insert(std::string(name) + ' ' + std::string(row.pattern.substr(7)));
        }
    }
    std::set<std::string> described;
    for (const auto& [row, operation] : DescribedRows()) {
        described.insert(row);
        const bool open = operation->contains("security") && (*operation)["security"].empty();
        EXPECT_EQ(open, row == "GET /openapi.json") << row;
    }
    EXPECT_EQ(served, described);
}

TEST(Api, AnswersByOperationAndKindOfUser) {
    Program program;
    (void)program.rig.AddCamera("gate");
    const std::string users[] = {"",
                                 std::string(Rig::kPhone),
                                 std::string(Rig::kViewer),
                                 program.MakeToken("admin", Tokens::Scope::Read),
                                 program.MakeToken("admin", Tokens::Scope::All),
                                 std::string(Rig::kAdmin)};
    // For nobody, a phone, a viewer, an administrator's token for reading and for all, the administrator; in
    // this order, so what the token for all has done already is done once more.
    struct Case {
        std::string request;
        std::string body;
        unsigned status[6];
    };
    const std::string camera = R"({"type":"160x120","password":"pass-word"})";
    const std::string user = R"({"kind":"viewer","password":"pass-word"})";
    const Case cases[] = {
        {"GET /openapi.json", "", {200, 200, 200, 200, 200, 200}},
        {"GET /health", "", {401, 403, 200, 200, 200, 200}},
        {"GET /cameras", "", {401, 403, 200, 200, 200, 200}},
        {"PUT /cameras/gate", camera, {401, 403, 403, 403, 201, 200}},
        {"GET /cameras/gate", "", {401, 403, 200, 200, 200, 200}},
        {"GET /cameras/%67ate/state", "", {401, 403, 200, 200, 200, 200}},
        {"GET /cameras/gate/snapshot", "", {401, 403, 503, 503, 503, 503}},
        {"GET /cameras/none/snapshot", "", {401, 403, 404, 404, 404, 404}},
        {"POST /cameras/gate/link", "", {401, 403, 403, 403, 201, 201}},
        {"PATCH /cameras",
         R"({"changes":[{"op":"put","name":"a"},{"op":"remove","name":"a"}]})",
         {401, 403, 403, 403, 200, 200}},
        {"DELETE /cameras/gate", "", {401, 403, 403, 403, 204, 404}},
        {"POST /cameras", "", {405, 405, 405, 405, 405, 405}},
        {"PUT /cameras/gate/state", camera, {405, 405, 405, 405, 405, 405}},
        {"GET /recordings", "", {401, 403, 200, 200, 200, 200}},
        {"GET /recordings/gate", "", {401, 403, 404, 404, 404, 404}},
        {"PUT /recordings/gate/kept?from=0&to=1", "", {401, 403, 403, 403, 404, 404}},
        {"DELETE /recordings/gate/kept?from=0&to=1", "", {401, 403, 403, 403, 404, 404}},
        {"GET /users", "", {401, 403, 403, 200, 200, 200}},
        {"PUT /users/ann", user, {401, 403, 403, 403, 201, 200}},
        {"GET /users/ann", "", {401, 403, 403, 200, 200, 200}},
        {"DELETE /users/ann", "", {401, 403, 403, 403, 204, 404}},
        {"PUT /password", R"({"present":"wrong","password":"pass-word"})", {401, 403, 403, 403, 403, 403}},
        {"GET /events?limit=1&kind=camera-lost,motion-began&from=0", "", {401, 403, 200, 200, 200, 200}},
        {"GET /events?kind=nonsense", "", {401, 403, 400, 400, 400, 400}},
        {"GET /phones", "", {401, 403, 403, 200, 200, 200}},
        {"DELETE /phones/x", "", {401, 403, 403, 403, 404, 404}},
        {"GET /tokens", "", {401, 403, 403, 200, 200, 200}},
        {"POST /tokens", R"({"name":"n","scope":"read"})", {401, 403, 403, 403, 403, 201}},
        {"DELETE /tokens/x", "", {401, 403, 403, 403, 404, 404}},
        {"GET /preferences", "", {401, 403, 403, 200, 200, 200}},
        {"PUT /preferences", R"({"recording":{"days":3}})", {401, 403, 403, 403, 200, 200}},
        {"GET /notices", "", {401, 403, 403, 200, 200, 200}},
        {"POST /notices/mqtt/test", "", {401, 403, 403, 403, 409, 409}},
        {"POST /notices/none/test", "", {401, 403, 403, 403, 404, 404}},
        {"GET /nothing", "", {401, 403, 404, 404, 404, 404}},
        {"PUT /nothing", "{}", {401, 403, 404, 403, 404, 404}},
    };
    for (const Case& c : cases) {
        for (std::size_t i = 0; i < std::size(users); ++i)
            EXPECT_EQ(program.Ask(c.request, users[i], c.body).status, c.status[i]) << c.request << ' ' << i;
    }
    for (const auto& [row, operation] : program.rows)
        EXPECT_TRUE(program.asked.contains(row)) << "no case asks for " << row;
    for (const auto& entry : program.rig.tokens.List())
        EXPECT_EQ(entry.record.login, "admin");
}

TEST(Api, RefusesBadBodiesAndChangesNothing) {
    Program program;
    const std::string admin(Rig::kAdmin);
    ASSERT_EQ(program.Ask("PUT /cameras/yard", admin, R"({"password":"pass-word"})").status, 201U);
    const std::u16string before = program.rig.configuration->m_text;
    struct Case {
        std::string request, body;
        unsigned status;
        std::string pointer = {}; // of the first problem, with 422
        std::string lines = {};
        std::string type = "application/json";
    };
    const std::string huge = "Content-Length: 99999999\r\n";
    const std::string chunked = "Transfer-Encoding: chunked\r\n";
    const Case cases[] = {
        {"PUT /cameras/new", "", 415},
        {"PUT /cameras/new", "{}", 415, "", "", "text/plain"},
        {"PUT /cameras/new", "{", 400},
        {"PUT /cameras/new", "[]", 400},
        {"PUT /cameras/new", "{\"type\":\"\xFF\"}", 400},
        {"PUT /cameras/new", std::string(8000, '['), 400},
        {"PUT /cameras/new", "", 413, "", huge},
        {"PUT /cameras/new", "", 411, "", chunked},
        {"GET /cameras", "{}", 413},
        {"PUT /cameras/new", R"({"typ":"x"})", 422},
        {"PUT /cameras/new", R"({"type":160})", 422, "/type"},
        {"PUT /cameras/new", R"({"type":"1x1"})", 422},
        {"PUT /cameras/new", R"({"password":"a/b"})", 422},
        {"PUT /cameras/yard", R"({"password":")" + std::string(64, 'x') + "\"}", 422},
        {"PUT /cameras/admin", "{}", 422}, // a user's login
        {"PUT /cameras/a%25b", "{}", 422},
        {"PUT /cameras/%zz", "{}", 404},
        {"PATCH /cameras", "{}", 422, "/changes"},
        {"PATCH /cameras", R"({"changes":[{"op":"put","name":"new"},7]})", 422, "/changes/1"},
        {"PATCH /cameras", R"({"changes":[{"op":"move","name":"new"}]})", 422, "/changes/0/op"},
        {"PATCH /cameras", R"({"changes":[{"op":"put"}]})", 422, "/changes/0/name"},
        {"PATCH /cameras", R"({"changes":[{"op":"remove","name":"yard","type":"160x120"}]})", 422,
         "/changes/0"},
        {"PATCH /cameras",
         R"({"changes":[{"op":"remove","name":"yard"},{"op":"put","name":"new"},{"op":"remove","name":"yard"}]})",
         422, "/changes/2"},
        {"PUT /users/new", R"({"kind":"king","password":"x"})", 422, "/kind"},
        {"PUT /users/new", R"({"kind":"viewer"})", 422},
        {"PUT /users/new", R"({"kind":"viewer","password":"a&b"})", 422, "/password"},
        {"PUT /users/new", R"({"kind":"phone","password":")" + std::string(64, 'x') + "\"}", 422,
         "/password"},
        {"PUT /users/new", R"({"kind":"viewer","password":"x","cameras":"yard"})", 422, "/cameras"},
        {"PUT /users/viewer", R"({"cameras":["yard","nope"]})", 422, "/cameras/1"},
        {"PUT /password", R"({"password":"pass-word"})", 422},
        {"PUT /password", R"({"present":"secret","password":"a&b"})", 422, "/password"},
        {"PUT /users/a:b", R"({"kind":"viewer","password":"x"})", 422},
        {"PUT /users/admin", R"({"kind":"viewer"})", 409}, // the last one
        {"DELETE /users/admin", "", 409},
        {"POST /tokens", R"({"name":"","scope":"read"})", 422, "/name"},
        {"POST /tokens", R"({"name":"n"})", 422, "/scope"},
        {"POST /tokens", R"({"name":"n","scope":"some"})", 422, "/scope"},
        {"POST /tokens", R"({"name":"n","scope":"all","login":"nobody"})", 422, "/login"},
        {"PUT /preferences", R"({"recording":{"days":3651}})", 422, "/recording/days"},
        {"PUT /preferences", R"({"recording":{"days":"7"}})", 422, "/recording/days"},
        {"PUT /preferences", R"({"recording":7})", 422, "/recording"},
        {"PUT /preferences", R"({"notices":{"kinds":["rain"]}})", 422, "/notices/kinds"},
        {"PUT /preferences", R"({"notices":{"mqtt":{"hasPassword":true}}})", 422,
         "/notices/mqtt/hasPassword"},
        {"PUT /preferences", R"({"notices":{"mqtt":{"user":"a\u0000b"}}})", 422, "/notices/mqtt/user"},
        {"PUT /preferences", R"({"cameras":{"yard":{"sensitivity":11}}})", 422, "/cameras/yard/sensitivity"},
        {"PUT /preferences", R"({"cameras":{"a/b":{}}})", 422, "/cameras/a~1b"},
        {"PUT /preferences", "{}", 412, "", "If-Match: \"old\"\r\n"},
        {"PUT /cameras/yard", "{}", 412, "", "If-Match: \"old\"\r\n"},
        {"PUT /cameras/yard", "{}", 412, "", "If-None-Match: *\r\n"},
        {"PUT /cameras/new", "{}", 412, "", "If-Match: *\r\n"},
        {"DELETE /cameras/yard", "", 412, "", "If-Match: \"old\"\r\n"},
        {"PATCH /cameras", R"({"changes":[]})", 412, "", "If-Match: \"old\"\r\n"},
        {"PUT /users/viewer", R"({"kind":"phone"})", 412, "", "If-Match: \"old\"\r\n"},
        {"DELETE /users/viewer", "", 412, "", "If-Match: \"old\"\r\n"},
    };
    for (const auto& [request, body, status, pointer, lines, type] : cases) {
        const Reply reply = program.Ask(request, admin + lines, body, type);
        EXPECT_EQ(reply.status, status) << request << ' ' << body << lines;
        if (status == 422) {
            const auto told = json::parse(reply.body)["problems"];
            EXPECT_FALSE(told.empty()) << reply.body;
            EXPECT_EQ(told[0].value("pointer", "?"), pointer) << reply.body;
        }
    }
    EXPECT_EQ(program.rig.configuration->m_text, before);
    EXPECT_EQ(program.rig.preferences.Now()->recording, RecordingPreferences{});
    EXPECT_EQ(program.rig.authenticator.Users().size(), 3U);
    EXPECT_TRUE(program.rig.tokens.List().empty());
}

TEST(Api, VersionsSayWhetherThereIsAnythingNew) {
    Program program;
    const std::string admin(Rig::kAdmin);
    for (const auto& [request, list] :
         {std::pair{"PUT /cameras/new", "GET /cameras"}, std::pair{"PUT /users/ann", "GET /users"}}) {
        const std::string body = request == std::string_view("PUT /users/ann")
                                     ? R"({"kind":"viewer","password":"pass-word"})"
                                     : R"({"type":"160x120","password":"pass-word"})";
        const std::string none = program.Ask(list, admin).Header("ETag");
        EXPECT_EQ(program.Ask(list, admin + "If-None-Match: W/" + none + "\r\n").status, 304U);
        EXPECT_EQ(program.Ask(request, admin + "If-Match: \"old\", W/" + none + "\r\n", body).status, 412U);
        const Reply made = program.Ask(request, admin + "If-Match: \"old\", " + none + "\r\n", body);
        EXPECT_EQ(made.status, 201U);
        EXPECT_EQ(made.Header("Location"), "/api/v1" + std::string(request).substr(4));
        EXPECT_EQ(program.Ask(request, admin + "If-Match: " + none + "\r\n", body).status, 412U);
        // The same once more changes nothing, and so nothing of the version.
        const Reply again = program.Ask(request, admin + "If-None-Match: " + none + "\r\n", body);
        EXPECT_EQ(again.status, 200U);
        EXPECT_EQ(again.Header("ETag"), made.Header("ETag"));
        EXPECT_EQ(program.Ask(request, admin + "If-None-Match: " + made.Header("ETag") + "\r\n", body).status,
                  412U);
        EXPECT_EQ(program.Ask(list, admin + "If-None-Match: " + none + "\r\n").Header("ETag"),
                  made.Header("ETag"));
    }
    // What a change does not name stays.
    EXPECT_EQ(program.Ask("PUT /cameras/new", admin, R"({"type":"320x240"})").body,
              R"({"name":"new","type":"320x240","hasPassword":true})");
    EXPECT_EQ(program.rig.authenticator.CameraPassword("new"), "pass-word");
    // In force, and not on disk.
    program.rig.configuration->m_onSet = nullptr;
    EXPECT_EQ(program.Ask("PUT /cameras/new", admin, R"({"type":"160x120"})").Header("X-Settings-Written"),
              "no");
    program.rig.configuration->m_result = E_FAIL;
    EXPECT_EQ(program.Ask("DELETE /cameras/new", admin).status, 503U);
}

TEST(Api, TokensAreAsGoodAsTheirUserAndInTheirPlaces) {
    Program program;
    Rig& rig = program.rig;
    rig.AddCamera("yard");
    const std::string all = program.MakeToken("admin", Tokens::Scope::All);
    const std::string seeing = program.MakeToken("viewer", Tokens::Scope::All);
    struct Case {
        std::string target;
        const std::string& token;
        unsigned status;
    };
    const std::string unknown = Bearer(std::string(64, '0'));
    const Case cases[] = {
        {"/metrics", all, 200},           {"/health", seeing, 200},
        {"/settings/state", all, 403},    {"/settings/secret?number=0", all, 403},
        {"/mobile/config", all, 403},     {"/xslt/enum/all", all, 403},
        {"/password", all, 403},          {"/api/v1/users", seeing, 403},
        {"/api/v1/cameras", seeing, 200}, {"/api/v1/cameras", unknown, 401},
        {"/metrics", unknown, 401},
    };
    for (const auto& [target, token, status] : cases)
        EXPECT_EQ(rig.Get(target, kLocal + token).status, status) << target;
    EXPECT_THAT(rig.Get("/metrics", kLocal + unknown).Header("WWW-Authenticate"), HasSubstr("invalid_token"));

    // A session counts as little as it does elsewhere: a page of another site makes the browser send it.
    const std::string id = rig.sessions.Begin({"admin", false}, false);
    const std::string line = rig.site.cookie.Line(Request{}, id);
    const std::string cookie = "Cookie: " + line.substr(0, line.find(';')) + "\r\n";
    const std::string body = R"({"name":"n","scope":"all","login":"viewer"})";
    EXPECT_EQ(program.Ask("POST /tokens", cookie, body).status, 403U);
    EXPECT_EQ(program.Ask("POST /tokens", cookie + "Origin: http://evil.example\r\n", body).status, 403U);
    const Reply made = program.Ask("POST /tokens", cookie + "Origin: http://localhost:80\r\n", body);
    ASSERT_EQ(made.status, 201U);
    const auto token = json::parse(made.body);
    const std::string own = Bearer(token["token"]);

    // A stream that it has opened ends with it; the file keeps the others, and no token as it is.
    Client stream(rig.Port());
    stream.peer.Send("GET /live/yard HTTP/1.1\r\n" + kLocal + own + "\r\n");
    EXPECT_EQ(stream.ReadReply(true).status, 200U);
    EXPECT_EQ(
        program.Ask("DELETE /tokens/" + token["id"].get<std::string>(), std::string(Rig::kAdmin)).status,
        204U);
    EXPECT_TRUE(stream.peer.IsClosed(5000));
    EXPECT_EQ(program.Ask("GET /cameras", own).status, 401U);
    const std::string file = platform::ReadWholeFile(rig.folder.File("tokens")).value_or("");
    EXPECT_EQ(file.find(all.substr(22, 64)), std::string::npos);
    const Tokens again(Tokens::InFile(rig.folder.File("tokens")),
                       [&](auto login) { return rig.authenticator.KindOf(login); });
    EXPECT_EQ(again.List().size(), 2U);

    // Its user may do something else now, or is gone.
    EXPECT_EQ(program.Ask("PUT /users/viewer", all, R"({"kind":"phone"})").status, 200U);
    EXPECT_EQ(program.Ask("GET /cameras", seeing).status, 401U);
    for (std::size_t i = 0; i < SecretTable<Tokens::Token>::kMostOfOwner; ++i)
        (void)rig.tokens.Make("admin", Tokens::Scope::Read, "many");
    EXPECT_EQ(program.Ask("POST /tokens", std::string(Rig::kAdmin), R"({"name":"n","scope":"read"})").status,
              409U);
    EXPECT_EQ(program.Ask("GET /cameras", all).status, 200U) << "none ends for another one";
}

TEST(Api, EventsAreThoseThatTheirReaderMaySee) {
    Rig rig(LongLimits(), false);
    rig.events.Tell({.kind = EventKind::CameraLost, .camera = "yard"});
    rig.events.Tell({.kind = EventKind::SettingsChanged, .camera = "yard", .who = "admin"});
    rig.events.Tell({.kind = EventKind::SignInRefused, .who = "x"});
    rig.events.Tell({.kind = EventKind::MotionBegan, .camera = "g te"});
    struct Case {
        std::string query;
        std::string_view user;
        std::string numbers; // and the next one
    };
    const Case cases[] = {{"", Rig::kViewer, "4 1 null"},
                          {"", Rig::kAdmin, "4 3 2 1 null"},
                          {"?limit=2", Rig::kAdmin, "4 3 3"},
                          {"?limit=2&before=3", Rig::kAdmin, "2 1 null"},
                          {"?limit=1&before=4", Rig::kViewer, "1 null"},
                          {"?kind=settings-changed,camera-lost&camera=", Rig::kAdmin, "2 1 null"},
                          {"?camera=g+te", Rig::kViewer, "4 null"},
                          {"?to=2020-01-01T00:00:00Z", Rig::kAdmin, "null"},
                          {"?from=2020-01-01T00:00:00%2B01:00&camera=yard", Rig::kViewer, "1 null"}};
    for (const Case& c : cases) {
        const json told = json::parse(rig.Get("/api/v1/events" + c.query, kLocal + std::string(c.user)).body);
        std::string numbers;
        for (const json& event : told["events"])
            numbers += event["number"].dump() + ' ';
        EXPECT_EQ(numbers + told["next"].dump(), c.numbers) << c.query << c.user;
    }
    for (const char* wrong :
         {"limit=0", "limit=1001", "before=x", "kind=camera-lost,", "kind=,", "from=today"})
        EXPECT_EQ(rig.Get(std::string("/api/v1/events?") + wrong, kLocal + std::string(Rig::kAdmin)).status,
                  std::string_view(wrong) == "kind=camera-lost," ? 200U : 400U)
            << wrong;
    Page page(rig.Port(), std::string(Rig::kViewer), "/events");
    EXPECT_EQ(page.ReadNext(1), "[]") << "from here on nothing is missed";
    rig.events.Tell({.kind = EventKind::UsersChanged, .who = "admin"});
    rig.events.Tell({.kind = EventKind::CameraConnected, .camera = "yard"});
    const json news = json::parse(page.ReadNext(1).value_or("[]"));
    ASSERT_EQ(news.size(), 1U) << news;
    EXPECT_EQ(news[0]["kind"], "camera-connected");
}

} // namespace
} // namespace host::test
