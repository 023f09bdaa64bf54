// The settings: their document, their file, and what becomes of cameras and phones when they change.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "support/ComponentTest.h"
#include "support/ConfigText.h"
#include "support/RecordingVideoSink.h"
#include "support/TcpPair.h"
#include "support/Wire.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using support::Lines;

std::string Item(std::string_view name, std::string_view password = "p", std::string_view type = "320x240") {
    return platform::ToUtf8(support::CameraItem(platform::FromUtf8(name), platform::FromUtf8(type),
                                                platform::FromUtf8(password)));
}
std::string Cams(const std::string& items) {
    return "<config><cams KeyXPath='Name/text()'>" + items + "</cams></config>";
}

class Settings : public support::ComponentTest {
protected:
    Settings() { Start(); }
    static std::string FileText() {
        return platform::ReadWholeFile(support::SettingsFile()).value_or("(none)");
    }
    std::string Get() { return support::TextOf(support::Get(*m_configuration.Get(), u"config").body); }
    // The answer's body.
    std::string Set(const std::string& xml, HRESULT expected = S_OK) {
        const support::Answer answer = support::Set(*m_configuration.Get(), support::WideOf(xml));
        EXPECT_EQ(expected, answer.status);
        m_head = answer.head;
        return support::TextOf(answer.body);
    }
    ComPtr<ICam> Cam(const Bstr& name) { return support::CameraOf(*m_source.Get(), name); }

    Bstr m_head; // of the last set's answer
};

// The form of the file, which other versions and other programs read.
TEST_F(Settings, FileHasItsForm) {
    EXPECT_EQ("(none)", FileText()) << "nothing is written before the first set";
    const std::string answer =
        Set("<config><host type='BSTR'>10.0.0.1:8080</host><cams KeyXPath='Name/text()'>" +
            Item("Двор №1", "пароль &lt;&amp;", "160x120") + Item("O'Brien", "") + "</cams></config>");
    EXPECT_EQ(u"HTTP/1.0 200 OK\r\ncontent-type: text/xml\r\n", m_head.View());
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
    const std::string rows[] = {"", "no xml", Cams(Item("a")).substr(0, 60), "<!DOCTYPE x><config/>"};
    for (const std::string& content : rows) {
        Stop();
        std::ofstream(support::SettingsFile(), std::ios::binary) << content;
        Start();
        EXPECT_EQ(standard, Get()) << content;
        EXPECT_EQ(content.empty() ? "" : content, FileText());
    }
    // Where there is no folder, the change lives in memory.
    support::ForgetSettings();
    const std::string folder = support::SettingsFolder();
    ::rmdir(folder.c_str());
    EXPECT_PRED2(support::Has, Set(Cams(Item("a"))), ">a<");
    EXPECT_EQ(m_log.Texts(), (Lines{"TRASSDO: SUCCEEDED(hr)\n"}));
}

TEST_F(Settings, ASetComparesWithWhatIsThere) {
    const auto sink = support::RecordingVideoSinkObject::Create();
    sink->m_onAdded = [&](BSTR name) { EXPECT_TRUE(Cam(Bstr::CopyOf(name))); };
    Set("<config><host type='BSTR'>h</host></config>");
    Set(Cams(Item("b") + Item("O'Brien") + Item("a")));
    ASSERT_EQ(S_OK, m_source->Subscribe(sink.Get()));
    (void)sink->Take();
    const auto kept = Cam(Bstr(u"O'Brien"));
    support::TcpPair staying;
    staying.far.Send(support::AuthRecord("p"));
    EXPECT_EQ(S_FALSE, Connect(u"O'Brien", staying.Adopt()));
    support::TcpPair leaving;
    leaving.far.Send(support::AuthRecord("p"));
    EXPECT_EQ(S_FALSE, Connect(u"b", leaving.Adopt()));
    EXPECT_EQ(std::string("\0", 1), staying.far.Receive(1));
    EXPECT_EQ(std::string("\0", 1), leaving.far.Receive(1));

    // One stays with another password, one goes, one comes.
    const std::string all = Set(Cams(Item("c") + Item("O'Brien", "new") + Item("a")));
    EXPECT_EQ(sink->Take(), (Lines{"-O'Brien", "-a", "-b", "+O'Brien", "+a", "+c"}));
    EXPECT_EQ(kept.Get(), Cam(Bstr(u"O'Brien")).Get());
    EXPECT_TRUE(leaving.far.IsClosed());
    staying.far.Send(support::StreamHeader(""));
    EXPECT_EQ("\n", staying.far.Receive(1)) << "its upload goes on";
    support::TcpPair again;
    again.far.Send(support::AuthRecord("p"));
    EXPECT_EQ(E_ACCESSDENIED, Connect(u"O'Brien", again.Adopt()));

    // Nothing that is a set without cameras, or no set at all, changes them.
    m_log.Clear();
    EXPECT_EQ(all, Set("<config/>"));
    EXPECT_EQ(all, Set("<damaged", platform::kStatusNotADocument));
    for (const Bstr& head :
         {Bstr(u"set\nContent-Type: text/xml; charset=utf-8\n"), Bstr(u"set\nContent-Type: TEXT/XML\n"),
          Bstr(u"set\ncontent-type: text/xml"), Bstr()}) {
        const support::Answer answer =
            support::Ask(*m_configuration.Get(), true, Bstr(u"config"), Bstr(u"<config/>"), head);
        EXPECT_EQ(E_UNEXPECTED, answer.status);
        EXPECT_EQ(u"<config/>", answer.body.View());
    }
    EXPECT_EQ(
        std::ranges::count(m_log.Texts(), "TRASSDO: oHTTPHeader.GetParam(\"content-type\")==\"text/xml\"\n"),
        4);
    EXPECT_PRED2(support::Has, all, "<host type=\"BSTR\" displayname=\"//local/@host\">h</host>");
    // An item that cannot be read ends a load; what was done by then stays, and the subscriber knows of it.
    (void)sink->Take();
    Set(Cams(Item("a", "changed") + "<item><Name type='BSTR'>z</Name></item>" + Item("zz")));
    EXPECT_EQ(sink->Take(), (Lines{"-O'Brien", "-a", "-c", "+a"}));
    // A camera keeps the name that the table has it under, whatever a document matches its items by.
    Set("<config><cams KeyXPath='Type/text()'>" + Item("A") + "</cams></config>");
    EXPECT_EQ(sink->Take(), (Lines{"-a", "+a"}));
    Bstr name;
    EXPECT_EQ(S_OK, Cam(Bstr(u"a")).Query<IInfo>()->GetName(name.Receive()));
    EXPECT_EQ(u"a", name.View());
    Set(Cams(""));
    EXPECT_EQ(sink->Take(), (Lines{"-a"}));
    EXPECT_EQ(S_OK, m_source->Unsubscribe(sink.Get()));
}

