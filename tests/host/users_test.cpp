// Users at rest, signing in, and the price of guessing.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <mutex>
#include <thread>

#include <sys/stat.h>

#include "host/base/kept_store.h"
#include "host/base/start_error.h"
#include "host/main/data_folder.h"
#include "host/users/authenticator.h"
#include "host/users/check_queue.h"
#include "host/users/password.h"
#include "host/users/sign_in_places.h"
#include "host/users/throttle.h"
#include "platform/files.h"
#include "platform/text.h"
#include "support/SharedStore.h"
#include "support/Wait.h"
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
        {"users", "a\tadmin\t-\tx\nb\n",
         ", line 2: a user has four fields: login, kind, mark, hash; and a fifth one for a list of cameras"},
        {"users", "\nann\tking\t-\tx\n", ", line 2: the kind of a user is admin, viewer or phone"},
        {"users", "a:b\tadmin\t-\tx\n", ", line 1" + login},
        {"users", "a\xFF\tadmin\t-\tx\n", ", line 1: a login is UTF-8 text"},
        {"users", "\tadmin\t-\tx\n", ", line 1: a login has 1 to 64 bytes"},
        {"users", "ann\tadmin\t-\tx\nann\tphone\t-\tx\n", ", line 2: this login stands there twice"},
        {"cameras", "yard\t320x240\tdemo\n#x\ngate\t160x120\tp w"},
        {"cameras", "yard\t320x240\n", ", line 1: a camera has three fields: name, type, password"},
        {"cameras", "a%\t320x240\tp\n", ", line 1: a camera's name is its phone's login" + login + " % &"},
        {"cameras", "a\t320x240\tp/\n", ", line 1: a password has no control characters and none of & /"},
        {"cameras", "yard\t320x240\t" + std::string(64, 'p'),
         ", line 1: a password of this kind of user has 1 to 63 bytes"},
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

using Kind = Throttle::Kind;

// Where nobody has signed in yet, unless a test says so.
struct Guessed {
    // The turn of one more try, from now on; nothing when it is turned away. A wrong one, unless `right`.
    std::optional<Clock::duration> Try(const std::string& login, const std::string& address,
                                       Clock::time_point now, bool right = false, Kind kind = Kind::SignIn) {
        auto attempt = throttle.Reserve(kind, login, address, now, &retryAfter);
        if (!attempt)
            return std::nullopt;
        const auto wait = attempt->Turn() - now;
        if (right)
            attempt->Right();
        return wait;
    }
    SignInPlaces places;
    Throttle throttle{16s, places};
    std::chrono::seconds retryAfter{0};
};

TEST(Throttle, ABurstGetsTurnsFurtherAndFurtherApartAndNobodyElseWaits) {
    Guessed guessed;
    const auto t = Clock::now();
    // Reserved, and looked at by nobody yet.
    std::vector<Throttle::Attempt> burst;
    std::vector<std::chrono::milliseconds> turns;
    for (int i = 0; i < 200; ++i) {
        if (auto attempt = guessed.throttle.Reserve(Kind::SignIn, "ann", "a", t, &guessed.retryAfter)) {
            turns.push_back(std::chrono::duration_cast<std::chrono::milliseconds>(attempt->Turn() - t));
            burst.push_back(std::move(*attempt));
        }
    }
    EXPECT_EQ(turns, (std::vector<std::chrono::milliseconds>{0ms, 0ms, 0ms, 0ms, 0ms, 250ms, 750ms, 1750ms,
                                                             3750ms, 7750ms, 11750ms, 15750ms}));
    EXPECT_EQ(guessed.retryAfter, 20s);
    EXPECT_EQ(guessed.Try("admin", "a", t), 0s);
    EXPECT_EQ(guessed.Try("ann", "b", t), 0s);
    EXPECT_EQ(guessed.Try("ann", "a", t, false, Kind::Record), 0s);
    EXPECT_EQ(guessed.Try("ann", "a", t + 11min), 0s) << "forgotten";
}

