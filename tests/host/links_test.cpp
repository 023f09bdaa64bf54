// Links that give a phone its midlet once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/http/endpoint.h"
#include "host/site/links/link_table.h"
#include "host/site/links/pages.h"
#include "host/site/links/qr_code.h"
#include "rig.h"
#include "support/SharedStore.h"

namespace host::test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

TEST(LinkTable, ALinkIsGoodOnceAndNotForLong) {
    const auto table = std::make_shared<LinkTable>();
    const Clock::time_point now = Clock::now();
    const auto link = table->Make("yard", now);
    ASSERT_TRUE(link);
    const auto last = link->until - std::chrono::nanoseconds(1);
    auto use = table->Use(link->token, last);
    ASSERT_TRUE(use);
    EXPECT_FALSE(table->Use(link->token, now)) << "two at once";
    EXPECT_TRUE(table->Find(link->token, last)) << "the page for it is there meanwhile";
    EXPECT_FALSE(table->Find(link->token, link->until));
    use.reset();
    EXPECT_TRUE(table->Use(link->token, now)) << "what did not arrive may be fetched again";
    EXPECT_FALSE(table->Use(link->token, link->until));
    for (std::size_t i = 1; i < LinkTable::kMostLinks; ++i)
        ASSERT_TRUE(table->Make("yard", now));
    EXPECT_FALSE(table->Make("yard", now));
    EXPECT_TRUE(table->Make("yard", now + LinkTable::kLifetime)) << "the old ones make room";
}

TEST(LinkTable, ALinkIsGoodOnceAmongAllHosts) {
    const auto store = std::make_shared<support::SharedStore>();
    const auto first = std::make_shared<LinkTable>(store);
    const auto second = std::make_shared<LinkTable>(store);
    const auto link = first->Make("yard \t1");
    ASSERT_TRUE(link);
    ASSERT_TRUE(second->Find(link->token));
    EXPECT_EQ(second->Find(link->token)->camera, "yard \t1");
    {
        // Both want it, and neither has heard of the other.
        store->SetLate(true);
        const auto use = second->Use(link->token);
        EXPECT_TRUE(use);
        EXPECT_FALSE(first->Use(link->token));
        store->SetLate(false);
        EXPECT_FALSE(first->Use(link->token));
    }
    {
        auto use = first->Use(link->token);
        ASSERT_TRUE(use) << "what did not arrive there may be fetched here";
        use->Done();
    }
    EXPECT_FALSE(second->Find(link->token));
    const auto other = second->Make("gate");
    ASSERT_TRUE(other);
    store->SetAway(true);
    EXPECT_FALSE(first->Use(other->token)) << "nobody knows whether it was used";
    EXPECT_FALSE(first->Make("gate"));
    store->SetAway(false);
    EXPECT_TRUE(first->Use(other->token));
    EXPECT_TRUE(second->Revoke(other->token));
    EXPECT_FALSE(first->Find(other->token));
}

constexpr const char16_t* kArchive = u"content-type: application/java-archive\n";

// A rig whose camera "front" has a password and whose component gives an archive.
struct LinksRig : Rig {
    explicit LinksRig(const Limits& limits = LongLimits()) : Rig(limits) {
        authenticator.SetCameras({{"front", "320x240", "p&<\xC3\xA4"}, {"open", "320x240", ""}});
        handler->m_answerHead = kArchive;
        handler->m_answerBody = "PK and the rest";
    }
    [[nodiscard]] Reply Post(const std::string& target, const std::string& lines = "") const {
        return Ask("POST " + target + " HTTP/1.1\r\nHost: localhost\r\n" + lines + "\r\n");
    }
    [[nodiscard]] std::string Token() const {
        const std::string body = Post("/api/v1/cameras/front/link").body;
        const auto at = body.find("\"token\":\"");
        return at == std::string::npos ? "" : body.substr(at + 9, 32);
    }
};

TEST(Links, AnArchiveWithTheCamerasSignInOnce) {
    const LinksRig rig;
    const std::string token = rig.Token();
    ASSERT_THAT(token, MatchesRegex("[0-9a-f]{32}"));
    const std::string base = "/get/" + token;
    const Reply page = rig.Get(base, "Host: elsewhere.example\r\n");
    EXPECT_EQ(page.status, 200U) << "a phone has no sign-in and reaches the host under any name";
    EXPECT_THAT(page.body, HasSubstr("href=\"" + base + "/Sendora.jar\""));
    EXPECT_EQ(page.Header("Cache-Control"), "no-store");
    EXPECT_EQ(page.Header("Referrer-Policy"), "same-origin");
    EXPECT_EQ(rig.Get(base + "/other").status, 404U);
    const std::string archive = base + "/Sendora.jar HTTP/1.1\r\nHost: localhost\r\n\r\n";
    EXPECT_EQ(rig.Ask("HEAD " + archive, true).status, 200U);
    rig.handler->m_requestResult = E_FAIL;
    EXPECT_EQ(rig.Ask("GET " + archive).status, 500U) << "uses nothing up";
    rig.handler->m_requestResult = S_OK;
    // The component has a page for a sign-in that its request cannot carry.
    rig.handler->m_answerHead = u"content-type: text/xml\n";
    EXPECT_EQ(rig.Ask("GET " + archive).status, 500U);
    rig.handler->m_answerHead = kArchive;
    // Whatever follows: this one's system has taken it all, and then the connection breaks.
    Client taken(rig.Port());
    std::string got;
    EXPECT_TRUE(support::Eventually([&] {
        taken = Client(rig.Port());
        taken.peer.Send("GET " + archive);
        return (got = taken.peer.ReceiveUntil("\r\n\r\n")).starts_with("HTTP/1.1 200 ");
    }));
    EXPECT_EQ(taken.peer.Receive(15), "PK and the rest");
    taken.peer.Reset();
    const auto call = rig.handler->Requested().back();
    EXPECT_EQ(call.path, "mobile/Sendora.jar?JarName=front");
    const auto signIn = ParseBasic(ParseRequest(call.head).request.value().Field("authorization"));
    ASSERT_TRUE(signIn);
    EXPECT_EQ(signIn->login + ":" + signIn->password, "front:p&<\xC3\xA4");
    EXPECT_TRUE(support::Eventually([&] { return rig.Get(base).status == 410; }));
    for (const std::string& path : {base + "/Sendora.jar", base + "/Sendora.jad", std::string("/get/x")})
        EXPECT_EQ(rig.Get(path).status, 410U) << path;
}

