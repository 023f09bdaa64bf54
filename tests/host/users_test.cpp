// Users at rest, signing in, and the price of guessing.

#include <gtest/gtest.h>

#include <thread>

#include <sys/stat.h>

#include "host/base/start_error.h"
#include "host/main/data_folder.h"
#include "host/users/authenticator.h"
#include "host/users/password.h"
#include "host/users/throttle.h"
#include "platform/files.h"
#include "platform/text.h"
#include "support/temp_folder.h"

namespace host {
namespace {

using namespace std::chrono_literals;

std::string ReadFile(const std::string& path) {
    return platform::ReadWholeFile(path).value_or("");
}

// The line of a StartError; empty when nothing is thrown.
template <class Action>
std::string ErrorOf(Action action) {
    try {
        action();
    } catch (const StartError& error) {
        return error.what();
    }
    return {};
}

std::string Basic(const std::string& text) {
    return "Basic " + platform::Base64(text);
}

TEST(DataFolder, MakesAnAdministratorOnceAndKeepsSecretsToItself) {
    const TempFolder folder;
    DataFolder data(folder.File("new/data"));
    bool made = false;
    const UserStore first = data.OpenUsers(&made);
    EXPECT_TRUE(made);
    for (const char* file : {"users", "admin-password"}) {
        struct stat info {};
        EXPECT_EQ(::stat(data.File(file).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777U, 0600U) << file;
    }
    std::string password = ReadFile(data.File("admin-password"));
    ASSERT_GE(password.size(), 17U);
    password.pop_back();
    EXPECT_EQ(ReadFile(data.File("users")).find(password), std::string::npos);
    EXPECT_TRUE(VerifyPassword(password, first.Users().at("admin").hash));
    EXPECT_EQ(data.OpenUsers(&made).Users().at("admin").hash, first.Users().at("admin").hash);
    EXPECT_FALSE(made);
}

TEST(DataFolder, FilesWithFaultsAreToldByLine) {
    const TempFolder folder;
    DataFolder data(folder.Path().string());
    struct Case {
        const char* file;
        std::string content;
        std::string wrong = {}; // behind the path
    };
    const std::string login = ": a login has no control characters and none of / ? # :";
    const Case cases[] = {
        {"users", "# c\r\n\nann\tadmin\t-\tx\r\na%&b\tphone\t-\tx\n"}, // set before the rule
        {"users", "a\tadmin\t-\tx\nb\n", ", line 2: a user has four fields: login, kind, mark, hash"},
        {"users", "\nann\tking\t-\tx\n", ", line 2: the kind of a user is admin, viewer or phone"},
        {"users", "a:b\tadmin\t-\tx\n", ", line 1" + login},
        {"users", "a\xFF\tadmin\t-\tx\n", ", line 1: a login is UTF-8 text"},
        {"users", "\tadmin\t-\tx\n", ", line 1: a login has 1 to 64 bytes"},
        {"users", "ann\tadmin\t-\tx\nann\tphone\t-\tx\n", ", line 2: this login stands there twice"},
        {"cameras", "yard\t320x240\tdemo\n#x\ngate\t160x120\tp w"},
        {"cameras", "yard\t320x240\n", ", line 1: a camera has three fields: name, type, password"},
        {"cameras", "yard\t640x480\tp\n", ", line 1: the type of a camera is 320x240 or 160x120"},
        {"cameras", "a%\t320x240\tp\n", ", line 1: a camera's name is its phone's login" + login + " % &"},
        {"cameras", "a\t320x240\tp/\n", ", line 1: a password has no control characters and none of & /"},
        {"cameras", "yard\t320x240\t" + std::string(64, 'p'),
         ", line 1: a password of this kind of user has 1 to 63 bytes"},
        {"cameras", "a\t320x240\tp\na\t160x120\tp\n", ", line 2: this camera stands there twice"},
    };
    for (const Case& c : cases) {
        const std::string path = data.File(c.file);
        platform::ReplaceFile(path, c.content);
        // A user is not to be lost, while the other cameras need not wait for somebody who mends the line.
        const bool users = c.file == std::string("users");
        testing::internal::CaptureStdout();
        const std::string error = ErrorOf([&] { users ? (void)UserStore(path) : (void)data.ReadCameras(); });
        const std::string said = testing::internal::GetCapturedStdout();
        EXPECT_EQ(error, c.wrong.empty() || !users ? "" : path + c.wrong);
        EXPECT_EQ(said, c.wrong.empty() || users ? "" : path + c.wrong + ". The line is left out.\n");
        EXPECT_EQ(ReadFile(path), c.content) << "a start that fails leaves the file for its owner to mend";
    }
}

TEST(Throttle, TurnsComeFurtherApartAndOnlyForThatAddress) {
    Throttle throttle(4s);
    const auto t = Clock::now();
    for (int wrong = 0; wrong < 5; ++wrong) {
        EXPECT_EQ(throttle.Reserve("a", t), t) << wrong;
        throttle.ReportWrong("a", t);
    }
    // The distance of the turns behind the sixth wrong password and on.
    auto now = t;
    for (const auto delay : {250ms, 500ms, 1000ms, 2000ms, 4000ms, 4000ms}) {
        throttle.ReportWrong("a", now);
        const auto turn = throttle.Reserve("a", now);
        ASSERT_TRUE(turn) << delay.count();
        EXPECT_EQ(*turn - now, delay);
        now = *turn;
    }
    // Many connections at a time get turns one behind the other, not the same one.
    Throttle crowd(4s);
    for (int wrong = 0; wrong < 7; ++wrong)
        crowd.ReportWrong("a", t);
    for (auto turn = t + 500ms; turn <= t + 4s; turn += 500ms)
        EXPECT_EQ(crowd.Reserve("a", t), turn);
    EXPECT_FALSE(crowd.Reserve("a", t));
    EXPECT_GE(crowd.RetryAfter("a", t), 1s);
    EXPECT_EQ(crowd.Reserve("b", t), t);
    EXPECT_EQ(crowd.Reserve("a", t + 11min), t + 11min);
    // The worst sender is remembered, however many there are.
    for (int i = 0; i < 4200; ++i)
        crowd.ReportWrong("other" + std::to_string(i), t + std::chrono::milliseconds(i));
    for (int wrong = 0; wrong < 12; ++wrong)
        crowd.ReportWrong("c", t + 6s);
    for (int i = 0; i < 300; ++i)
        crowd.ReportWrong("more" + std::to_string(i), t + 6s);
    EXPECT_NE(crowd.Reserve("c", t + 6s), t + 6s);
}

TEST(Authenticator, ReadsBasicAndNothingElse) {
    const auto good = ParseBasic("bAsIc  YW5uOnA6dw==");
    ASSERT_TRUE(good);
    EXPECT_EQ(good->login, "ann");
    EXPECT_EQ(good->password, "p:w"); // only the first colon divides
    EXPECT_EQ(ParseBasic(Basic("ann:")).value().password, "");
    for (const char* bad : {"", "Basic", "Basic !", "Bearer YW5uOnB3", "Basic YW5u", "Basic YW5uOnB3Y",
                            "Basic AA==", "Basic Ov8="})
        EXPECT_FALSE(ParseBasic(bad)) << bad;
}

TEST(Authenticator, FollowsTheFileOfUsersAndForgetsOldPasswords) {
    const TempFolder folder;
    const std::string path = folder.File("users");
    UserStore beside(path);
    beside.Set("ann", {UserKind::Viewer, false, HashPassword("old")});
    beside.Set("gone", {UserKind::Phone, true, HashPassword("p")});
    beside.Set("nohash", {UserKind::Admin, false, ""});
    beside.Save();
    const Wakeup stop;
    Authenticator authenticator(UserStore(path), 0ms, stop);
    const auto check = [&](const std::string& credentials, const std::string& from = "192.0.2.1") {
        return authenticator.Check(Basic(credentials), {from, from});
    };
    using enum SignIn::Result;
    EXPECT_EQ(authenticator.Check("", {"192.0.2.1", "192.0.2.1"}).result, Missing);
    const std::pair<const char*, SignIn::Result> rows[] = {{"ann:old", Known},
                                                           {"ann:old", Known},
                                                           {"ann:new", Wrong},
                                                           {"nohash:", Wrong},
                                                           {"nobody:old", Wrong}};
    for (const auto& [credentials, result] : rows) // the second time from memory
        EXPECT_EQ(check(credentials).result, result) << credentials;
    EXPECT_TRUE(authenticator.HasDemoUsers());
    const std::string token = authenticator.TokenOf("gone");
    EXPECT_EQ(authenticator.TokenOf("gone"), token);
    EXPECT_NE(authenticator.TokenOf("ann"), token);
    EXPECT_EQ(authenticator.LoginOf(token), "gone");
    EXPECT_EQ(authenticator.LoginOf(token.substr(1)), std::nullopt);

    // What --add-user does beside a running host.
    beside.Set("ann", {UserKind::Admin, false, HashPassword("new")});
    beside.Remove("gone");
    beside.Save();
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(check("ann:old").result, Wrong);
    EXPECT_EQ(check("ann:new").kind, UserKind::Admin);
    EXPECT_EQ(authenticator.LoginOf(token), std::nullopt);
    EXPECT_FALSE(authenticator.HasDemoUsers());

    // A file that somebody broke locks nobody out; Identify answers without counting.
    platform::ReplaceFile(path, "broken");
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(check("ann:new").result, Known);
    const auto identify = [&](const std::string& credentials) {
        return authenticator.Identify("GET / HTTP/1.0\nauthorization: " + Basic(credentials) + "\n\n");
    };
    EXPECT_FALSE(identify("ann:old"));
    EXPECT_EQ(identify("ann:new").value().token, authenticator.TokenOf("ann"));

    // Who guesses is turned away, but neither is who is remembered, nor anybody elsewhere.
    for (int i = 0; i < 6; ++i)
        authenticator.ReportWrong({"192.0.2.2", "192.0.2.2"});
    EXPECT_EQ(check("nobody:x", "192.0.2.2").result, TurnedAway);
    EXPECT_GE(check("nobody:x", "192.0.2.2").retryAfter, 1s);
    EXPECT_EQ(check("ann:new", "192.0.2.2").result, Known);
    EXPECT_EQ(check("nobody:x", "192.0.2.3").result, Wrong);
}

TEST(Authenticator, LetsCamerasOfTheSettingsInAsPhones) {
    const TempFolder folder;
    UserStore store(folder.File("users"));
    store.Set("ann", {UserKind::Viewer, false, HashPassword("a")});
    store.Set("yard", {UserKind::Phone, false, HashPassword("old")});
    store.Save();
    const Wakeup stop;
    Authenticator authenticator(std::move(store), 0ms, stop);
    const auto kind = [&](const std::string& credentials) -> std::optional<UserKind> {
        // From everywhere, so that nobody is slowed down.
        const SignIn signIn = authenticator.Check(Basic(credentials), {credentials, credentials});
        return signIn.result == SignIn::Result::Known ? std::optional(signIn.kind) : std::nullopt;
    };
    authenticator.SetCameras({{"Двор №1", "", "x"}, {"ann", "", "c"}, {"yard", "", "new"}, {"open", "", ""}});
    for (const char* phone :
         {"Двор №1:x", "Двор №1:x", "yard:new", "yard:old"}) // the second time from memory
        EXPECT_EQ(kind(phone), UserKind::Phone) << phone;
    EXPECT_EQ(kind("ann:a"), UserKind::Viewer);
    for (const char* wrong : {"Двор №1:y", "ann:c", "open:", "nobody:x"})
        EXPECT_EQ(kind(wrong), std::nullopt) << wrong;
    EXPECT_TRUE(authenticator.IsTaken("ann"));
    EXPECT_FALSE(authenticator.IsTaken("yard") || authenticator.IsTaken("open"));
    const std::string token = authenticator.TokenOf("Двор №1");
    EXPECT_EQ(authenticator.LoginOf(token), "Двор №1");
    authenticator.SetCameras({{"Двор №1", "", "z"}});
    EXPECT_EQ(kind("Двор №1:x"), std::nullopt) << "a changed password ends the memory";
    EXPECT_EQ(kind("Двор №1:z"), UserKind::Phone);
    authenticator.SetCameras({});
    EXPECT_EQ(kind("Двор №1:z"), std::nullopt);
    EXPECT_EQ(authenticator.LoginOf(token), std::nullopt);
}

} // namespace
} // namespace host