TEST(Throttle, RightPasswordsAreNoTriesAndEndTheWait) {
    Guessed guessed;
    const auto t = Clock::now();
    for (int phone = 0; phone < 300; ++phone) {
        for (int again = 0; again < 20; ++again)
            ASSERT_EQ(guessed.Try("cam" + std::to_string(phone), "a", t, true), 0s);
    }
    for (int wrong = 0; wrong < 8; ++wrong)
        (void)guessed.Try("ann", "a", t);
    EXPECT_EQ(guessed.Try("ann", "a", t + 4s, true), 0s);
    EXPECT_EQ(guessed.Try("ann", "a", t + 4s), 0s);
    EXPECT_EQ(guessed.Try("ann", "a", t + 4s), 250ms) << "not five more for who guesses beside ann";
    // What nobody has looked at was no try.
    for (int i = 0; i < 100; ++i)
        guessed.throttle.Reserve(Kind::SignIn, "eve", "a", t, &guessed.retryAfter)->Withdraw();
    EXPECT_EQ(guessed.Try("eve", "a", t), 0s);
}

TEST(Throttle, AnAddressIsHeardOnlyForLoginsThatItIsKnownForOnceItHasGuessedALot) {
    Guessed guessed;
    const auto t = Clock::now();
    EXPECT_EQ(guessed.Try("ann", "a", t, true), 0s);
    for (int wrong = 0; wrong < 60; ++wrong)
        EXPECT_EQ(guessed.Try("login" + std::to_string(wrong), "a", t + wrong * 1s), 0s) << wrong;
    EXPECT_EQ(guessed.Try("bob", "a", t + 1min, true), std::nullopt);
    EXPECT_EQ(guessed.retryAfter, 9min);
    EXPECT_FALSE(guessed.throttle.IsHeard("bob", "a", t + 1min));
    EXPECT_EQ(guessed.Try("ann", "a", t + 1min), 0s);
    EXPECT_EQ(guessed.Try("bob", "b", t + 1min), 0s);
    EXPECT_EQ(guessed.Try("bob", "a", t + 11min), 0s);
    // And a login that is guessed at from everywhere comes last, for an hour.
    for (int wrong = 0; wrong < 100; ++wrong) {
        EXPECT_FALSE(guessed.throttle.IsLast("eve", t)) << wrong;
        (void)guessed.Try("eve", "c" + std::to_string(wrong), t);
    }
    EXPECT_TRUE(guessed.throttle.IsLast("eve", t + 59min));
    EXPECT_FALSE(guessed.throttle.IsLast("eve", t + 60min) || guessed.throttle.IsLast("ann", t));
}

TEST(Throttle, RemembersTheWorstSendersHoweverManyAddressesThereAre) {
    Guessed guessed;
    const auto t = Clock::now();
    for (int i = 0; i < 4200; ++i)
        (void)guessed.Try("ann", "other" + std::to_string(i), t + std::chrono::milliseconds(i));
    for (int wrong = 0; wrong < 6; ++wrong)
        (void)guessed.Try("ann", "a", t + 6s);
    for (int i = 0; i < 300; ++i)
        (void)guessed.Try("ann", "more" + std::to_string(i), t + 6s);
    EXPECT_EQ(guessed.Try("ann", "a", t + 6s), 750ms);
    // Nor do phones that sign in push it out.
    for (int phone = 0; phone < 9000; ++phone)
        (void)guessed.Try("cam" + std::to_string(phone), "other", t + 7s, true);
    EXPECT_EQ(guessed.Try("ann", "a", t + 7s), 750ms);
}

