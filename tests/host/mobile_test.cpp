// What phones and browsers get of the component's content.

#include <fstream>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/http/request.h"
#include "host/site/mobile/pages.h"
#include "rig.h"

namespace host::test {
namespace {

using support::FakeWebHandler;
using testing::HasSubstr;
using testing::Not;

TEST(Mobile, BrowsersAskForHtmlByName) {
    const std::pair<const char*, bool> rows[] = {
        {"", false},
        {"text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,*/*;q=0.8", true},
        {"application/vnd.wap.xhtml+xml, */*;q=0.1", true},
        {"text/*", false},
        {"text/html;q=0.5, application/xml", false},
        {"text/html ; q=0", false},
        {"text/html;q=zero, text/xml;q=0.001", false},
        {"text/xml;q=0, text/*;level=1;Q=0.25", true},
        {",;,text/html;;,", true},
    };
    for (const auto& [accept, html] : rows)
        EXPECT_EQ(PrefersHtml(accept), html) << accept;
    EXPECT_DOUBLE_EQ(QualityOf("text/*;q=0.125", "text/html"), 0.125);
    EXPECT_EQ(QualityOf("text/html;q=9", "text/html"), 0);
}

TEST(Mobile, SheetsAreAppliedOfMemoryAlone) {
    EXPECT_EQ(StyleSheetOf("<?xml-stylesheet href=\"/a/b.xsl\" type=\"text/xsl\"?><p/>"), "/a/b.xsl");
    for (const char* document : {"<p/>", "<?xml-stylesheet href='/a' type='text/css'?>",
                                 "<?xml-stylesheet href='/a", "<?xml-stylesheet type='text/xsl' href=?>"})
        EXPECT_EQ(StyleSheetOf(document), "") << document;
    const auto sheet = [](std::string_view body) {
        return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'><xsl:output "
               "method='html'/><xsl:template match='/'>" +
               std::string(body) + "</xsl:template></xsl:stylesheet>";
    };
    EXPECT_EQ(ApplyStyleSheet("<p>\xC3\xA4&amp;</p>", sheet("<b><xsl:value-of select='p'/></b>")),
              "<b>\xC3\xA4&amp;</b>\n");
    // What the sheet reaches for outside is refused, and an entity of the document stays unread.
    const std::string file = ::testing::TempDir() + "reached.xml";
    std::ofstream(file) << "<secret/>";
    EXPECT_FALSE(ApplyStyleSheet("<p/>", sheet("<xsl:copy-of select=\"document('" + file + "')\"/>")));
    const auto entity = ApplyStyleSheet("<!DOCTYPE p [<!ENTITY e SYSTEM '" + file + "'>]><p>&e;</p>",
                                        sheet("<b><xsl:copy-of select='p'/></b>"));
    EXPECT_THAT(entity.value_or(""), Not(HasSubstr("secret")));
    for (const char* bad : {"", "<p>", "<p/>"})
        EXPECT_FALSE(ApplyStyleSheet("<p/>", bad)) << bad;
    EXPECT_FALSE(ApplyStyleSheet("<p", sheet("<b/>")));
}

TEST(Mobile, TextsAndArchivesAsHttpHasThem) {
    const Rig rig;
    const auto ask = [&](const std::string& path) { return rig.Get(path, std::string(Rig::kPhone)); };
    // The zero behind a text goes, and a text of two bytes a unit comes as UTF-8.
    struct {
        std::string body, sent;
    } const texts[] = {{std::string("<\xC3\xA4/>\0", 6), "<\xC3\xA4/>"},
                       {std::string("<\0\xE4\0/\0>\0", 8), "<\xC3\xA4/>"},
                       {"", ""}};
    for (const auto& text : texts) {
        rig.handler->m_answerBody = text.body;
        const Reply reply = ask("/mobile/x");
        EXPECT_EQ(reply.body, text.sent);
        EXPECT_EQ(reply.Header("Content-Type"), "text/xml; charset=utf-8");
        EXPECT_EQ(reply.Header("Cache-Control"), "no-store");
        EXPECT_EQ(reply.Header("Vary"), "");
    }
    // A page whose sheet is not to be had goes out as it is.
    rig.handler->m_answerBody = "<?xml-stylesheet type='text/xsl' href='/elsewhere.xsl'?><p/>";
    const Reply page = rig.Get("/mobile", "Accept: text/html\r\n" + std::string(Rig::kPhone));
    EXPECT_EQ(page.Header("Content-Type"), "text/xml; charset=utf-8");
    EXPECT_EQ(page.Header("Vary"), "Accept");

    rig.handler->m_answerHead = u"content-type: application/java-archive\n";
    rig.handler->m_answerBody = std::string("PK\0", 3);
    const std::pair<const char*, const char*> names[] = {
        {"", "attachment; filename=\"Sendora.jar\""},
        {"?JarName=Front%20door", "attachment; filename=\"Front door.jar\""},
        {"?a=JarName=b&JarName=x%22y", "attachment; filename=\"x_y.jar\"; filename*=UTF-8''x%22y.jar"},
        {"?JarName=%C3%A4", "attachment; filename=\"__.jar\"; filename*=UTF-8''%C3%A4.jar"},
        {"?JarName=a%0D%0Ab", "attachment; filename=\"Sendora.jar\""},
    };
    for (const auto& [query, disposition] : names) {
        const Reply reply = ask(std::string("/mobile/Sendora.jar") + query);
        EXPECT_EQ(reply.body, rig.handler->m_answerBody);
        EXPECT_EQ(reply.Header("Content-Disposition"), disposition);
    }
    for (const std::string& bytes : {std::string("PK"), std::string("PK\5\6", 4) + std::string(18, '\0')}) {
        rig.handler->m_answerBody = bytes; // none, and an empty one
        EXPECT_EQ(ask("/mobile/Sendora.jad").status, 400U);
    }
    EXPECT_EQ(rig.handler->Requested().back().path, "mobile/Sendora.jar");
    rig.handler->m_answerBody.clear();
    EXPECT_EQ(ask("/mobile/Sendora.jar").status, 500U) << "an empty archive is none";

    const Reply list = ask("/xslt/enum/all?xslt=cameras.xsl");
    EXPECT_EQ(list.Header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_THAT(list.body, HasSubstr("clock\tclock\n"));
    EXPECT_EQ(ask("/xslt/enum/all?xslt=SensorsPage.xslt").Header("Location"), "/");
}

TEST(Mobile, SettingsAreForTheAdminUnderEveryName) {
    const Rig rig;
    for (const char* path :
         {"/mobile/config", "/mobile/%63onfig", "/mobile/conf%69g/", "//mobile/config", "/mobile/config/%FF",
          "/mobile/%63onfig/%zz", "/mobile/config%00", "/mobile/config/%c3?x=1"}) {
        EXPECT_NE(rig.Get(path, std::string(Rig::kPhone)).status, 200U) << path;
        EXPECT_TRUE(rig.handler->Requested().empty()) << path;
    }
}

// What a browser sends reaches the component as a phone's own bytes do, and no faster than it asks for them.
TEST(Mobile, ABrowserKeepsToTheGrantsOfAPhone) {
    Rig rig(LongLimits(), false);
    rig.AddCamera("yard");
    rig.authenticator.SetCameras({{"yard", "320x240", "p\xC3\xA4ss"}});
    Page page(rig.Port(),
              "Origin: http://localhost\r\nCookie: morrow-phone-plain-0=" +
                  rig.phones.Begin("yard", false, {"a"}) + "\r\n",
              "/phone/socket");
    ASSERT_EQ(page.reply.status, 101U);
    // The texts up to the one that has this in it.
    const auto until = [&page](std::string_view part) {
        std::string heard;
        while (heard.find(part) == std::string::npos) {
            const auto text = page.ReadNext(1);
            if (!text)
                break;
            heard += *text;
        }
        return heard;
    };
    const auto nothingNew = [&] {
        page.Say(R"({"type":"ping","at":5})");
        return until("pong") == R"({"type":"pong","at":5.0})";
    };
    const auto show = [&page](char number) { return page.Say(std::string{0, 0, 0, number, 'j', number}, 2); };
    std::unique_lock busy(rig.handler->m_busy);
    page.Say(R"({"type":"state","state":"running","facing":"user","width":1,"height":1,"rate":1})");
    EXPECT_TRUE(support::Eventually([&] { return rig.handler->m_waiting == 1; }));
    std::vector<Page> others; // on each loop one at least
    for (unsigned i = 0; i < 2 * std::thread::hardware_concurrency(); ++i) {
        others.emplace_back(rig.Port(), std::string(Rig::kViewer), "/view/clock");
        EXPECT_TRUE(others.back().SayAndBeHeard("set fps=1")) << "nobody else waits for it";
    }
    busy.unlock();
    EXPECT_EQ(until("watched"), R"({"type":"watched","watched":false})");
    ASSERT_EQ(rig.handler->Processed().size(), 1U);
    const FakeWebHandler::Call call = rig.handler->Processed()[0];
    EXPECT_EQ(call.path, "mobile/video/yard");
    EXPECT_EQ(call.codePage, platform::kCodePageUtf8);
    const auto identity = rig.authenticator.Identify(call.head);
    EXPECT_TRUE(identity && identity->login == "yard");
    std::string opening(133, '\0');
    opening.replace(67, 5, "p\xC3\xA4ss");
    EXPECT_EQ(FakeWebHandler::Read(call.socket, opening.size()), opening);
    const auto grant = [&call](char count) { return platform::send(call.socket, &count, 1, 0) == 1; };
    const auto frame = [&call] { return FakeWebHandler::Read(call.socket, 5); };
    EXPECT_TRUE(show(1) && nothingNew());
    EXPECT_TRUE(grant(0) && nothingNew()) << "that was the answer to the password";
    EXPECT_TRUE(grant(1));
    EXPECT_EQ(until("ack"), R"({"type":"ready","camera":"yard"}{"type":"ack","number":1})");
    EXPECT_EQ(frame(), std::string("\4\2\0j\1", 5));
    EXPECT_TRUE(show(2) && show(3) && nothingNew());
    EXPECT_TRUE(grant(1));
    EXPECT_EQ(until("ack"), R"({"type":"ack","number":2})");
    EXPECT_EQ(frame(), std::string("\4\2\0j\2", 5));
    // Somebody looks.
    (void)rig.feeds->Find("yard")->Newest();
    EXPECT_EQ(until("watched"), R"({"type":"watched","watched":true})");
    EXPECT_TRUE(show(4) && nothingNew());
    EXPECT_TRUE(show(5)); // one more than may be without an answer
    EXPECT_EQ(page.ReadNext(8).value_or("").substr(0, 2), "\x03\xF0"); // 1008
    EXPECT_EQ(FakeWebHandler::Read(call.socket, 1), "") << "the upload ends with the page";
}

} // namespace
} // namespace host::test
