// What phones and browsers get of the component's content.

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/http/request.h"
#include "host/site/mobile/pages.h"
#include "rig.h"

namespace host::test {
namespace {

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

} // namespace
} // namespace host::test