TEST(SignInPlaces, OutliveAStartForThirtyDays) {
    const TempFolder folder;
    const std::string path = folder.File("sign-ins");
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    {
        SignInPlaces places(path);
        places.Note("Двор №1", "192.0.2.1", now);
        places.Note("old", "192.0.2.1", now - std::chrono::days(40));
        EXPECT_TRUE(places.Save());
        using std::filesystem::perms;
        EXPECT_EQ(std::filesystem::status(path).permissions(), perms::owner_read | perms::owner_write);
    }
    platform::ReplaceFile(path, ReadFile(path) + "bob\t192.0.2.1\tyesterday\nbob\n\xFF");
    SignInPlaces again(path);
    EXPECT_TRUE(again.Knows("Двор №1", "192.0.2.1"));
    EXPECT_TRUE(again.Knows("Двор №1", "192.0.2.1", now + std::chrono::days(29)));
    EXPECT_FALSE(again.Knows("Двор №1", "192.0.2.1", now + std::chrono::days(30)));
    for (const auto& [login, address] :
         {std::pair{"old", "192.0.2.1"}, {"bob", "192.0.2.1"}, {"Двор №1", "192.0.2.2"}})
        EXPECT_FALSE(again.Knows(login, address)) << login;
    // A folder that takes nothing loses nothing.
    SignInPlaces lost(folder.File("none/sign-ins"));
    lost.Note("ann", "a");
    EXPECT_FALSE(lost.Save());
    std::filesystem::create_directories(folder.File("none"));
    EXPECT_TRUE(lost.Save());
    EXPECT_TRUE(SignInPlaces(folder.File("none/sign-ins")).Knows("ann", "a"));
}

TEST(CheckQueue, LetsTwoInAndKeepsPlacesForOthersThanTheGreediest) {
    using Rank = CheckQueue::Rank;
    CheckQueue queue;
    Wakeup stop;
    auto first = queue.Enter(Rank::Usual, "a", stop);
    auto second = queue.Enter(Rank::Usual, "a", stop);
    ASSERT_TRUE(first && second);
    std::atomic<int> away{0};
    std::mutex mutex;
    std::vector<Rank> order; // under mutex
    std::vector<std::jthread> waiters;
    const auto wait = [&](Rank rank, const std::string& address) {
        waiters.emplace_back([&, rank, address] {
            if (const auto place = queue.Enter(rank, address, stop)) {
                const std::lock_guard guard(mutex);
                order.push_back(rank);
            } else {
                ++away;
            }
        });
    };
    for (int i = 0; i < 4; ++i)
        wait(Rank::Last, "a");
    for (int i = 0; i < 60; ++i)
        wait(Rank::Usual, "a");
    ASSERT_TRUE(support::Eventually([&] { return queue.Waiting() == 64; }));
    EXPECT_FALSE(queue.Enter(Rank::Last, "a", stop)) << "there are enough of these";
    EXPECT_EQ(away, 0);
    wait(Rank::Usual, "a");
    EXPECT_TRUE(support::Eventually([&] { return away == 1; })) << "before the usual ones";
    wait(Rank::Last, "b");
    EXPECT_TRUE(support::Eventually([&] { return away == 2; })) << "b has none waiting, and a many";
    for (int i = 0; i < 2; ++i)
        wait(Rank::Usual, "b");
    EXPECT_TRUE(support::Eventually([&] { return away == 4; }));
    ASSERT_EQ(queue.Waiting(), 64U);
    first.reset();
    second.reset();
    ASSERT_TRUE(support::Eventually([&] { return queue.Waiting() == 0; }));
    stop.Signal();
    waiters.clear();
    ASSERT_EQ(order.size(), 64U);
    EXPECT_TRUE(order[63] == Rank::Last || order[62] == Rank::Last) << "the two that work at the end";
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
    const std::string token = authenticator.TokenOf({"gone", false});
    EXPECT_EQ(authenticator.TokenOf({"gone", false}), token);
    EXPECT_NE(authenticator.TokenOf({"ann", false}), token);
    EXPECT_EQ(authenticator.OwnerOf(token).value().login, "gone");
    EXPECT_FALSE(authenticator.OwnerOf(token.substr(1)));

    // What --add-user does beside a running host.
    beside.Set("ann", {UserKind::Admin, false, HashPassword("new")});
    beside.Remove("gone");
    beside.Save();
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(check("ann:old").result, Wrong);
    EXPECT_EQ(check("ann:new").kind, UserKind::Admin);
    EXPECT_FALSE(authenticator.OwnerOf(token));

    // A file that somebody broke locks nobody out; Identify answers without counting.
    platform::ReplaceFile(path, "broken");
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(check("ann:new").result, Known);
    const auto identify = [&](const std::string& credentials) {
        return authenticator.Identify("GET / HTTP/1.0\nauthorization: " + Basic(credentials) + "\n\n");
    };
    EXPECT_FALSE(identify("ann:old"));
    EXPECT_EQ(identify("ann:new").value().token, authenticator.TokenOf({"ann", false}));
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
    const std::string token = authenticator.TokenOf({"Двор №1", true});
    EXPECT_EQ(authenticator.OwnerOf(token).value().login, "Двор №1");
    authenticator.SetCameras({{"Двор №1", "", "z"}});
    EXPECT_EQ(kind("Двор №1:x"), std::nullopt) << "a changed password ends the memory";
    EXPECT_EQ(kind("Двор №1:z"), UserKind::Phone);
    authenticator.SetCameras({});
    EXPECT_EQ(kind("Двор №1:z"), std::nullopt);
    EXPECT_FALSE(authenticator.OwnerOf(token));
    authenticator.SetCameras({{"Двор №1", "", "z"}});
    EXPECT_FALSE(authenticator.OwnerOf(token)) << "one that comes back under its name is another one";
}

