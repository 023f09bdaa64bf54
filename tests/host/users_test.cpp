// Users at rest, signing in, and the price of guessing.

#include <gtest/gtest.h>

#include <thread>

#include <sys/stat.h>

#include "host/base/start_error.h"
#include "host/main/data_folder.h"
#include "host/users/authenticator.h"
#include "host/users/password.h"
#include "host/users/throttle.h"
#include "platform/base64.h"
#include "platform/files.h"
#include "support/temp_folder.h"

namespace host {
namespace {

using namespace std::chrono_literals;

std::string ReadFile(const std::string& path) {
    return platform::ReadWholeFile(path).value_or("");
}

unsigned ModeOf(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? info.st_mode & 0777U : 0;
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
    const std::string path = folder.File("new/data");
    std::filesystem::create_directories(folder.File("new"));
    DataFolder data(path);
    bool made = false;
    const UserStore first = data.OpenUsers(&made);
    EXPECT_TRUE(made);
    EXPECT_EQ(ModeOf(data.File("users")), 0600U);
    EXPECT_EQ(ModeOf(data.File("admin-password")), 0600U);
    std::string password = ReadFile(data.File("admin-password"));
    ASSERT_GE(password.size(), 17U);
    password.pop_back();
    EXPECT_EQ(ReadFile(data.File("users")).find(password), std::string::npos);
    EXPECT_TRUE(VerifyPassword(password, first.Users().at("admin").hash));

    const UserStore second = data.OpenUsers(&made);
    EXPECT_FALSE(made);
    EXPECT_EQ(second.Users().at("admin").hash, first.Users().at("admin").hash);

    DataFolder other(path);
    data.Lock();
    EXPECT_EQ(ErrorOf([&] { other.Lock(); }), "another host runs on the data folder " + data.Path());
}

TEST(DataFolder, FilesWithFaultsAreToldByLine) {
    const TempFolder folder;
    DataFolder data(folder.Path().string());
    struct Case {
        const char* file;
        std::string content;
        std::string wrong = {}; // behind the path
    };
    const Case cases[] = {
        {"users", "# c\r\n\nann\tadmin\t-\tx\r\na%&b\tphone\t-\tx\n"}, // set before the rule
        {"users", "a\tadmin\t-\tx\nb\n", ", line 2: a user has four fields: login, kind, mark, hash"},
        {"users", "\nann\tking\t-\tx\n", ", line 2: the kind of a user is admin, viewer or phone"},
        {"users", "a:b\tadmin\t-\tx\n", ", line 1: a login has no control characters and none of / ? # :"},
        {"users", "a\xFF\tadmin\t-\tx\n", ", line 1: a login is UTF-8 text"},
        {"users", "\tadmin\t-\tx\n", ", line 1: a login has 1 to 64 bytes"},
        {"users", "ann\tadmin\t-\tx\nann\tphone\t-\tx\n", ", line 2: this login stands there twice"},
        {"cameras", "yard\t320x240\tdemo\n#x\ngate\t160x120\tp w"},
        {"cameras", "yard\t320x240\n", ", line 1: a camera has three fields: name, type, password"},
        {"cameras", "yard\t640x480\tp\n", ", line 1: the type of a camera is 320x240 or 160x120"},
        {"cameras", "yard\t320x240\t" + std::string(64, 'p'),
         ", line 1: a password of this kind of user has 1 to 63 bytes"},
        {"cameras", "a%\t320x240\tp\n",
         ", line 1: a camera's name is its phone's login: a login has no control characters and none of / ? "
         "# : % &"},
        {"cameras", "a\t320x240\tp/\n", ", line 1: a password has no control characters and none of & /"},
        {"cameras", "a\t320x240\tp\na\t160x120\tp\n", ", line 2: this camera stands there twice"},
    };
    for (const Case& c : cases) {
        platform::ReplaceFile(data.File(c.file), c.content);
        const bool users = c.file == std::string("users");
        const std::string error = ErrorOf([&] {
            if (users)
                UserStore{data.File(c.file)};
            else
                (void)data.ReadCameras();
        });
        EXPECT_EQ(error, c.wrong.empty() ? "" : data.File(c.file) + c.wrong);
        // A start that fails leaves the file for its owner to mend.
        EXPECT_EQ(ReadFile(data.File(c.file)), c.content);
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
    int served = 0;
    auto last = t;
    for (int i = 0; i < 100; ++i) {
        if (const auto turn = crowd.Reserve("a", t)) {
            EXPECT_GE(*turn - last, 500ms);
            last = *turn;
            ++served;
        }
    }
    EXPECT_EQ(served, 8); // 0.5 s apart, none later than 4 s
    EXPECT_GE(crowd.RetryAfter("a", t), 1s);
    EXPECT_EQ(crowd.Reserve("b", t), t);
    EXPECT_EQ(crowd.Reserve("a", t + 11min), t + 11min);
}

TEST(Throttle, RemembersTheWorstSendersHoweverManyAddressesThereAre) {
    Throttle throttle(4s);
    const auto t = Clock::now();
    for (int i = 0; i < 4200; ++i)
        throttle.ReportWrong("other" + std::to_string(i), t + std::chrono::milliseconds(i));
    for (int wrong = 0; wrong < 12; ++wrong)
        throttle.ReportWrong("a", t + 6s);
    for (int i = 0; i < 300; ++i)
        throttle.ReportWrong("more" + std::to_string(i), t + 6s);
    const auto turn = throttle.Reserve("a", t + 6s);
    EXPECT_TRUE(!turn || *turn > t + 6s);
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
    const PeerAddress peer{"192.0.2.1", "192.0.2.1"};
    const auto result = [&](const std::string& credentials) {
        return authenticator.Check(Basic(credentials), peer).result;
    };
    EXPECT_EQ(authenticator.Check("", peer).result, SignIn::Result::Missing);
    EXPECT_EQ(result("ann:old"), SignIn::Result::Known);
    EXPECT_EQ(result("ann:old"), SignIn::Result::Known); // from memory
    EXPECT_EQ(result("ann:new"), SignIn::Result::Wrong);
    EXPECT_EQ(result("nohash:"), SignIn::Result::Wrong);
    EXPECT_EQ(result("nobody:old"), SignIn::Result::Wrong);
    EXPECT_TRUE(authenticator.HasDemoUsers());
    const std::string token = authenticator.TokenOf("gone");
    EXPECT_EQ(token.size(), 16U);
    EXPECT_EQ(authenticator.TokenOf("gone"), token);
    EXPECT_NE(authenticator.TokenOf("ann"), token);
    EXPECT_EQ(authenticator.LoginOf(token), "gone");
    EXPECT_EQ(authenticator.LoginOf(token.substr(1)), std::nullopt);

    // What --add-user does beside a running host.
    beside.Set("ann", {UserKind::Admin, false, HashPassword("new")});
    beside.Remove("gone");
    beside.Save();
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(result("ann:old"), SignIn::Result::Wrong);
    const SignIn signIn = authenticator.Check(Basic("ann:new"), peer);
    EXPECT_EQ(signIn.result, SignIn::Result::Known);
    EXPECT_EQ(signIn.kind, UserKind::Admin);
    EXPECT_EQ(authenticator.LoginOf(token), std::nullopt);
    EXPECT_FALSE(authenticator.HasDemoUsers());

    // A file that somebody broke locks nobody out; Identify answers without counting.
    platform::ReplaceFile(path, "broken");
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(result("ann:new"), SignIn::Result::Known);
    const auto identify = [&](const std::string& authorization) {
        return authenticator.Identify("GET / HTTP/1.0\nauthorization: " + authorization + "\n\n");
    };
    EXPECT_FALSE(identify(Basic("ann:old")));
    EXPECT_EQ(identify(Basic("ann:new")).value().token, authenticator.TokenOf("ann"));
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
    for (int again = 0; again < 2; ++again) { // the second time from memory
        EXPECT_EQ(kind("Двор №1:x"), UserKind::Phone);
        EXPECT_EQ(kind("yard:new"), UserKind::Phone);
        EXPECT_EQ(kind("ann:a"), UserKind::Viewer);
    }
    EXPECT_EQ(kind("yard:old"), UserKind::Phone);
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

TEST(Authenticator, TurnsAwayWhoGuessesButNotWhoIsRemembered) {
    const TempFolder folder;
    UserStore store(folder.File("users"));
    store.Set("ann", {UserKind::Viewer, false, HashPassword("right")});
    store.Save();
    const Wakeup stop;
    Authenticator authenticator(std::move(store), 0ms, stop);
    const PeerAddress guesser{"192.0.2.1", "192.0.2.1"};
    const PeerAddress other{"192.0.2.2", "192.0.2.2"};
    for (int i = 0; i < 6; ++i)
        authenticator.ReportWrong(guesser);
    const SignIn away = authenticator.Check(Basic("ann:right"), guesser);
    EXPECT_EQ(away.result, SignIn::Result::TurnedAway);
    EXPECT_GE(away.retryAfter, 1s);
    EXPECT_EQ(authenticator.Check(Basic("ann:right"), other).result, SignIn::Result::Known);
    EXPECT_EQ(authenticator.Check(Basic("ann:right"), guesser).result, SignIn::Result::Known);
}

} // namespace
} // namespace host
