#include <array>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/configdoc/configdoc.h"
#include "platform/temporary_folder.h"
#include "platform/text.h"
#include "runtime/archive/Archive.h"
#include "support/ComponentTest.h"

namespace {

using platform::Bstr;
using support::Lines;

std::string ManifestOf(std::string_view archive) {
    const ArchivePtr handle(
        OpenArchive(archive.data(), static_cast<std::uint32_t>(archive.size()), kSourceMemory, nullptr));
    SArchiveEntry entry;
    if (!handle ||
        FindArchiveItem(handle->pReader, u"META-INF/manifest.mf", true, nullptr, &entry) != kArchiveOk)
        return "none";
    std::string text(entry.nUncompressedSize, '\0');
    ReadArchiveItem(handle->pReader, entry.nIndex, text.data(), entry.nUncompressedSize);
    return text;
}

using MobilePage = support::ComponentTest;

// Every tail that names nothing else gives the page.
TEST_F(MobilePage, IsServedForWhateverNamesNothingElse) {
    Start();
    std::string page;
    for (const std::u16string_view path :
         {u"", u"Config", u"mobile.XSL", u"x/y", u"Sendora.jar?a=b/c", u"mobile.xsl"}) {
        const support::Answer answer = support::Get(*m_configuration.Get(), path);
        EXPECT_EQ(S_OK, answer.status);
        EXPECT_EQ(u"HTTP/1.0 200 OK\r\ncontent-type: text/xml\r\n", answer.head.View());
        const std::string text(answer.body.Bytes());
        if (path == u"mobile.xsl") {
            EXPECT_TRUE(text.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<xsl:stylesheet "))
                << text;
            continue;
        }
        if (page.empty())
            page = text;
        EXPECT_EQ(page, text);
    }
    EXPECT_TRUE(page.starts_with("<?xml version='1.0' encoding='UTF-8'?>"
                                 "<?xml-stylesheet type='text/xsl' href='/mobile/mobile.xsl'?>\n<mobile>\n"
                                 "\t<view>Camera viewer</view>\n"
                                 "\t<upload>Mobile video transfer application</upload>\n<local "))
        << page;
    EXPECT_TRUE(page.ends_with(std::string_view("</mobile>\n\0", 11)));
}

class Archives : public support::ComponentTest {
protected:
    Archives() {
        Start();
        EXPECT_EQ(S_OK, support::AddCamera(m_server.Get(), u"yard", u"320x240", u"secret"));
        EXPECT_EQ(S_OK, support::AddCamera(m_server.Get(), u"open", u"160x120", u""));
    }
    // A get over what the caller's body and head hold.
    support::Answer Fetch(std::u16string_view path) {
        return support::Ask(*m_configuration.Get(), false, Bstr(path), Bstr(u"body"), Bstr(u"head"));
    }
};

TEST_F(Archives, GoToWhoMayHaveThem) {
    struct Row {
        std::u16string path;
        HRESULT hr;
        std::string line; // of the manifest
    };
    const Row rows[] = {
        {u"Sendora.jar?JarName=S&login=yard&password=secret", S_OK,
         "LOGIN: yard\r\nPSW: secret\r\nSRV: \r\nFORMAT: 320x240\r\n"},
        {u"Sendora.jar?login=open&password=", S_OK, "SRV: \r\nFORMAT: 160x120\r\n"},
        {u"Sendora.jar/login=yard&password=secret", S_OK, "FORMAT: 320x240\r\n"},
        {u"Send%6Fra.jar?login=yard&password=x&password=secret", S_OK, "PSW: secret\r\n"},
        {u"Sendora.jar?login=yard&password=Secret", E_ACCESSDENIED, ""},
        {u"Sendora.jar?login=Yard&password=secret", E_ACCESSDENIED, ""},
        {u"Sendora.jar?login=yard", E_ACCESSDENIED, ""},
        {u"Sendora.jar", E_ACCESSDENIED, ""},
        {u"Viewlander.jar?login=any&password=one", S_OK, "LOGIN: any\r\nPSW: one\r\nSRV: \r\nCAMLIST: "},
        {u"Viewlander.jar?login&password", S_OK, "Quillstart\r\nSRV: \r\nCAMLIST: "},
        {u"Viewlander.jar?password=x", E_ACCESSDENIED, ""},
        {u"Viewlander.jar?JarName=-x&login=a&password=b", E_FAIL, ""},
    };
    // Whatever is made in the folder, or taken from it, changes its time.
    const std::filesystem::path folder = platform::TemporaryFolder();
    for (const Row& row : rows) {
        SCOPED_TRACE(platform::ToUtf8(row.path));
        const auto touched = last_write_time(folder);
        const support::Answer answer = Fetch(row.path);
        EXPECT_EQ(row.hr, answer.status);
        EXPECT_TRUE(is_empty(folder));
        EXPECT_EQ(row.hr != S_OK, last_write_time(folder) == touched) << "nothing is built for a refusal";
        EXPECT_EQ(row.hr == S_OK ? u"application/java-archive" : u"head", answer.head.View());
        if (row.hr == S_OK) {
            EXPECT_PRED2(support::Has, ManifestOf(answer.body.Bytes()), row.line);
        } else {
            EXPECT_EQ(u"body", answer.body.View());
        }
    }
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: bResult\n"}));
}

// The host's library of documents cannot be had.
TEST_F(Archives, AreAllThatIsServedWithoutDocuments) {
    platform::RevokeClassFactory(kConfigDocumentClass);
    struct Row {
        const char16_t* path;
        HRESULT hr;
        const char* report; // the last line of them
    };
    const Row rows[] = {
        {u"", E_UNEXPECTED, "TRASSDO: SUCCEEDED(hr(0x8000ffff:'Catastrophic failure'))\n"},
        {u"config", E_FAIL, nullptr},
        {u"Sendora.jar?login=yard&password=secret", S_OK, nullptr},
    };
    for (const Row& row : rows) {
        m_log.Clear();
        const support::Answer answer = Fetch(row.path);
        EXPECT_EQ(row.hr, answer.status);
        EXPECT_EQ(row.hr != S_OK, answer.body.View() == u"body");
        EXPECT_EQ(row.hr != S_OK, answer.head.View() == u"head");
        EXPECT_EQ(row.report == nullptr ? "" : row.report, m_log.Texts().empty() ? "" : m_log.Texts().back());
    }
    EXPECT_EQ(S_OK, platform::RegisterConfigDocumentClass());
}

TEST_F(Archives, AreRequestedWithTheCredentialsThatTheHostKnows) {
    const std::u16string get = u"GET /x HTTP/1.1\r\nHost: h\r\n\r\n";
    struct Row {
        const char16_t* path;
        std::u16string head;
        HRESULT auth, hr;
    };
    const Row rows[] = {
        {u"mobile/Sendora.jar?JarName=S", get, S_OK, S_OK},
        {u"mobile//Sendora.jar//", get, S_OK, S_OK},
        {u"mobile/Sendora.jar?login=open&password=", get, S_OK, S_OK}, // yard's all the same
        {u"mobile/Sendora.jar?JarName=S", get, E_ACCESSDENIED, E_ACCESSDENIED},
        {u"mobile/Sendora.jar", u"GET /x", S_OK, E_INVALIDARG},
        {u"mobile/Sendora.jar", u"", S_OK, E_INVALIDARG},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(platform::ToUtf8(row.path));
        m_host.script.authResult = row.auth;
        const Bstr sent(row.head);
        BSTR body = nullptr;
        BSTR head = sent.Get();
        EXPECT_EQ(row.hr, m_host.script.handler->Request(row.path, &body, &head));
        const Bstr bodyOwner = Bstr::Adopt(body);
        if (row.hr != S_OK) {
            EXPECT_EQ(sent.Get(), head);
            EXPECT_TRUE(bodyOwner.IsNull());
            continue;
        }
        EXPECT_EQ(u"content-type: application/java-archive\n", Bstr::Adopt(head).View());
        EXPECT_PRED2(support::Has, ManifestOf(bodyOwner.Bytes()), "LOGIN: yard\r\nPSW: secret\r\n");
    }
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n"}));
}

// Each gets his own, whatever the order in which they come to the lock.
TEST_F(Archives, AreMadeOneAtATimeForManyAtOnce) {
    std::array<Bstr, 10> bodies;
    const auto login = [](std::size_t n) { return "login" + std::to_string(n); };
    std::vector<std::jthread> threads;
    for (std::size_t n = 0; n < bodies.size(); ++n)
        threads.emplace_back([&, n] {
            const support::Answer answer =
                support::Get(*m_configuration.Get(),
                             platform::FromUtf8("Viewlander.jar?JarName=same&password=p&login=" + login(n)));
            EXPECT_EQ(S_OK, answer.status);
            bodies[n] = answer.body;
        });
    threads.clear();
    for (std::size_t n = 0; n < bodies.size(); ++n)
        EXPECT_PRED2(support::Has, ManifestOf(bodies[n].Bytes()), "\r\nLOGIN: " + login(n) + "\r\n");
    EXPECT_EQ(m_log.Texts(), Lines());
}

} // namespace