TEST(Authenticator, ChecksFewOfManyGuessesAndOneOfManyThatAreTheSame) {
    const TempFolder folder;
    UserStore store(folder.File("users"));
    for (const char* login : {"ann", "bob"})
        store.Set(login, {UserKind::Viewer, false, HashPassword("right")});
    const Wakeup stop;
    Authenticator authenticator(std::move(store), 0ms, stop);
    const PeerAddress peer{"192.0.2.1", "192.0.2.1"};
    const auto results = [&](const std::string& login, int count, auto password) {
        std::array<std::atomic<int>, 4> seen{};
        {
            std::vector<std::jthread> senders;
            for (int i = 0; i < count; ++i)
                senders.emplace_back([&, i] {
                    const SignIn signIn = authenticator.Check(Basic(login + ":" + password(i)), peer);
                    EXPECT_EQ(signIn.result == SignIn::Result::TurnedAway, signIn.retryAfter >= 1s);
                    ++seen[static_cast<std::size_t>(signIn.result)];
                });
        }
        return std::array<int, 4>{seen[0], seen[1], seen[2], seen[3]};
    };
    const auto same = [](int) { return std::string("right"); };
    EXPECT_EQ(results("ann", 60, same), (std::array{60, 0, 0, 0}));
    // Ann's password is among the guesses, and it is remembered.
    const auto guess = [](int i) { return i == 150 ? "right" : "guess" + std::to_string(i); };
    const auto [known, missing, wrong, away] = results("ann", 200, guess);
    EXPECT_LE(known + wrong, 10);
    EXPECT_EQ(known + missing + wrong + away, 200);
    EXPECT_EQ(results("bob", 60, same), (std::array{60, 0, 0, 0})) << "from the same address";
    EXPECT_EQ(authenticator.Check(Basic("ann:right"), {"192.0.2.2", "192.0.2.2"}).result,
              SignIn::Result::Known);
}

