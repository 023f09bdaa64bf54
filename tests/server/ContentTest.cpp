// What is served by path: the mobile page, the midlets' archives to whoever may have them, and the settings:
// their document, their file, and what becomes of cameras and phones when they change.

#include <ctime>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/configdoc/configdoc.h"
#include "platform/files.h"
#include "runtime/archive/Archive.h"
#include "support/ComponentTest.h"
#include "support/ConfigText.h"
#include "support/OtherResources.h"
#include "support/RecordingVideoSink.h"
#include "support/TcpPair.h"
#include "support/Wire.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using support::Lines;

constexpr char16_t kTextHead[] = u"HTTP/1.0 200 OK\r\ncontent-type: text/xml\r\n";

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

// Another module's image that was there first, with the numbers of the component's own.
class ImageInFront {
public:
    ImageInFront() {
        std::vector<rescomp::Resource> resources;
        for (const char16_t* type : {u"JAR", u"XML", u"EXE", u"ZIP"})
            for (std::uint16_t number = 200; number < 212; ++number)
                resources.push_back(support::Neutral(type, number, "another module's"));
        m_image = rescomp::BuildImage(std::move(resources));
        const auto own = platform::ModuleBytes(ThisModule());
        platform::RemoveResourceInstance(ThisModule());
        for (const auto image : {std::span(Handle(), m_image.size()), own})
            EXPECT_EQ(S_OK, platform::AddResourceInstance(image));
    }
    ImageInFront(const ImageInFront&) = delete;
    ImageInFront& operator=(const ImageInFront&) = delete;
    ~ImageInFront() { platform::RemoveResourceInstance(Handle()); }

private:
    [[nodiscard]] platform::ModuleHandle Handle() const {
        return reinterpret_cast<platform::ModuleHandle>(m_image.data());
    }
    std::string m_image;
};

class Content : public support::ComponentTest {
protected:
    Content() {
        Start();
        EXPECT_EQ(S_OK, support::AddCamera(m_server.Get(), u"yard", u"320x240", u"secret"));
        EXPECT_EQ(S_OK, support::AddCamera(m_server.Get(), u"open", u"160x120", u""));
    }
    // A get over what the caller's body and head hold.
    support::Answer Fetch(std::u16string_view path) {
        return support::Ask(*m_configuration.Get(), false, Bstr(path), Bstr(u"body"), Bstr(u"head"));
    }
    const ImageInFront m_image;
};