// All of the archive is with the system then, and a part of it with the phone's.
TEST(Links, AreGoodAgainBehindAnArchiveThatDoesNotArrive) {
    for (const bool stalls : {true, false}) {
        Limits limits = LongLimits();
        if (stalls)
            limits.writeStall = 1s;
        const LinksRig rig(limits);
        rig.handler->m_answerBody = std::string(12'000, 'x');
        const std::string ask =
            "GET /get/" + rig.Token() + "/Sendora.jar HTTP/1.1\r\nHost: localhost\r\n\r\n";
        Client part(rig.Port(), 2048);
        part.peer.Send(ask);
        EXPECT_EQ(part.peer.Receive(100).size(), 100U);
        EXPECT_EQ(rig.Ask(ask).status, 410U) << "nobody else gets it meanwhile";
        if (!stalls)
            part.peer.Reset();
        EXPECT_TRUE(support::Eventually([&] { return rig.Ask(ask).status == 200; }));
        EXPECT_TRUE(!stalls || part.peer.Receive(12'000).size() < 11'000) << "nothing of it comes later";
    }
}

TEST(Links, AreNotForEverybodyToMakeAndAreTakenBack) {
    LinksRig rig;
    for (const char* const target : {"none", "open", "%zz"})
        EXPECT_EQ(rig.Post("/api/v1/cameras/" + std::string(target) + "/link").status, 404U) << target;
    EXPECT_EQ(rig.Post("/api/v1/cameras/front/link", "Origin: http://evil.example\r\n").status, 403U);
    EXPECT_EQ(rig.Ask("POST /api/v1/cameras/front/link HTTP/1.1\r\nHost: rebound.example\r\n\r\n").status,
              403U);

    const std::string revoked = rig.Token();
    const std::string take = "DELETE /links/" + revoked + " HTTP/1.1\r\nHost: localhost\r\n";
    EXPECT_EQ(rig.Ask(take + "Origin: http://evil.example\r\n\r\n").status, 403U);
    for (int again = 0; again < 2; ++again) // one that is gone is as good as revoked
        EXPECT_EQ(rig.Ask(take + "\r\n").status, 200U);
    EXPECT_EQ(rig.Get("/get/" + revoked).status, 410U);
    const std::string orphan = rig.Token();
    rig.authenticator.SetCameras({});
    EXPECT_EQ(rig.Get("/get/" + orphan).status, 410U) << "a camera that is gone takes its links along";
}

TEST(QrCode, HasItsZoneAndEveryModule) {
    const auto code = QrCode::Of("http://localhost/get/0123456789abcdef0123456789abcdef");
    ASSERT_TRUE(code);
    const auto lines = code->TerminalLines();
    // Version 4 at level M: 33 modules, and four around.
    EXPECT_EQ(lines.size(), (33U + 8 + 1) / 2);
    EXPECT_THAT(code->Svg(), HasSubstr("viewBox=\"0 0 41 41\""));
    EXPECT_THAT(code->Svg(), HasSubstr("M4 4h7v1h-7z")) << "the upper edge of the first finder pattern";
    EXPECT_FALSE(QrCode::Of(std::string(4000, 'x')));
}

TEST(Links, AddressesForOthers) {
    const LinkTable::Link link{"t", "yard", {}};
    const Rig local;
    const LinkPages& here = local.site.links;
    EXPECT_EQ(here.OldAddressOf(link, "localhost:8080"), "http://localhost:8080/get/t");
    EXPECT_EQ(here.OldAddressOf(link, ""), "/get/t");
    EXPECT_EQ(here.AddressOf(link, "localhost:8080"), "http://localhost:8080/phone#t");
    EXPECT_EQ(here.AddressOf(link, "cams.example", true), "https://cams.example/phone#t") << "by a proxy";
    const Rig reached(ShortLimits(), true, "", "192.0.2.7:8080");
    EXPECT_EQ(reached.site.links.OldAddressOf(link, "localhost:8080"), "http://192.0.2.7:8080/get/t");
    EXPECT_EQ(reached.site.links.OldAddressOf(link, "cams.example"), "http://cams.example/get/t");
    EXPECT_EQ(reached.site.links.AddressOf(link, "localhost:8080"), "http://192.0.2.7:8080/phone#t");
    const LinkPages secure(reached.authenticator, "192.0.2.7:8080", true, "", {}, nullptr);
    EXPECT_EQ(secure.AddressOf(link, "localhost:8080"), "https://192.0.2.7:8080/phone#t");
    EXPECT_EQ(LinkPages(reached.authenticator, "", true, "", {}, nullptr).AddressOf(link, "localhost:8080"),
              "http://localhost:8080/phone#t");
}

} // namespace
} // namespace host::test