// Two hosts, each with a table of its own, over one store.
TEST(SharedTables, OfSessionsBeginAndEndEverywhere) {
    const auto store = std::make_shared<support::SharedStore>();
    std::string present = "digest"; // of the password, as far as the second host has heard
    Sessions first(store, [](const Sessions::Owner&) { return std::string("digest"); });
    Sessions second(store, [&](const Sessions::Owner&) { return present; });
    const auto now = SecretRecord::Now();
    const auto there = [&](Sessions& host, const std::string& id, std::chrono::minutes later = 0min) {
        return host.Find(id, true, now + later).has_value();
    };
    const std::string a = first.Begin({"ann"}, true, now);
    EXPECT_TRUE(there(second, a));

    // Use on one host counts on the other, once it is told.
    EXPECT_TRUE(there(second, a, 300min));
    EXPECT_TRUE(second.Save());
    first.Sweep(now + Sessions::kIdle + 1min);
    EXPECT_TRUE(there(first, a, 301min));

    // A password that the second host has not heard of: nothing for that one, and no end for the first.
    present = "former";
    const std::string b = first.Begin({"ann"}, true, now);
    second.Sweep(now);
    EXPECT_FALSE(there(second, b));
    EXPECT_TRUE(there(first, b));
    present = "digest";
    EXPECT_TRUE(there(second, b));

    // A sign-out ends what is held elsewhere.
    bool ended = false;
    const auto held = second.Hold(b, [&] { ended = true; });
    first.End(b);
    EXPECT_TRUE(ended);
    EXPECT_FALSE(there(second, b));

    // Out of reach: each host goes on by itself, and tells later. What has ended does so although somebody
    // has used it meanwhile.
    const std::string c = first.Begin({"ann"}, true, now);
    store->SetAway(true);
    const std::string d = first.Begin({"ann"}, true, now);
    EXPECT_TRUE(there(first, d));
    EXPECT_FALSE(there(second, d));
    second.End(c);
    EXPECT_FALSE(first.Save());
    EXPECT_FALSE(second.Save());
    EXPECT_TRUE(there(first, c, 1min));
    store->SetAway(false);
    EXPECT_TRUE(first.Save());
    EXPECT_TRUE(there(second, d));
    EXPECT_TRUE(second.Save());
    EXPECT_FALSE(there(first, c));
    const Sessions third(store, [](const Sessions::Owner&) { return std::string("digest"); });
    EXPECT_EQ(store->Get(Sha256(c)).entry, std::nullopt);
}

TEST(SharedTables, OfUsersTakeOneOfTwoChangesOfOneUser) {
    const auto store = std::make_shared<support::SharedStore>();
    UserStore founder(store);
    founder.Set("ann", {UserKind::Admin, false, HashPassword("a")});
    founder.Set("bob", {UserKind::Viewer, false, "x"});
    founder.Save();
    const Wakeup stop;
    Authenticator first(std::move(founder), 0ms, stop);
    Authenticator second(UserStore(store), 0ms, stop);
    using Change = Authenticator::UserChange;
    const auto list = [](const char* camera) {
        return Authenticator::UserWish{.cameras = CameraNames{camera}};
    };
    EXPECT_EQ(first.PutUser("bob", list("yard")), Change::Changed);
    second.Refresh();
    EXPECT_EQ(second.Find("bob")->cameras, CameraNames{"yard"});
    store->SetLate(true);
    EXPECT_EQ(first.PutUser("bob", list("gate")), Change::Changed);
    EXPECT_EQ(second.PutUser("bob", list("tor")), Change::Outdated);
    EXPECT_EQ(second.Find("bob")->cameras, CameraNames{"gate"}) << "the one that came first holds";
    EXPECT_EQ(second.RemoveUser("ann"), Change::LastAdmin);
    const std::string token = second.TokenOf({"bob", false});
    EXPECT_EQ(second.RemoveUser("bob"), Change::Changed);
    EXPECT_EQ(second.PutUser("bob", {.kind = UserKind::Viewer, .password = "long enough"}), Change::Made);
    EXPECT_FALSE(second.OwnerOf(token)) << "another bob";
    EXPECT_EQ(second.RemoveUser("bob"), Change::Changed);
    EXPECT_TRUE(first.Find("bob"));
    store->SetLate(false);
    first.Refresh();
    EXPECT_FALSE(first.Find("bob"));

    // Each of two administrators is removed while the other host has not heard of it: the later one stays.
    EXPECT_EQ(first.PutUser("eve", {.kind = UserKind::Admin, .password = "long enough"}), Change::Made);
    second.Refresh();
    store->SetLate(true);
    EXPECT_EQ(first.RemoveUser("ann"), Change::Changed);
    EXPECT_EQ(second.RemoveUser("eve"), Change::LastAdmin);
    store->SetLate(false);
    for (Authenticator* const host : {&first, &second}) {
        host->Refresh();
        EXPECT_TRUE(host->Find("eve"));
        EXPECT_FALSE(host->Find("ann"));
    }
    store->SetAway(true);
    EXPECT_EQ(second.PutUser("eve", list("yard")), Change::NotWritten);
    EXPECT_FALSE(second.Find("eve")->cameras) << "what is not written is not in force";
}