// A crash at any point of a save leaves the old or the new file.
TEST_F(Settings, AKilledWriterLeavesAWholeFile) {
    std::string many;
    for (int n = 0; n < 40; ++n)
        many += Item("camera " + std::to_string(n));
    const std::string documents[] = {Cams(Item("a")), Cams(many)};
    std::string files[2];
    const auto start = std::chrono::steady_clock::now();
    for (int n = 0; n < 2; ++n) {
        Set(documents[n]);
        files[n] = FileText();
    }
    const auto taken = std::chrono::steady_clock::now() - start;
    // So long that a writer has written each of them at times, whatever this build and this machine are like.
    const auto longest = static_cast<unsigned>(
        2000 + 2 * std::chrono::duration_cast<std::chrono::microseconds>(taken).count());
    unsigned seed = 1;
    int kinds[2] = {0, 0};
    for (int round = 0; round < 300; ++round) {
        const pid_t writer = ::fork();
        if (writer == 0) {
            for (unsigned n = 0;; ++n)
                Set(documents[n % 2]);
        }
        ASSERT_GT(writer, 0);
        seed = seed * 1103515245 + 12345;
        ::usleep((seed >> 8) % longest);
        ::kill(writer, SIGKILL);
        ::waitpid(writer, nullptr, 0);
        const std::string left = FileText();
        const int kind = left == files[0] ? 0 : 1;
        ASSERT_EQ(files[kind], left) << "round " << round;
        ++kinds[kind];
    }
    EXPECT_GT(kinds[0], 0);
    EXPECT_GT(kinds[1], 0);
}

// Two who set and one who reads, with a subscriber that calls back: no deadlock, no torn document.
TEST_F(Settings, SetsAndReadsMayMeet) {
    const auto sink = support::RecordingVideoSinkObject::Create();
    sink->m_onAdded = [&](BSTR name) { (void)Cam(Bstr::CopyOf(name)); };
    ASSERT_EQ(S_OK, m_source->Subscribe(sink.Get()));
    const std::string documents[] = {Cams(Item("a", "1") + Item("b", "1")),
                                     Cams(Item("b", "2") + Item("c", "2"))};
    std::vector<std::thread> threads;
    for (int n = 0; n < 3; ++n) {
        threads.emplace_back([&, n] {
            for (int round = 0; round < 30; ++round) {
                const support::Answer answer =
                    n == 2 ? support::Get(*m_configuration.Get(), u"config")
                           : support::Set(*m_configuration.Get(), support::WideOf(documents[n]));
                EXPECT_EQ(S_OK, answer.status);
                const std::string text = support::TextOf(answer.body);
                const bool first = text.find(">1</Password>") != std::string::npos;
                const bool second = text.find(">2</Password>") != std::string::npos;
                EXPECT_FALSE(first && second) << text;
                EXPECT_TRUE(text.ends_with("</config>"));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(S_OK, m_source->Unsubscribe(sink.Get()));
    Set(documents[0]);
    EXPECT_TRUE(Cam(Bstr(u"a")) && Cam(Bstr(u"b")) && !Cam(Bstr(u"c")));
}

} // namespace