// Every tail that names nothing else gives the page.
TEST_F(Content, IsTheMobilePageForWhateverNamesNothingElse) {
    const std::string page =
        "<?xml version='1.0' encoding='UTF-8'?><?xml-stylesheet type='text/xsl' href='/mobile/mobile.xsl'?>\n"
        "<mobile>\n\t<view>Camera viewer</view>\n\t<upload>Mobile video transfer application</upload>\n"
        "<local ";
    for (const char16_t* path : {u"", u"Config", u"mobile.XSL", u"x/y", u"Sendora.jar?a=b/c"}) {
        const support::Answer answer = Fetch(path);
        EXPECT_EQ(S_OK, answer.status);
        EXPECT_EQ(kTextHead, answer.head.View());
        EXPECT_EQ(page, answer.body.Bytes().substr(0, page.size()));
        EXPECT_TRUE(answer.body.Bytes().ends_with(std::string_view("</mobile>\n\0", 11)));
    }
    const support::Answer sheet = Fetch(u"mobile.xsl");
    EXPECT_EQ(kTextHead, sheet.head.View());
    EXPECT_TRUE(
        sheet.body.Bytes().starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<xsl:stylesheet "));
}

TEST_F(Content, IsAnArchiveForWhoMayHaveIt) {
    struct Row {
        std::u16string path;
        HRESULT hr;
        std::string line; // of the manifest
    };
    const Row rows[] = {
        {u"Sendora.jar?JarName=S&login=yard&password=secret", S_OK,
         "LOGIN: yard\r\nPSW: secret\r\nSRV: \r\nFORMAT: 320x240\r\n"},
        {u"Sendora.jar/login=open&password=", S_OK, "SRV: \r\nFORMAT: 160x120\r\n"},
        {u"Send%6Fra.jar?login=yard&password=x&password=secret", S_OK, "PSW: secret\r\n"},
        {u"Sendora.jar?login=yard&password=Secret", E_ACCESSDENIED, ""},
        {u"Sendora.jar?login=Yard&password=secret", E_ACCESSDENIED, ""},
        {u"Sendora.jar?login=open", E_ACCESSDENIED, ""},
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

TEST_F(Content, IsRequestedWithTheCredentialsThatTheHostKnows) {
    struct Row {
        const char16_t* path;
        const char16_t* head;
        HRESULT auth, hr;
    };
    const Row rows[] = {
        {u"mobile//Sendora.jar//", u"GET /x\r\n\r\n", S_OK, S_OK},
        {u"mobile/Sendora.jar?login=open&password=", u"GET /x\r\n\r\n", S_OK, S_OK}, // yard's all the same
        {u"mobile/Sendora.jar?JarName=S", u"GET /x\r\n\r\n", E_ACCESSDENIED, E_ACCESSDENIED},
        {u"mobile/Sendora.jar", u"GET /x", S_OK, E_INVALIDARG},
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
            EXPECT_TRUE(sent.Get() == head && bodyOwner.IsNull());
            continue;
        }
        EXPECT_EQ(u"content-type: application/java-archive\n", Bstr::Adopt(head).View());
        EXPECT_PRED2(support::Has, ManifestOf(bodyOwner.Bytes()), "LOGIN: yard\r\nPSW: secret\r\n");
    }
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: SUCCEEDED(hr(0x80070005:'Access is denied.'))\n"}));
}

// Each download gets its own archive, whatever the order in which they come to the server's lock: their files
// have the same names.
TEST_F(Content, DownloadsAreMadeOneAtATime) {
    // The C library reads a zone that it has not read before under a lock that the thread sanitizer cannot
    // see.
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    std::vector<std::jthread> threads;
    for (int n = 0; n < 10; ++n)
        threads.emplace_back([&, login = "login" + std::to_string(n)] {
            const support::Answer answer =
                support::Get(*m_configuration.Get(),
                             platform::FromUtf8("Viewlander.jar?JarName=same&password=p&login=" + login));
            EXPECT_EQ(S_OK, answer.status);
            EXPECT_PRED2(support::Has, ManifestOf(answer.body.Bytes()), "\r\nLOGIN: " + login + "\r\n");
        });
    threads.clear();
    ::unsetenv("TZ");
    EXPECT_EQ(m_log.Texts(), Lines());
}

std::string Item(std::string_view name, std::string_view password = "p", std::string_view type = "320x240") {
    return platform::ToUtf8(support::CameraItem(platform::FromUtf8(name), platform::FromUtf8(type),
                                                platform::FromUtf8(password)));
}
std::string Cams(const std::string& items, const std::string& keyPath = " KeyXPath='Name/text()'") {
    return "<config><host type='BSTR'>h</host><cams" + keyPath + ">" + items + "</cams></config>";
}

class Settings : public support::ComponentTest {
protected:
    Settings() { Start(); }
    static std::string FileText() {
        return platform::ReadWholeFile(support::SettingsFile()).value_or("(none)");
    }
    static void WriteFile(const std::string& text) {
        std::ofstream(support::SettingsFile(), std::ios::binary) << text;
    }
    std::string Get() { return support::TextOf(support::Get(*m_configuration.Get(), u"config").body); }
    // The answer's body.
    std::string Set(const std::string& xml, HRESULT expected = S_OK) {
        const support::Answer answer = support::Set(*m_configuration.Get(), support::WideOf(xml));
        EXPECT_EQ(expected, answer.status) << xml;
        m_head = answer.head;
        return support::TextOf(answer.body);
    }
    ComPtr<ICam> Cam(const Bstr& name) { return support::CameraOf(*m_source.Get(), name); }
    // Starts an upload.
    void Upload(std::u16string_view camera, support::TcpPair& phone) {
        phone.far.Send(support::AuthRecord("p"));
        EXPECT_EQ(S_FALSE, Connect(camera, phone.Adopt()));
        EXPECT_EQ(std::string("\0", 1), phone.far.Receive(1));
    }
    static void ExpectGoesOn(support::TcpPair& phone) {
        phone.far.Send(support::StreamHeader(""));
        EXPECT_EQ("\n", phone.far.Receive(1)) << "the upload has ended";
    }
    // Subscribes for the rest of the test.
    void Subscribe() {
        ASSERT_EQ(S_OK, m_source->Subscribe(m_sink.Get()));
        (void)m_sink->Take();
    }

    Bstr m_head; // of the last set's answer
    const ComPtr<support::RecordingVideoSinkObject> m_sink = support::RecordingVideoSinkObject::Create();
};

// The form of the file, which other versions and other programs read.
TEST_F(Settings, FileHasItsForm) {
    EXPECT_EQ("(none)", FileText()) << "nothing is written before the first set";
    const std::string answer =
        Set("<config><host type='BSTR'>10.0.0.1:8080</host><cams KeyXPath='Name/text()'>" +
            Item("Двор №1", "пароль &lt;&amp;", "160x120") + Item("O'Brien", "") + "</cams></config>");
    EXPECT_EQ(kTextHead, m_head.View());
    std::ifstream golden(std::string(GOLDEN_FOLDER) + "/settings.xml", std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(golden), {}), FileText());
    EXPECT_EQ(0, std::system(("xmllint --noout " + support::SettingsFile()).c_str()));
    // What was written is what is read.
    EXPECT_EQ(answer, Get());
    Stop();
    Start();
    EXPECT_EQ(answer, Get());
    EXPECT_TRUE(Cam(Bstr(u"Двор №1")) && Cam(Bstr(u"O'Brien")));
    EXPECT_EQ(m_log.Texts(), Lines());
}

TEST_F(Settings, ADamagedFileGivesDefaults) {
    const std::string standard = Get();
    const std::string rows[] = {"", "no xml", Cams(Item("a")).substr(0, 90), "<!DOCTYPE x><config/>"};
    for (const std::string& content : rows) {
        Stop();
        WriteFile(content);
        Start();
        EXPECT_EQ(standard, Get()) << content;
        EXPECT_EQ(content, FileText());
    }
    // What can be read of a file is served.
    Stop();
    WriteFile(Cams(Item("a"), ""));
    Start();
    EXPECT_PRED2(support::Has, Get(), ">h</host>");
    // Where there is no folder, the change lives in memory.
    support::ForgetSettings();
    ::rmdir(support::SettingsFolder().c_str());
    EXPECT_PRED2(support::Has, Set(Cams(Item("a"))), ">a<");
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: SUCCEEDED(hr)\n"}));
}

TEST_F(Settings, ASetComparesWithWhatIsThere) {
    m_sink->m_onAdded = [&](BSTR name) { EXPECT_TRUE(Cam(Bstr::CopyOf(name))); };
    Set(Cams(Item("b") + Item("O'Brien") + Item("a")));
    Subscribe();
    const auto kept = Cam(Bstr(u"O'Brien"));
    support::TcpPair staying, leaving, again, replaced;
    Upload(u"O'Brien", staying);
    Upload(u"b", leaving);

    // One stays with another password, one goes, one comes.
    const std::string all = Set(Cams(Item("c") + Item("O'Brien", "new") + Item("a")));
    EXPECT_EQ(m_sink->Take(), (Lines{"-O'Brien", "-a", "-b", "+O'Brien", "+a", "+c"}));
    EXPECT_EQ(kept.Get(), Cam(Bstr(u"O'Brien")).Get());
    EXPECT_TRUE(leaving.far.IsClosed());
    ExpectGoesOn(staying);
    again.far.Send(support::AuthRecord("p"));
    EXPECT_EQ(E_ACCESSDENIED, Connect(u"O'Brien", again.Adopt()));

    // A set without cameras and a host, and one of no document, change nothing. The subscriber hears of both.
    m_log.Clear();
    EXPECT_EQ(all, Set("<config/>"));
    EXPECT_EQ(all, Set("<damaged", platform::kStatusNotADocument));
    const Lines same{"-O'Brien", "-a", "-c", "+O'Brien", "+a", "+c"};
    Lines twice = same;
    twice.insert(twice.end(), same.begin(), same.end());
    EXPECT_EQ(m_sink->Take(), twice);
    // What has no such head is no set.
    const Bstr other(platform::FromUtf8(Cams(Item("other"))));
    for (const Bstr& head :
         {Bstr(u"set\nContent-Type: text/xml; charset=utf-8\n"), Bstr(u"set\nContent-Type: TEXT/XML\n"),
          Bstr(u"set\ncontent-type: text/xml"), Bstr()}) {
        const support::Answer answer =
            support::Ask(*m_configuration.Get(), true, Bstr(u"config"), other, head);
        EXPECT_EQ(E_UNEXPECTED, answer.status);
        EXPECT_EQ(other, answer.body);
        EXPECT_EQ(head, answer.head);
    }
    // The web sets nothing, whatever its head says.
    const Bstr post(u"POST /mobile/config HTTP/1.1\r\nContent-Type: text/xml\r\n\r\n");
    BSTR body = other.Get();
    BSTR head = post.Get();
    EXPECT_EQ(E_UNEXPECTED, m_host.script.handler->Request(u"mobile/config", &body, &head));
    EXPECT_TRUE(body == other.Get() && head == post.Get());
    EXPECT_EQ(
        std::ranges::count(m_log.Texts(), "TRASSDO: oHTTPHeader.GetParam(\"content-type\")==\"text/xml\"\n"),
        5);
    EXPECT_EQ(m_sink->Take(), Lines());
    EXPECT_EQ(all, Get());
    // An item of the same name that is not matched is another camera.
    Upload(u"a", replaced);
    Set(Cams(Item("a", "a"), " KeyXPath='Password/text()'"));
    EXPECT_EQ(m_sink->Take(), (Lines{"-O'Brien", "-a", "-c", "+a"}));
    EXPECT_TRUE(replaced.far.IsClosed());
    EXPECT_EQ(S_OK, m_source->Unsubscribe(m_sink.Get()));
}

// An item that is refused ends a load; what was done by then stays, and the subscriber knows of it. A camera
// stands in the table under the name that its item has.
TEST_F(Settings, NamesAndKeysAreOne) {
    const std::string split = "<item><Name type='BSTR'>ya<![CDATA[rd]]></Name><Type type='BSTR'/>"
                              "<Password type='BSTR'/></item>";
    const auto with = [](const std::string& item, const std::string& instead) {
        return "<item" + instead + item.substr(5);
    };
    const std::string a = Item("a");
    struct Row {
        std::string before, document;
        Lines heard;
    };
    const Row rows[] = {
        {"", Cams(split), {"+yard"}},
        {a, Cams(Item("a", "changed") + "<item><Name type='BSTR'>z</Name></item>" + Item("z")), {"-a", "+a"}},
        {a, Cams(Item("b") + Item("ya<i/>rd") + Item("c")), {"-a", "+b"}},
        {"", Cams(with(Item("b"), " key='b'") + with(Item("c"), " key='k'"), " KeyXPath='@key'"), {"+b"}},
        {a,
         Cams(with(Item("b"), "><key type='BSTR'>b</key") + with(Item("c"), "><key type='BSTR'>k</key"), ""),
         {"-a", "+b"}},
        // One that is there keeps its name, whatever a document matches its items by.
        {a, Cams(Item("A"), " KeyXPath='Type/text()'"), {"-a", "+a"}},
    };
    for (const auto& [before, document, heard] : rows) {
        Set(Cams(before));
        Subscribe();
        const std::string answer = Set(document);
        EXPECT_EQ(m_sink->Take(), heard) << document;
        EXPECT_EQ(S_OK, m_source->Unsubscribe(m_sink.Get()));
        // Each name of the table stands in the document, and the next life finds the same.
        for (const std::string& line : m_sink->Take())
            EXPECT_PRED2(support::Has, answer, ">" + line.substr(1) + "</Name>");
        Stop();
        Start();
        EXPECT_EQ(answer, Get()) << document;
    }
}

// What throws ends a set: settings, file and uploads are as before. Here the items have no key.
TEST_F(Settings, ASetThatIsBrokenOffIsTakenBack) {
    const std::string all = Set(Cams(Item("a") + Item("b") + Item("c")));
    const std::string file = FileText();
    const auto kept = Cam(Bstr(u"a"));
    support::TcpPair phone;
    Upload(u"a", phone);
    Subscribe();
    const Bstr broken(platform::FromUtf8("<config><host type='BSTR'>other</host><cams>" + Item("a", "new") +
                                         Item("b") + Item("c") + "</cams></config>"));
    const std::string wanting = all.substr(0, all.find("<cams")) + "<cams>" + all.substr(all.find("<item d"));
    struct Row {
        std::string file; // none for an empty text
        Lines heard;
    };
    const Lines same{"-a", "-b", "-c", "+a", "+b", "+c"};
    const Row rows[] = {{file, same},
                        {"", same},
                        {"no xml", same},
                        {wanting, same}, // which cannot be taken over itself
                        {Cams(Item("a") + Item("d")), {"-a", "-b", "-c", "+a", "+d"}}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        support::ForgetSettings();
        if (!row.file.empty())
            WriteFile(row.file);
        const Bstr head(u"set\nContent-Type: text/xml\n");
        const support::Answer answer =
            support::Ask(*m_configuration.Get(), true, Bstr(u"config"), broken, head);
        EXPECT_EQ(E_FAIL, answer.status);
        EXPECT_EQ(broken, answer.body);
        EXPECT_EQ(head, answer.head);
        EXPECT_EQ(m_sink->Take(), row.heard);
        EXPECT_EQ(row.file.empty() ? "(none)" : row.file, FileText());
        EXPECT_EQ(row.heard == same, all == Get());
        EXPECT_EQ(kept.Get(), Cam(Bstr(u"a")).Get());
    }
    ExpectGoesOn(phone);
    EXPECT_EQ(S_OK, m_source->Unsubscribe(m_sink.Get()));
}

} // namespace