// Somebody removes what was put a moment ago, and that is heard of before the change is settled.
TEST(SharedTables, DoNotBringBackWhatIsGone) {
    for (const bool looks : {true, false}) {
        const auto store = std::make_shared<support::SharedStore>();
        StoreMirror mirror(store);
        const auto changes = mirror.ChangesTo({{"yard", "one"}});
        const auto outcomes = store->Write(changes);
        EXPECT_EQ(store->Remove("yard", outcomes.front().revision).result, Store::Result::Done);
        if (looks)
            (void)mirror.Refresh();
        (void)mirror.Settle(changes, outcomes);
        EXPECT_TRUE(mirror.Now().empty()) << looks;
        EXPECT_EQ(store->Put("yard", "two", 0).result, Store::Result::Done);
        EXPECT_EQ(mirror.Refresh().size(), 1U);
        EXPECT_EQ(mirror.ValuesNow(), (StoreMirror::Values{{"yard", "two"}})) << looks;
    }
}

TEST(SharedTables, StartWithWhatWasKnownLast) {
    const TempFolder folder;
    const std::string path = folder.File("users");
    UserStore before(path);
    before.Set("ann", {UserKind::Admin, false, "old"});
    before.Set("bob", {UserKind::Viewer, false, "old"});
    before.Save();
    const auto store = std::make_shared<support::SharedStore>();
    UserStore elsewhere(store);
    elsewhere.Set("ann", {UserKind::Admin, false, "new"});
    elsewhere.Save();
    const std::string former = ReadFile(path);

    store->SetLate(true); // as a store that cannot be reached
    const auto kept = std::make_shared<KeptStore>(store, UserStore::InFile(path));
    UserStore users(kept);
    EXPECT_EQ(users.Users().size(), 2U);
    EXPECT_FALSE(kept->IsRead());
    EXPECT_EQ(kept->Enter(KeptStore::Entering::Add).result, Store::Result::Unreachable);
    EXPECT_TRUE(kept->Save());
    EXPECT_EQ(ReadFile(path), former);
    users.Set("ann", {UserKind::Admin, false, "mine"});
    EXPECT_NE(ErrorOf([&] { users.Save(); }), "") << "of what is known last nothing can be changed";

    store->SetLate(false);
    EXPECT_TRUE(users.Refresh());
    EXPECT_EQ(users.Users().size(), 1U);
    EXPECT_EQ(users.Users().at("ann").hash, "new");
    EXPECT_TRUE(kept->Save());
    EXPECT_EQ(UserStore(path).Users().at("ann").hash, "new");
    users.Set("ann", {UserKind::Admin, false, "mine"});
    users.Save();
    (void)elsewhere.Refresh();
    EXPECT_EQ(elsewhere.Users().at("ann").hash, "mine");
    // A founder brings its own.
    const auto empty = std::make_shared<support::SharedStore>();
    EXPECT_EQ(KeptStore(empty, UserStore::InFile(path)).Enter(KeptStore::Entering::Add).result,
              Store::Result::Done);
    EXPECT_EQ(UserStore(empty).Users().size(), 1U);
}

} // namespace
} // namespace host
