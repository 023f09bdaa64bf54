// The program itself: exit statuses, the lines it prints, its signals, and the pictures that come with it.

#include <gtest/gtest.h>

#include <sstream>

#include "phone/pictures.h"
#include "phone/scripted_server.h"
#include "support/Program.h"

namespace phone::test {
namespace {

using support::Program;

std::vector<std::string> Words(const std::string& line) {
    std::istringstream stream(PHONE_PROGRAM " " + line);
    return {std::istream_iterator<std::string>(stream), {}};
}

std::vector<std::string> Upload(const ScriptedServer& server, const std::string& more) {
    return Words("upload --login yard --password demo --fps 200 --server " + server.Address().Text() +
                 " --pictures " PHONE_PICTURES "/" + more);
}

TEST(PhoneProgram, EndsAsItsHelpSays) {
    struct Case {
        std::string line;
        int status;
        const char* output;
    };
    const std::string pictures = PHONE_PICTURES;
    const Case cases[] = {
        {"--help", 0, "morrowstream-phone upload"},
        {"upload --help", 0, "--server HOST:PORT"},
        {"view --server h:1 --login l", 2, "--server, --login and --source are needed"},
        {"install --kind view", 2, "--kind, --server and --login are needed, or --link alone"},
        {"install --link http://h:1/get/t --login l", 2, "or --link alone"},
        {"install --link https://h/get/t", 2, "--link takes http://HOST:PORT/get/TOKEN"},
        {"install --kind x", 2, "--kind takes upload or view"},
        {"install --kind upload --server h:1 --login l --name a&b", 2, "--name takes a name without blanks"},
        {"install --link http://127.0.0.1:1/get/t", 1, "cannot connect"},
        {"", 2, "morrowstream-phone: no command; see morrowstream-phone --help\n"},
        {"dance", 2, "unknown command \"dance\""},
        {"upload --server x", 2, "--server takes HOST:PORT, not \"x\""},
        {"upload --server h:1 --login l --pictures /nowhere", 1, "cannot read the folder /nowhere: "},
        {"upload --server 127.0.0.1:1 --login l --pictures " + pictures + "/gate", 1,
         "cannot connect to 127.0.0.1:1: Connection refused\nsent 0 frames, 0 grants\n"},
        {"view --password-file /nowhere", 2, "--password-file finds no password in /nowhere"},
    };
    for (const Case& row : cases) {
        Program program(Words(row.line));
        EXPECT_EQ(program.Wait(), row.status) << row.output;
        EXPECT_NE(program.output.find(row.output), std::string::npos) << program.output;
    }
}

TEST(PhoneProgram, SendsItsPicturesUntilASignalAndReportsThem) {
    for (const auto& [sequence, signal, width] :
         {std::tuple{"yard", SIGINT, 320U}, {"gate", SIGTERM, 160U}}) {
        ScriptedServer server;
        Program program(Upload(server, sequence));
        const std::string header = server.AcceptPhone();
        EXPECT_EQ(header.size(), 607U); // the pictures that come with the program share the usual head
        server.Grant(4);
        for (int i = 0; i < 4; ++i) {
            const std::string picture = header + server.ReadFrame();
            EXPECT_EQ(JpegSize(picture)->width, width);
            EXPECT_TRUE(picture.ends_with("\xFF\xD9"));
        }
        program.Signal(signal);
        EXPECT_TRUE(server.AtEnd()); // its side is closed in order
        server.Close();
        EXPECT_EQ(program.Wait(), 0);
        EXPECT_EQ(program.output, "sent 4 frames, 1 grants\n");
    }
}

// It goes on with the picture behind the last one, and a refusal is the end.
TEST(PhoneProgram, ComesBackUntilItIsRefused) {
    for (const bool again : {true, false}) {
        ScriptedServer server;
        Program program(Upload(server, again ? "gate --password -" : "gate --password - --no-reconnect"),
                        "secret\n");
        std::string bodies[2];
        for (int i = 0; i < (again ? 2 : 1); ++i) {
            server.AcceptPhone();
            server.Grant(1);
            bodies[i] = server.ReadFrame();
            server.Close();
        }
        if (again) {
            // A balancer whose server is away.
            server.Accept();
            server.ReadHead();
            server.Read(131);
            server.Close();
            server.Accept();
            EXPECT_NE(server.ReadHead().find("eWFyZDpzZWNyZXQ="), std::string::npos); // yard:secret
            server.Read(131);
            server.Send("\1");
            server.Close();
        }
        EXPECT_NE(bodies[0], bodies[1]);
        EXPECT_EQ(program.Wait(), 1);
        const std::string lost = "morrowstream-phone: the server closed the connection";
        EXPECT_EQ(program.output, again ? lost + "; connecting again\n" + lost +
                                              "; connecting again in 1 s\n" + lost +
                                              " without an answer; connecting again in 2 s\n"
                                              "morrowstream-phone: denied: wrong password\n"
                                              "sent 2 frames, 2 grants, 3 connections lost\n"
                                        : lost + "\nsent 1 frames, 1 grants\n");
    }
}

// Many phones: each logs in under its own name, and the one that fails is named and makes the whole fail.
TEST(PhoneProgram, RunsManyPhones) {
    ScriptedServer server;
    Program program(Upload(server, "gate --phones 2 --frames 1"));
    std::string heads;
    for (int i = 0; i < 2; ++i) {
        server.Accept();
        const std::string head = server.ReadHead();
        heads += head;
        server.Read(131);
        const bool first = head.find("/yard0001 ") != std::string::npos;
        server.Send(std::string(1, first ? '\0' : '\1'));
        if (first) {
            server.ReadBlock();
            server.Grant(10);
            server.ReadFrame();
            EXPECT_TRUE(server.AtEnd());
        }
        server.Close();
    }
    EXPECT_NE(heads.find("/yard0002 "), std::string::npos);
    EXPECT_EQ(program.Wait(), 1);
    EXPECT_EQ(program.output, "morrowstream-phone: yard0002: denied: wrong password\n"
                              "sent 1 frames, 1 grants, 1 of 2 phones to the end\n");
}

// A picture as the packer sends it, of 320x240.
std::string Packed(char number, bool last = false) {
    using namespace std::string_view_literals;
    const std::string jpeg = PictureFile("x");
    std::string header("MWP1\x24\0\0\0\0\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\x40\1\xF0\0\0\0\0\0\x40\1\xF0\0"sv);
    header[6] = last ? 1 : 0;
    header[16] = number;
    header[20] = static_cast<char>(jpeg.size() & 255U);
    header[21] = static_cast<char>(jpeg.size() >> 8U);
    return header + jpeg;
}

TEST(PhoneProgram, WatchesUntilOneSideHasEnough) {
    const std::string head = "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n";
    const std::string cut = Packed(2).substr(0, 50);
    struct Case {
        std::string more, answer;
        int status;
        const char* line;
    };
    const Case cases[] = {
        {" --frames 2", head + Packed(1) + Packed(2) + Packed(3), 0, "received 2 pictures, "},
        {"", head + Packed(1) + Packed(2, true), 0, "received 2 pictures, "},
        {"", head + Packed(1), 1, "phone: the server closed the connection\nreceived 1 pictures, "},
        {"", head + Packed(1) + cut, 1, "the server closed the connection in the middle of a picture\n"},
        {"", head, 1, "the server closed the connection before the first picture\n"},
        {"", head + Packed(2), 1, "the stream is none of this protocol: picture 2 behind picture 0\n"},
        {"", head + "<html>", 1, "the stream is none of this protocol: a picture begins with other bytes\n"},
        {"", "HTTP/1.1 404 Not\x1B\r\n\r\n", 1, "denied: the web server answered (HTTP/1.1 404 Not?)\n"},
        {"", std::string(9000, 'x'), 1, "the server's answer is no HTTP\n"},
        {"", "", 1, "it may have no source \"a/b c\", or not take these parameters\n"},
        {" --out /proc/none", "", 1, "cannot make /proc/none: "},
    };
    for (const Case& row : cases) {
        ScriptedServer server;
        auto words = Words("view --no-reconnect --login yard --password demo --params fps=5 --server " +
                           server.Address().Text() + row.more);
        words.insert(words.end(), {"--source", "a/b c"});
        Program program(words);
        if (!row.answer.empty() || row.more.empty()) {
            server.Accept();
            EXPECT_TRUE(server.ReadHead().starts_with("GET /mobile/video/a%2Fb%20c?fps=5 HTTP/1.1\r\n"));
            server.Send(row.answer);
            server.Close();
        }
        EXPECT_EQ(program.Wait(), row.status) << row.line;
        EXPECT_NE(program.output.find(row.line), std::string::npos) << program.output;
    }
}

} // namespace
} // namespace phone::test
