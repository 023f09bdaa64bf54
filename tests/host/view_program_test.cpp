// A viewing phone's program and the real host with the real component: what it gets, at which rate, and what
// becomes of a viewer that takes nothing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "host/clock_reader.h"
#include "support/Jpeg.h"
#include "support/Program.h"
#include "support/Wait.h"
#include "support/temp_folder.h"

namespace {

using support::DecodedJpeg;
using support::Program;
using testing::HasSubstr;

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// A demo host without pictures of its own to show, on a free port.
class Host {
public:
    Host()
        : m_program({HOST_PROGRAM, "--demo", "--quiet", "--data", m_folder.File("data"), "--listen",
                     "127.0.0.1:0", "--pictures", HOST_PICTURES}) {
        EXPECT_TRUE(m_program.Await("Data folder: ")) << m_program.output;
        const auto at = m_program.output.find("127.0.0.1:") + 10;
        port = static_cast<std::uint16_t>(std::stoi(m_program.output.substr(at)));
    }
    // Its exit status.
    int Stop() {
        m_program.Signal(SIGTERM);
        return m_program.Wait();
    }
    [[nodiscard]] const std::string& Output() const { return m_program.output; }
    std::string Metric(const std::string& name) const {
        support::Peer peer = support::Connect(port);
        peer.Send("GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        const std::string text = peer.Receive(~std::size_t{0});
        const auto at = text.find("\nmorrowstream_" + name + " ");
        return at == std::string::npos
                   ? ""
                   : text.substr(at + 15 + name.size(), text.find('\n', at + 1) - at - 15 - name.size());
    }
    [[nodiscard]] std::vector<std::string> Viewer(std::vector<std::string> more) const {
        std::vector<std::string> words{
            PHONE_PROGRAM, "view",  "--server",   "127.0.0.1:" + std::to_string(port),
            "--login",     "spare", "--password", "demo"};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }

    std::uint16_t port = 0;

private:
    const TempFolder m_folder;
    Program m_program;
};

// Where a place of the source's picture is in one that was turned.
using Turn = std::pair<int, int> (*)(int x, int y);

TEST(Viewing, GivesAPhoneTheClockAsItAsked) {
    Host host;
    struct Case {
        const char* parameters;
        int width, height;
        Turn turn;
    };
    const Case cases[] = {
        {"width=320&height=240&fps=5&quality=85", 320, 240, [](int x, int y) { return std::pair(x, y); }},
        {"width=240&height=320&fps=10&quality=85&rotate", 240, 320,
         [](int x, int y) { return std::pair(239 - y, x); }},
        {"width=160&height=120&fps=20&quality=95&zw=500&zh=500&zx=250", 160, 120, nullptr},
    };
    for (const Case& c : cases) {
        const TempFolder out;
        Program view(host.Viewer(
            {"--source", "clock", "--frames", "20", "--params", c.parameters, "--out", out.File("p")}));
        EXPECT_EQ(view.Wait(), 0) << view.output;
        double rate = 0;
        const auto summary = view.output.find("received 20 pictures, ");
        ASSERT_NE(summary, std::string::npos) << view.output;
        std::istringstream(view.output.substr(summary + 22)) >> rate;
        const double asked =
            std::stod(std::string(c.parameters).substr(std::string(c.parameters).find("fps=") + 4));
        // The pause does not count what the work on a picture takes, so the rate is never above what was
        // asked for.
        EXPECT_GT(rate, 0.75 * asked) << view.output;
        EXPECT_LT(rate, 1.05 * asked) << view.output;
        int before = -1;
        for (int number = 1; number <= 20; ++number) {
            std::array<char, 16> name{};
            std::snprintf(name.data(), name.size(), "%06d.jpg", number);
            const DecodedJpeg picture = support::DecodeJpeg(ReadFile(out.Path() / "p" / name.data()));
            ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(c.width, c.height)) << c.parameters;
            if (c.turn == nullptr)
                continue;
            const int time = host::test::ReadClock([&](int x, int y) {
                const auto [column, row] = c.turn(x, y);
                return picture.At(column, row)[1] > 90;
            });
            ASSERT_GE(time, 0) << "picture " << number << " of " << c.parameters;
            const int step = (time - before + 86'400'000) % 86'400'000;
            if (before >= 0) {
                // Less a fortieth of a second: so long viewers share a picture, and the last one may be here
                // still.
                EXPECT_GE(step, 1000 / asked - 26) << "picture " << number;
                EXPECT_LT(step, 10'000) << "picture " << number;
            }
            before = time;
        }
    }
    const std::pair<std::vector<std::string>, const char*> refused[] = {
        {{"--source", "nothing"},
         "morrowstream-phone: denied: the server closed the connection without an answer; it may "
         "have no source \"nothing\", or not take these parameters\n"},
        {{"--source", "clock", "--params", "width=x"}, "or not take these parameters\n"},
        {{"--source", "clock", "--password", "wrong"},
         "morrowstream-phone: denied: wrong login or password (HTTP/1.1 401 Unauthorized)\n"},
    };
    for (const auto& [words, line] : refused) {
        Program view(host.Viewer(words));
        EXPECT_EQ(view.Wait(), 1);
        EXPECT_THAT(view.output, HasSubstr(line));
    }
    Program many(host.Viewer(
        {"--source", "clock", "--source", "yard", "--viewers", "9", "--params", "flimit=3&fps=25"}));
    EXPECT_EQ(many.Wait(), 0) << many.output;
    EXPECT_THAT(many.output, testing::AllOf(HasSubstr("received 27 pictures, slowest "),
                                            HasSubstr("9 of 9 viewers to the end")));
    EXPECT_EQ(host.Stop(), 0) << host.Output();
}

TEST(Viewing, DropsAViewerThatTakesNothingAndStopsWithViewersAtWork) {
    Host host;
    const auto packers = [&] { return std::stoi("0" + host.Metric("packers")); };
    // The demo's own viewer.
    ASSERT_TRUE(support::Eventually([&] { return packers() == 1; }));
    const std::string head = " HTTP/1.1\r\nAuthorization: Basic c3BhcmU6ZGVtbw==\r\n\r\n";
    support::Peer stuck = support::Connect(host.port, 2048);
    stuck.Send("GET /mobile/video/clock?width=1920&height=1920&quality=100&fps=25" + head);
    Program other(host.Viewer({"--source", "clock", "--params", "fps=10"}));
    ASSERT_TRUE(support::Eventually([&] { return packers() == 3; }));
    // Ten seconds, and some for a machine that is busy; the others go on meanwhile.
    EXPECT_TRUE(support::Eventually([&] { return packers() == 2; }, std::chrono::seconds(25)));
    EXPECT_TRUE(other.Await("watching: "));
    support::Peer vanished = support::Connect(host.port);
    vanished.Send("GET /mobile/video/clock?fps=25" + head);
    EXPECT_FALSE(vanished.Receive(1000).empty());
    vanished.Reset();
    EXPECT_TRUE(support::Eventually([&] { return packers() == 2; }));
    Program more(host.Viewer({"--source", "yard", "--viewers", "5", "--params", "fps=25"}));
    ASSERT_TRUE(support::Eventually([&] { return packers() == 7; }));
    EXPECT_EQ(host.Stop(), 0) << host.Output();
    EXPECT_EQ(other.Wait(), 1);
    EXPECT_THAT(other.output, HasSubstr("morrowstream-phone: the server closed the connection"));
    EXPECT_EQ(more.Wait(), 1);
}

} // namespace
