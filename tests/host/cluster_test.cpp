// What hosts of a cluster seal for each other, and every way of forging it.

#include <gtest/gtest.h>

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
        if (opened)
            EXPECT_EQ(opened->second, here[0] != there[0]) << here << " opens " << there;
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

TEST(Seal, AValueOpensInItsPlaceAndAfterWhatItFollows) {
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
    EXPECT_EQ(value->follows, 5U);
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

    const struct {
        SeenRevision known, value;
        Standing standing;
    } standings[] = {{{0, 0}, {4, 0}, Standing::Next},  {{4, 0}, {9, 4}, Standing::Next},
                     {{4, 0}, {9, 8}, Standing::Next},  {{4, 0}, {9, 3}, Standing::Old},
                     {{4, 0}, {9, 0}, Standing::Old},   {{4, 0}, {9, 9}, Standing::Old},
                     {{4, 0}, {9, 12}, Standing::Old},  {{9, 4}, {9, 4}, Standing::Known},
                     {{9, 4}, {9, 0}, Standing::Old},   {{9, 4}, {8, 4}, Standing::Undone},
                     {{9, 4}, {1, 0}, Standing::Undone}};
    for (const auto& row : standings)
        EXPECT_EQ(StandingOf(row.known, row.value), row.standing)
            << row.known.revision << " " << row.value.revision << " " << row.value.follows;
}

} // namespace
} // namespace host::cluster
