// What hosts of a cluster seal for each other, and every way of forging it; and which of them has a camera.

#include <gtest/gtest.h>

#include <sstream>

#include "host/cluster/cameras.h"
#include "host/cluster/owners.h"
#include "host/cluster/seal.h"

namespace host::cluster {
namespace {

const std::string kOne(32, 'a');
const std::string kTwo(32, 'b');

std::string Text(const Sealer& sealer, const SealedFor& place, std::string_view sealed) {
    const auto opened = sealer.Open(place, sealed);
    return opened ? opened->node + ": " + opened->text : "-";
}

TEST(Seal, OpensForWhatItBelongsToAlone) {
    const Sealer a(Secrets::Of(kOne), "a");
    const Sealer b(Secrets::Of(kOne), "b");
    SealId request;
    SealId later;
    (void)a.Seal({}, "one question", &request);
    (void)a.Seal({}, "another one", &later);
    EXPECT_LT(request, later);
    const std::string nonce = request.Bytes();
    const std::string other = later.Bytes();
    const SealedFor place{SealedFor::Kind::Answer, "morrow.picture.b", "key", 7, nonce};
    const std::string sealed = b.Seal(place, "a picture");
    EXPECT_EQ(Text(a, place, sealed), "b: a picture");
    EXPECT_EQ(Text(b, place, sealed), "b: a picture");
    EXPECT_EQ(sealed.size(), 9 + Sealer::Overhead(1));
    EXPECT_EQ(sealed.find("picture"), std::string::npos);
    EXPECT_NE(b.Seal(place, "a picture"), sealed);

    const std::pair<const char*, SealedFor> elsewhere[] = {
        {"kind", {SealedFor::Kind::Request, place.place, place.key, 7, nonce}},
        {"subject or bucket", {place.kind, "morrow.picture.c", place.key, 7, nonce}},
        {"key", {place.kind, place.place, "kez", 7, nonce}},
        {"key and subject moved", {place.kind, "morrow.picture.bk", "ey", 7, nonce}},
        {"epoch", {place.kind, place.place, place.key, 8, nonce}},
        {"answer to another question", {place.kind, place.place, place.key, 7, other}},
        {"answer to none", {place.kind, place.place, place.key, 7, {}}},
    };
    for (const auto& [what, wrong] : elsewhere)
        EXPECT_EQ(Text(a, wrong, sealed), "-") << what;

    // Another host, another start, another count, another secret, and whatever else one bit can say.
    for (std::size_t bit = 0; bit < sealed.size() * 8; ++bit) {
        std::string bent = sealed;
        bent[bit / 8] = static_cast<char>(bent[bit / 8] ^ 1 << bit % 8);
        EXPECT_EQ(Text(a, place, bent), "-") << "bit " << bit;
    }
    for (std::size_t size = 0; size < sealed.size(); ++size)
        EXPECT_EQ(Text(a, place, std::string_view(sealed).substr(0, size)), "-") << "cut to " << size;
    EXPECT_EQ(Text(a, place, sealed + '\0'), "-");
    for (const std::size_t length : {std::size_t{0}, std::size_t{2}, std::size_t{64}, std::size_t{255}}) {
        std::string named = sealed;
        named[29] = static_cast<char>(length);
        EXPECT_EQ(Text(a, place, named), "-") << "a name of " << length;
    }
    EXPECT_EQ(Text(Sealer(Secrets::Of(kTwo), "b"), place, sealed), "-");
}

TEST(Seal, ASecretIsChangedWithoutAHostThatUnderstandsNobody) {
    const SealedFor place{};
    const char* const steps[][2] = {{"1", "1"},  {"12", "1"}, {"12", "21"},
                                    {"2", "21"}, {"2", "2"},  {"2", "1"}};
    const auto secrets = [](std::string_view which) {
        std::string file = "# the cluster's\n\n";
        for (const char one : which)
            file += (one == '1' ? kOne : kTwo) + " \r\n";
        return Secrets::Of(file);
    };
    for (const auto& [here, there] : steps) {
        const Sealer a(secrets(here), "a");
        const Sealer b(secrets(there), "b");
        const bool strange = std::string(here) == "2" && std::string(there) == "1";
        const auto opened = a.Open(place, b.Seal(place, "x"));
        EXPECT_EQ(opened.has_value(), !strange) << here << " opens " << there;
        EXPECT_EQ(b.Open(place, a.Seal(place, "x")).has_value(), !strange) << there << " opens " << here;
        if (opened) {
            EXPECT_EQ(opened->second, here[0] != there[0]) << here << " opens " << there;
        }
    }
    for (const std::string& bad :
         {std::string(), std::string("# nothing\n"), std::string(31, 'x'), kOne + "\n" + kTwo + "\n" + kOne})
        EXPECT_THROW((void)Secrets::Of(bad), SealError) << bad;
    EXPECT_THROW(Sealer(Secrets::Of(kOne), ""), SealError);
    EXPECT_THROW(Sealer(Secrets::Of(kOne), std::string(65, 'n')), SealError);
}

TEST(Seal, AMessageCountsOnce) {
    const auto start = [](unsigned char first) { return std::array<unsigned char, 16>{first}; };
    Freshness fresh;
    const auto take = [&](unsigned char first, std::uint64_t count, const char* node = "a") {
        return fresh.Take({"", node, {start(first), count}, false});
    };
    EXPECT_FALSE(take(1, 1)) << "nobody knows its start";
    fresh.SetStart("a", start(1));
    const std::pair<std::uint64_t, bool> counts[] = {
        {2, true},  {1, true},  {2, false},  {1, false},  {0, false},   {70, true},   {7, true},
        {6, false}, {7, false}, {200, true}, {137, true}, {136, false}, {137, false}, {201, true}};
    for (const auto& [count, taken] : counts)
        EXPECT_EQ(take(1, count), taken) << count;
    EXPECT_FALSE(take(1, 300, "b"));
    fresh.SetStart("a", start(1));
    EXPECT_FALSE(take(1, 201)) << "the same start told again";
    fresh.SetStart("a", start(2));
    EXPECT_FALSE(take(1, 500)) << "a former start";
    EXPECT_TRUE(take(2, 1));
    fresh.Forget("a");
    EXPECT_FALSE(take(2, 2));
}

TEST(Seal, AValueOpensInItsPlace) {
    const auto sealer = std::make_shared<const Sealer>(Secrets::Of(kOne), "a");
    const BucketSeal users(sealer, "users", Secret("name key"));
    const BucketSeal tokens(sealer, "tokens", Secret("name key"));
    const std::string key = users.KeyOf("admin");
    EXPECT_EQ(key.size(), 64U);
    EXPECT_NE(key, tokens.KeyOf("admin"));
    EXPECT_NE(key, BucketSeal(sealer, "users", Secret("another")).KeyOf("admin"));
    const std::string sealed = users.Seal({5, false, "admin", "its password"});
    const auto value = users.Open(key, sealed);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->name + " " + value->text, "admin its password");
    EXPECT_EQ(value->revision, 5U);
    EXPECT_FALSE(value->removed);
    EXPECT_FALSE(users.Open(users.KeyOf("guard"), sealed)) << "another key";
    EXPECT_FALSE(tokens.Open(key, sealed)) << "another bucket";
    EXPECT_FALSE(users.Open(key, sealer->Seal({}, "no value"))) << "a message";
    // Sealed for the place, and no value all the same.
    for (const std::string& text : {std::string(10, '\0'), std::string(8, '\0') + "\2\0\0"})
        EXPECT_FALSE(users.Open(users.KeyOf(""),
                                sealer->Seal({SealedFor::Kind::Value, "users", users.KeyOf("")}, text)));
    EXPECT_FALSE(users.Open(key, sealer->Seal({SealedFor::Kind::Value, "users", key},
                                              std::string(8, '\0') + std::string("\1\0\5guard", 8))));
    const auto gone = users.Open(key, users.Seal({9, true, "admin", "left over"}));
    ASSERT_TRUE(gone);
    EXPECT_TRUE(gone->removed);
    EXPECT_EQ(gone->text, "");
    // A former secret's values are to be sealed anew.
    bool renew = false;
    EXPECT_TRUE(BucketSeal(std::make_shared<const Sealer>(Secrets::Of(kTwo + "\n" + kOne), "b"), "users",
                           Secret("name key"))
                    .Open(key, sealed, &renew));
    EXPECT_TRUE(renew);
}

// One host's view, host "a", told step by step: at so many milliseconds, what happens, and what "look" and
// "where" then give.
struct OwnerStep {
    int at;
    std::string what;
    std::string gives{};
};

std::string Play(Ownership& ownership, const OwnerStep& step) {
    const auto now = Ownership::Clock::time_point(std::chrono::hours(1) + std::chrono::milliseconds(step.at));
    std::istringstream words(step.what);
    std::string what;
    std::string name;
    std::string node;
    std::uint64_t epoch = 0;
    std::ostringstream gives;
    words >> what;
    if (what == "look") {
        const Ownership::Orders orders = ownership.Look(
            {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()}, now);
        for (const std::string& camera : orders.end)
            gives << "end " << camera << " ";
        for (const std::string& camera : orders.claim)
            gives << "claim " << camera << " ";
        for (const auto& [camera, released] : orders.release)
            gives << "release " << camera << released << " ";
        return gives.str();
    }
    if (what == "where") {
        for (const auto& [camera, owner] : ownership.Elsewhere(now))
            gives << camera << "@" << owner.node << owner.epoch << " ";
        return gives.str();
    }
    if (what == "writes") {
        ownership.Writes(words >> node && node == "yes", now);
        return {};
    }
    if (what == "returns")
        return words >> node && ownership.Heard(node, now) ? "yes" : "no";
    if (what == "beats") {
        while (words >> node)
            ownership.Heard(node, now);
        return {};
    }
    words >> name;
    if (what == "told") {
        words >> node >> epoch;
        ownership.Told(name, {node == "-" ? "" : node, epoch}, now);
    } else if (what == "claiming") {
        ownership.Claiming(name, now);
    } else if (what == "claimed") {
        words >> epoch;
        ownership.Claimed(name, epoch, now);
    } else if (what == "without") {
        ownership.ServesWithout(name);
    } else if (what == "said") {
        words >> node >> epoch;
        ownership.Says(name, {node, epoch}, now);
    } else if (what == "hears") { // that another one does
        words >> node;
        ownership.ToldWithout(name, node, now);
    } else if (what == "says") {
        for (const auto& [camera, none] : ownership.Without())
            gives << camera << " ";
        return gives.str();
    } else if (what == "restless") {
        return ownership.IsRestless(name, now) ? "yes" : "no";
    }
    return {};
}

TEST(Ownership, IsReadAsItIsAnnounced) {
    const std::map<std::string, std::uint64_t> owned{{"", 1}, {"yard", 7}, {std::string(300, 'x'), ~0ULL}};
    const std::string text = WriteOwned(owned);
    EXPECT_EQ(ReadOwned(text), owned);
    for (std::size_t size = 0; size < text.size(); ++size) {
        const auto some = ReadOwned(std::string_view(text).substr(0, size));
        EXPECT_TRUE(!some || some->size() < owned.size()) << size;
    }
}

TEST(Ownership, IsOfWhoHasClaimedLast) {
    const std::pair<const char*, std::vector<OwnerStep>> stories[] = {
        {"a phone stays",
         {{0, "beats a b"},
          {0, "claimed x 5"},
          {0, "look x"},
          {1000, "told x b 3"},
          {1000, "look x"},
          {1000, "where"}}},
        {"a phone moves to another host",
         {{0, "beats a b"},
          {0, "claimed x 5"},
          {100, "told x b 7"},
          {100, "look x y", "end x claim y "},
          {100, "where", "x@b7 "}}},
        {"and that one dies at once",
         {{0, "beats a"},
          {0, "claimed x 5"},
          {100, "told x b 7"},
          {100, "look x", "end x "},
          {100, "where"}}},
        {"a phone comes from another host",
         {{0, "beats a b"},
          {0, "told x b 3"},
          {0, "where", "x@b3 "},
          {0, "claimed x 5"},
          {0, "where"},
          {0, "look x"}}},
        {"one's own claim is heard of early",
         {{0, "beats a b"}, {0, "claimed x 5"}, {10, "told x a 7"}, {10, "look x"}}},
        {"a phone goes",
         {{0, "beats a"},
          {0, "claimed x 5"},
          {1500, "look x"},
          {3000, "look"},
          {4900, "look"},
          {5100, "look", "release x5 "},
          {5300, "look"},
          {6200, "look", "release x5 "},
          {6300, "told x - 6"},
          {7500, "look"}}},
        {"a phone comes again meanwhile",
         {{0, "beats a"},
          {0, "claimed x 5"},
          {1500, "look x"},
          {3400, "look"},
          {5000, "claiming x"},
          {5100, "look"},
          {6000, "claimed x 8"},
          {6100, "look x"}}},
        {"what a former start had", {{0, "beats a"}, {0, "told x a 3"}, {0, "look", "release x3 "}}},
        {"let in without the engine",
         {{0, "without x"},
          {0, "look x"},
          {1500, "look x"},
          {3000, "beats a"},
          {3000, "look x", "claim x "},
          {3500, "look x"},
          {4100, "look x", "claim x "},
          {4200, "claimed x 9"},
          {5200, "look x"}}},
        {"so, and another host has it",
         {{0, "without x"},
          {0, "told x b 3"},
          {0, "look x"},
          {1000, "beats a b"},
          {1000, "look x"},
          {2500, "look x"},
          {3900, "beats a b"},
          {4000, "look x"},
          {4500, "beats a b"},
          {4500, "look x"},
          {6000, "look x"},
          {7000, "look x", "end x "}}},
        {"so, and that one is dead",
         {{0, "without x"},
          {0, "told x b 3"},
          {0, "beats a"},
          {0, "look x"},
          {1400, "beats a"},
          {1500, "look x"},
          {2800, "beats a"},
          {2900, "look x"},
          {3100, "look x", "claim x "}}},
        {"a host that slept",
         {{0, "beats a"},
          {0, "claimed x 5"},
          {0, "look x"},
          {1900, "look x"},
          {4000, "look x", "end x "},
          {4100, "look x"}}},
        {"another host's heart stops",
         {{0, "beats a b"},
          {0, "told x b 3"},
          {0, "where", "x@b3 "},
          {1000, "beats a"},
          {2000, "beats a"},
          {2900, "where", "x@b3 "},
          {3100, "beats a"},
          {3100, "where"},
          {3200, "beats b"},
          {3200, "where", "x@b3 "}}},
        {"the engine pauses",
         {{0, "beats a b"},
          {0, "told x b 3"},
          {2900, "where", "x@b3 "},
          {3100, "where"},
          {9000, "beats a"},
          {9000, "where"},
          {9100, "beats b"},
          {9100, "where", "x@b3 "}}},
        {"nothing can be claimed, and behind that the others may not have been heard yet",
         {{0, "without x"},
          {0, "told x b 3"},
          {0, "writes no"},
          {1400, "beats a"},
          {2800, "beats a"},
          {3100, "look x"},
          {4200, "beats a"},
          {4900, "look x y"},
          {5000, "writes yes"},
          {5600, "beats a"},
          {6500, "look x"},
          {7000, "beats a"},
          {7900, "look x"},
          {8100, "look x", "claim x "}}},
        {"a host was cut off",
         {{0, "returns b", "yes"},
          {2000, "returns b", "no"},
          {4900, "returns b", "no"},
          {8000, "returns b", "yes"}}},
        {"let in without an entry: it says so while the phone is here",
         {{0, "beats a b"},
          {0, "writes no"},
          {0, "claiming x"},
          {0, "without x"},
          {0, "says"},
          {0, "look x"},
          {0, "says", "x "},
          {0, "hears x b"},
          {0, "where"},
          {100, "look"},
          {100, "says"},
          {200, "look x"},
          {200, "says", "x "},
          {300, "claimed x 5"},
          {300, "says"},
          {300, "where"}}},
        {"so, and who has the entry is heard again",
         {{0, "beats a b"},
          {0, "told x b 3"},
          {0, "writes no"},
          {0, "without x"},
          {0, "look x"},
          {100, "said x b 2"},
          {100, "look x"},
          {200, "said x b 3"},
          {200, "look x", "end x "}}},
        {"others let it in without one",
         {{0, "beats a b c"},
          {0, "told x d 3"},
          {0, "hears x c"},
          {0, "where", "x@c0 "},
          {0, "hears x b"},
          {0, "where", "x@b0 "},
          {0, "hears x Z"},
          {0, "where", "x@b0 "},
          {100, "told x c 7"},
          {100, "where", "x@c7 "},
          {100, "told x - 8"},
          {100, "where", "x@b0 "},
          {1500, "beats a b c"},
          {2900, "beats a b c"},
          {3000, "where", "x@b0 "},
          {3100, "where"}}},
        {"two phones of one name",
         {{0, "told x b 1"},
          {1000, "told x c 2"},
          {2000, "told x b 3"},
          {3000, "told x c 4"},
          {3000, "restless x", "no"},
          {4000, "told x b 5"},
          {4000, "restless x", "yes"},
          {13000, "restless x", "yes"},
          {14100, "restless x", "no"}}},
        {"a balancer's slow turns",
         {{0, "told x b 1"},
          {5000, "told x c 2"},
          {10000, "told x b 3"},
          {15000, "told x c 4"},
          {20000, "told x b 5"},
          {20000, "restless x", "no"}}},
    };
    for (const auto& [title, steps] : stories) {
        Ownership ownership("a");
        for (const OwnerStep& step : steps)
            EXPECT_EQ(Play(ownership, step), step.gives) << title << ": " << step.at << " " << step.what;
    }
}

} // namespace
} // namespace host::cluster
