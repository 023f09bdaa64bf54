// The settings over the web: who may do what, what a browser gets to see, and what becomes of a change.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "host/preferences/document.h"
#include "host/preferences/store.h"
#include "host/rig.h"
#include "host/settings/file.h"
#include "support/SharedStore.h"

namespace host::test {
namespace {

using support::CameraItem;
using support::SettingsText;
using testing::HasSubstr;
using testing::Not;

const std::string kDocument = "/settings/document";

class SettingsTest : public testing::Test {
protected:
    SettingsTest() { Store({{u"gate", u"geheim"}, {u"open", u""}, {u"yard", u"демо"}}); }

    void Store(const std::vector<std::pair<std::u16string, std::u16string>>& cameras) {
        std::u16string items;
        for (const auto& [name, password] : cameras)
            items += CameraItem(name, password);
        rig.configuration->m_text = SettingsText(items);
    }
    Reply Get(const std::string& target, const std::string& lines = {}) const {
        return rig.Get(target, kLocal + std::string(Rig::kAdmin) + lines);
    }
    std::string Token() const { return "X-Settings-Token: " + rig.site.pageToken + "\r\n"; }
    Reply Put(const std::string& target, const std::string& body, const std::string& lines) const {
        return rig.Ask("PUT " + target + " HTTP/1.1\r\n" + kLocal + std::string(Rig::kAdmin) + lines +
                       "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    }
    std::vector<CameraEntry> Cameras() const {
        return SettingsDocument::Parse(rig.configuration->m_text)->Cameras();
    }
    // The change of a document that was read as `version`.
    Reply Write(const std::string& xml, const std::string& version) const {
        return Put(kDocument, xml, Token() + "If-Match: " + version + "\r\n");
    }

    Rig rig{LongLimits()};
};

std::string Replaced(std::string text, std::string_view what, std::string_view by) {
    const auto at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what << " in " << text;
    return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

// What the page does with them is followed in a browser.
TEST_F(SettingsTest, AreChangedWithTheirPasswordsAndTakeEffectAtOnce) {
    rig.AddCamera("tor");
    const Reply document = Get(kDocument);
    EXPECT_EQ(document.Header("Content-Type"), "text/xml; charset=utf-8");
    EXPECT_EQ(document.Header("Cache-Control"), "no-store");
    EXPECT_THAT(document.body, Not(testing::AnyOf(HasSubstr("geheim"), HasSubstr("stored=\"1\""))));
    EXPECT_THAT(Get("/settings/state").body, HasSubstr("{\"token\":\"" + rig.site.pageToken + "\""));
    const std::string version = document.Header("ETag");
    const auto secret = [&](const std::string& number) {
        return Get("/settings/secret?number=" + number, Token() + "If-Match: " + version + "\r\n");
    };
    EXPECT_EQ(secret("2").body, "демо");
    EXPECT_EQ(secret("9").status, 412U);
    // Renamed, with its password; the other one gets a new password.
    std::string edited = Replaced(document.body, ">gate<", ">tor<");
    edited = Replaced(edited, " stored=\"2\">••••••••<", ">p&lt;<");
    const Reply changed = Write(edited, version);
    ASSERT_EQ(changed.status, 200U) << changed.body;
    EXPECT_EQ(secret("2").status, 412U) << "the marks are those of another document";
    EXPECT_EQ(rig.configuration->m_path.View(), u"config");
    EXPECT_THAT(platform::ToUtf8(rig.configuration->m_head.View()),
                HasSubstr("\r\ncontent-type: text/xml\r\n"));
    EXPECT_THAT(Cameras(), testing::ElementsAre(CameraEntry{"tor", "160x120", "geheim"},
                                                CameraEntry{"open", "160x120", ""},
                                                CameraEntry{"yard", "160x120", "p<"}));
    EXPECT_THAT(changed.body, testing::AllOf(HasSubstr("••"), Not(HasSubstr("geheim"))));
    EXPECT_EQ(rig.feeds->Find("tor")->Figures().type, "160x120");
    EXPECT_EQ(rig.authenticator.CameraPassword("tor"), "geheim");

    EXPECT_EQ(Write(edited, version).status, 412U) << "somebody was faster";
    const std::string now = changed.Header("ETag");
    rig.configuration->m_result = E_UNEXPECTED;
    EXPECT_THAT(Write(changed.body, now).body, HasSubstr("0x8000FFFF"));
    rig.settings.SetConfiguration(nullptr);
    EXPECT_EQ(Write(changed.body, now).status, 503U);
    EXPECT_EQ(Get(kDocument).status, 503U);
}

TEST_F(SettingsTest, AreRefusedWithThePlaceRatherThanTakenInPart) {
    const Reply document = Get(kDocument);
    const std::string version = document.Header("ETag");
    const std::string name = ">gate<";
    const std::string password = " stored=\"0\">••••••••<";
    const std::string list = "<cams KeyXPath=\"Name/text()\"";
    struct Case {
        std::string what, by, key, place;
    };
    std::vector<Case> cases{
        {name, ">" + std::string(65, 'a') + "<", "loginTooLong", "/cams/item[1]/Name"},
        {name, "><", "mustNotBeEmpty", "/cams/item[1]/Name"},
        {name, ">yard<", "mustBeUnique", "/cams/item[3]/Name"},
        {name, ">viewer<", "loginTaken", "/cams/item[1]/Name"},
        {name, ">ga<x/>te<", "inPieces", "/cams/item[1]/Name"},
        {password, ">" + std::string(64, 'p') + "<", "passwordTooLong", "/cams/item[1]/Password"},
        {list, "<cams KeyXPath=\"Type/text()\"", "wrongKey", "/cams"},
        {list, "<cams", "wrongKey", "/cams"},
        {"</cams>", "<Item/></cams>", "unknownElement", "/cams/Item"},
        {"</cams>", "<item><Name type=\"BSTR\">x</Name></item></cams>", "isMissing", "/cams/item[4]/Type"},
        {"<Name type=\"BSTR\"", "<Name", "wrongType", "/cams/item[1]/Name"},
        {"<host type=\"BSTR\"", "<host type=\"int\"", "wrongType", "/host"},
        {"</config>", "<extra/></config>", "unknownElement", "/extra"},
        {"</config>", "<host type=\"BSTR\"/></config>", "standsTwice", "/host[2]"},
    };
    for (const char* sign : {"/", "?", "#", ":", "%", "&amp;", "&#9;"})
        cases.push_back({name, std::string(">a") + sign + "b<", "loginCharacters", "/cams/item[1]/Name"});
    for (const char* sign : {"/", "&amp;", "&#9;"})
        cases.push_back(
            {password, std::string(">a") + sign + "b<", "passwordCharacters", "/cams/item[1]/Password"});
    for (const Case& c : cases) {
        const Reply reply = Write(Replaced(document.body, c.what, c.by), version);
        EXPECT_EQ(reply.status, 422U) << c.by;
        EXPECT_THAT(reply.body, HasSubstr(R"({"path":"/config)" + c.place + R"(","key":")" + c.key + '"'))
            << c.by;
    }
    EXPECT_THAT(Write("<other/>", version).body, HasSubstr(R"({"path":"/*","key":"foreignRoot")"));
    for (const std::string& bad : {std::string("<config>"), std::string("\xFF"), std::string(),
                                   Replaced(document.body, "stored=\"0\"", "stored=\"77\"")})
        EXPECT_EQ(Write(bad, version).status, 400U) << bad.substr(0, 20);
    EXPECT_TRUE(rig.configuration->m_path.IsNull());
}

TEST_F(SettingsTest, KeepWhatStoodThereBeforeTheRulesAndMarkIt) {
    const std::string password = " stored=\"0\">••••••••<";
    const std::tuple<std::string, std::string, unsigned> changes[] = {
        {">10.0.0.1:80<", ">10.0.0.2:80<", 200},
        {">50%<", ">fifty<", 200},
        {password, ">a/b<", 200},
        {">50%<", ">60%<", 422},
        {password, ">c/d<", 422},
    };
    for (const auto& [what, by, status] : changes) {
        Store({{u"50%", u"a/b"}, {u"viewer", u"x"}});
        const Reply document = Get(kDocument);
        for (const char* mark : {" kept=\"loginCharacters\">50%<",
                                 " kept=\"passwordCharacters\" stored=\"0\"", " kept=\"loginTaken\">viewer<"})
            EXPECT_THAT(document.body, HasSubstr(mark));
        EXPECT_EQ(Write(Replaced(document.body, what, by), document.Header("ETag")).status, status) << by;
    }
}

TEST_F(SettingsTest, ComeBackWhenTheComponentTakesThemInPart) {
    const auto before = Cameras();
    for (const auto& [result, status] : {std::pair{S_OK, 422U}, {E_OUTOFMEMORY, 500U}}) {
        int sets = 0;
        rig.configuration->m_result = result;
        rig.configuration->m_onSet = [&] {
            if (sets++ == 0)
                rig.configuration->m_text = SettingsText(CameraItem(u"gate", u"geheim"));
            rig.configuration->m_result = S_OK;
        };
        const Reply document = Get(kDocument);
        const Reply reply = Write(Replaced(document.body, ">yard<", ">tor<"), document.Header("ETag"));
        EXPECT_EQ(reply.status, status);
        EXPECT_EQ(reply.body.find("item[3]/Name\",\"key\":\"notTaken\"") != std::string::npos, status == 422);
        EXPECT_EQ(sets, 2);
        EXPECT_EQ(Cameras(), before);
        EXPECT_TRUE(rig.authenticator.CameraPassword("yard") && !rig.authenticator.CameraPassword("tor"));
    }
}

TEST_F(SettingsTest, HoldTheServersAddressUntilSomebodySaysAnother) {
    const auto stands = [&] {
        return SettingsDocument::Parse(rig.configuration->m_text)->Host().value_or("");
    };
    const auto write = [&](const std::string& by) {
        const Reply document = Get(kDocument);
        return Write(Replaced(document.body, ">" + stands() + "</host>", by), document.Header("ETag")).status;
    };
    // Another run of the host, which listens there.
    const auto start = [&](const char* own) {
        Settings settings(rig.authenticator, *rig.feeds, rig.SettingsPath());
        settings.SetConfiguration(platform::ComPtr<IConfiguration>(rig.configuration.Get()));
        settings.SetOwnAddress(own);
        return settings.Edit([](SettingsDocument&) { return false; }).addressEntered;
    };
    EXPECT_FALSE(start("127.0.0.1:1"));
    EXPECT_EQ(stands(), "10.0.0.1:80") << "a person's";
    rig.settings.SetOwnAddress("127.0.0.1:1");
    EXPECT_EQ(write("></host>"), 200U);
    EXPECT_EQ(stands(), "127.0.0.1:1") << "at once where none stands";
    EXPECT_TRUE(start("127.0.0.1:2"));
    EXPECT_FALSE(start("127.0.0.1:2"));
    EXPECT_EQ(stands(), "127.0.0.1:2");
    EXPECT_TRUE(start("127.0.0.1:3"));
    for (const char* person : {">cams.example</host>", ">127.0.0.1:3</host>"})
        EXPECT_EQ(write(person), 200U);
    EXPECT_FALSE(start("127.0.0.1:4"));
    EXPECT_EQ(stands(), "127.0.0.1:3") << "the same words, and a person's now";
}

TEST_F(SettingsTest, OfTheHostsOwnAreMadeFromTheTemplate) {
    const auto put = [&](const CameraEntry& camera) {
        return rig.settings.Edit([&](SettingsDocument& document) { return document.Put(camera); }).result;
    };
    using enum SettingsChange::Result;
    EXPECT_EQ(put({"Двор №1", "320x240", "demo"}), Done);
    EXPECT_EQ(put({"gate", "320x240", "demo"}), Done);
    EXPECT_THAT(platform::ToUtf8(rig.configuration->m_text),
                HasSubstr("unique=\"../../item/Name\" displayname=\"//local/@name\">Двор №1</Name>"));
    EXPECT_THAT(Cameras(), testing::ElementsAre(CameraEntry{"gate", "320x240", "demo"},
                                                CameraEntry{"open", "160x120", ""},
                                                CameraEntry{"yard", "160x120", "демо"},
                                                CameraEntry{"Двор №1", "320x240", "demo"}));
    rig.configuration->m_path = nullptr;
    EXPECT_EQ(put({"gate", "320x240", "demo"}), Done);
    EXPECT_TRUE(rig.configuration->m_path.IsNull()) << "all is so already";

    // What is not on disk is told until it is.
    const auto ready = [&] { return rig.Get("/readyz").body; };
    EXPECT_EQ(ready(), "ready\n");
    const auto written = std::exchange(rig.configuration->m_onSet, nullptr);
    EXPECT_EQ(put({"gate", "320x240", "other"}), NotWritten);
    EXPECT_EQ(ready(), "The last change of the settings could not be written to disk.\n");
    const Reply document = Get(kDocument);
    const Reply unwritten = Write(document.body, document.Header("ETag"));
    EXPECT_EQ(unwritten.Header("X-Settings-Written"), "no");
    EXPECT_FALSE(rig.settings.WriteWhatIsLeft());
    EXPECT_THAT(rig.Get("/health").body,
                HasSubstr("{\"status\":\"The last change of the settings could not"));
    EXPECT_THAT(rig.Get("/metrics").body, HasSubstr("\nmorrowstream_settings_written 0\n"));
    rig.configuration->m_onSet = written;
    EXPECT_TRUE(rig.settings.WriteWhatIsLeft());
    EXPECT_EQ(ready(), "ready\n");
    EXPECT_EQ(Get(kDocument).Header("ETag"), unwritten.Header("ETag")) << "nothing has changed";
    // And so are the preferences.
    std::filesystem::create_directories(rig.folder.File("Preferences.xml/in"));
    EXPECT_EQ(
        rig.preferences.Write(Replaced(rig.preferences.Read().xml, ">7</days>", ">8</days>"), "").result,
        PreferenceChange::Result::NotWritten);
    EXPECT_EQ(ready(), "The last change of the host's preferences could not be written to disk.\n");
    EXPECT_THAT(rig.Get("/metrics").body, HasSubstr("\nmorrowstream_settings_written 0\n"));
    std::filesystem::remove_all(rig.folder.File("Preferences.xml"));
    EXPECT_TRUE(rig.preferences.WriteWhatIsLeft());
    EXPECT_EQ(ready(), "ready\n");
    rig.settings.SetConfiguration(nullptr);
    EXPECT_EQ(rig.Get("/readyz").status, 503U);
}

TEST_F(SettingsTest, OfTwoHostsAreOneAndConflictsComeBack) {
    using enum SettingsChange::Result;
    const auto store = std::make_shared<support::SharedStore>();
    Rig other(LongLimits());
    other.configuration->m_text = SettingsText(CameraItem(u"gate", u"another") + CameraItem(u"porch", u""));
    const auto names = [](Rig& host) {
        std::string all;
        const auto reading = host.settings.Cameras();
        for (const CameraEntry& camera : reading->cameras)
            all += (all.empty() ? "" : " ") + camera.name + ":" + camera.password;
        return all;
    };
    SettingsChange joined;
    rig.settings.Share(store);
    EXPECT_THAT(rig.settings.Join(Joining::Take, &joined), testing::IsEmpty());
    EXPECT_EQ(joined.result, Unshared) << "there is nothing to take";
    EXPECT_THAT(rig.settings.Join(Joining::Merge, &joined), testing::IsEmpty());
    EXPECT_EQ(joined.result, Done) << "who comes first founds";
    other.settings.Share(store);
    EXPECT_THAT(other.settings.Join(Joining::Refuse, &joined),
                testing::ElementsAre("the camera \"gate\" has another password there",
                                     "the camera \"open\" is not here", "the camera \"porch\" is not there",
                                     "the camera \"yard\" is not here"));
    EXPECT_EQ(names(other), "gate:another porch:");
    EXPECT_THAT(other.settings.Join(Joining::Merge, &joined), testing::IsEmpty());
    EXPECT_EQ(joined.result, Done);
    EXPECT_EQ(names(other), "gate:geheim porch: open: yard:демо");
    rig.configuration->m_result = E_UNEXPECTED;
    rig.settings.Follow();
    rig.configuration->m_result = S_OK;
    rig.settings.Follow(); // with what it owes
    EXPECT_EQ(names(rig), "gate:geheim open: yard:демо porch:");

    // A save writes what it changes, and what somebody was faster with comes back.
    const auto written = store->Written();
    const Reply read = Get(kDocument);
    EXPECT_EQ(Write(Replaced(read.body, " stored=\"2\">••••••••<", ">neu<"), read.Header("ETag")).status,
              200U);
    EXPECT_EQ(store->Written(), written + 1);
    const auto all = [](const auto&) { return true; };
    const std::vector<CameraChange> changes{{.name = "yard", .password = "mine"},
                                            {.name = "tor", .password = "t"}};
    const SettingsChange partly = other.settings.ChangeCameras(changes, all);
    EXPECT_EQ(partly.result, Done);
    EXPECT_THAT(partly.conflicts, testing::ElementsAre("yard"));
    EXPECT_EQ(names(other), "gate:geheim porch: open: yard:neu tor:t");
    EXPECT_EQ(other.authenticator.CameraPassword("yard"), "neu");
    EXPECT_EQ(rig.settings.ChangeCameras(std::vector<CameraChange>{{.name = "tor", .password = "late"}}, all)
                  .result,
              Outdated)
        << "of nothing else";
    const Reply again = Get(kDocument);
    EXPECT_EQ(
        other.settings.ChangeCameras(std::vector<CameraChange>{{.name = "open", .remove = true}}, all).result,
        Done);
    const Reply both =
        Write(Replaced(Replaced(again.body, ">open<", ">shut<"), ">porch<", ">door<"), again.Header("ETag"));
    EXPECT_EQ(both.status, 200U);
    EXPECT_EQ(both.Header("X-Settings-Conflicts"), "open");

    // Out of reach nothing changes, and all heals by itself.
    store->SetAway(true);
    const Reply away = Get(kDocument);
    EXPECT_EQ(Write(Replaced(away.body, ">gate<", ">away<"), away.Header("ETag")).status, 503U);
    EXPECT_EQ(names(rig), "gate:geheim shut: yard:neu door: tor:t");
    store->SetAway(false);
    other.settings.Follow();
    EXPECT_EQ(names(other), "gate:geheim yard:neu tor:t door: shut:");

    // A save that the component does not take has heard of the others all the same.
    const std::vector<CameraChange> lamp{{.name = "lamp", .password = "l"}};
    EXPECT_EQ(other.settings.ChangeCameras(lamp, all).result, Done);
    rig.configuration->m_result = E_UNEXPECTED;
    EXPECT_EQ(
        rig.settings.ChangeCameras(std::vector<CameraChange>{{.name = "tor", .remove = true}}, all).result,
        Refused);
    rig.configuration->m_result = S_OK;
    rig.settings.Follow();
    EXPECT_EQ(names(rig), "gate:geheim shut: yard:neu door: lamp:l");
}

TEST(SettingsFile, IsKeptAsideWhenItIsNotServedWhole) {
    ASSERT_EQ(S_OK, platform::RegisterConfigDocumentClass());
    const TempFolder folder;
    const std::string file = kit::SettingsFile(folder.File("data"));
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    const std::u16string items = CameraItem(u"gate", u"a") + CameraItem(u"yard", u"b");
    const std::string whole = platform::ToUtf8(SettingsText(items));
    const auto served = SettingsDocument::Parse(SettingsText(CameraItem(u"gate", u"a"))).value();
    EXPECT_FALSE(KeepIfDamaged(file, served)) << "none yet";
    const std::string yard = "the camera \"yard\" is not served as it stands there";
    const std::tuple<std::string, const char*, std::vector<std::string>> rows[] = {
        {"<config>", ".damaged", {"nothing of it can be read: it is no well-formed document"}},
        {Replaced(whole, ">yard<", "><x/><"), ".damaged2", {"/config/cams/item[2]/Name: "}},
        {whole, ".damaged3", {yard}},
        {Replaced(whole, "10.0.0.1", "10.0.0.2"),
         ".damaged4",
         {yard, "the host address \"10.0.0.2:80\" is not served"}},
        {"<config>", ".damaged", {"nothing of it can be read: it is no well-formed document"}},
        {"<config><host type=\"BSTR\">10.0.0.1:80</host></config>", "", {}},
    };
    for (const auto& [content, copy, lost] : rows) {
        platform::ReplaceFile(file, content);
        const auto damaged = KeepIfDamaged(file, served);
        ASSERT_EQ(damaged.has_value(), !lost.empty()) << content;
        if (!damaged)
            continue;
        EXPECT_EQ(damaged->copy, file + copy);
        EXPECT_EQ(platform::ReadWholeFile(file + copy).value_or(""), content);
        for (const std::string& line : lost)
            EXPECT_THAT(damaged->lost, testing::Contains(testing::StartsWith(line)));
    }
}

class PreferencesTest : public testing::Test {
protected:
    PreferencesTest() {
        EXPECT_EQ(S_OK, platform::RegisterConfigDocumentClass());
        store.emplace(file);
        store->Follow({"gate", "Двор"});
    }
    PreferenceChange Write(const std::string& what, const std::string& by) {
        const PreferenceReading reading = store->Read();
        return store->Write(Replaced(reading.xml, what, by), reading.version);
    }

    const TempFolder folder;
    const std::string file = folder.File("Preferences.xml");
    std::optional<PreferenceStore> store;
};

TEST_F(PreferencesTest, HoldAtOnceAndOverARestart) {
    std::vector<std::string> heard;
    store->Listen([&](const Preferences& former, const Preferences& now) {
        EXPECT_EQ(*store->Now(), now);
        heard.push_back(std::to_string(former.recording.days) + ">" + std::to_string(now.recording.days));
    });
    const std::string read = store->Read().xml;
    const std::string mask = "00000000018" + std::string(CellMask::kDigits - 11, '0');
    std::string xml = Replaced(read, ">7</days>", ">14</days>");
    xml = Replaced(xml, "sealed=\"true\" displayname=\"//local/@mqttPassword\"/>",
                   "displayname=\"//local/@mqttPassword\">geheim</password>");
    xml = Replaced(xml, "@record\">off<", "@record\">motion<");
    xml = Replaced(xml, "@mask\"/>", "@mask\">" + mask + "</mask>");
    xml = Replaced(xml, "camera-lost motion-began", " settings-changed  camera-lost");
    const PreferenceChange change = store->Write(xml, store->Read().version);
    ASSERT_EQ(change.result, PreferenceChange::Result::Done)
        << (change.problems.empty() ? "" : change.problems[0].path + ": " + change.problems[0].text);
    EXPECT_EQ(store->Write(xml, "\"other\"").result, PreferenceChange::Result::Outdated);
    EXPECT_TRUE(store->Write(change.now.xml, change.now.version).same) << "the mark of a password keeps it";
    EXPECT_THAT(heard, testing::ElementsAre("7>14"));
    EXPECT_THAT(change.now.xml, testing::AllOf(HasSubstr(" stored=\"0\""), Not(HasSubstr("geheim"))));

    store.emplace(file);
    store->Follow({"gate", "new"});
    const auto now = store->Now();
    EXPECT_EQ(now->recording.days, 14);
    EXPECT_EQ(now->notices.mqtt.password, "geheim");
    EXPECT_EQ(now->notices.kinds,
              (WordSet{"camera-lost", "recording-paused", "recording-trouble", "settings-changed"}));
    EXPECT_EQ(now->Of("gate").record, RecordMode::OnMotion);
    EXPECT_TRUE(now->Of("gate").mask.Masks(39, 0) && now->Of("gate").mask.Masks(0, 1));
    EXPECT_EQ(now->Of("gate").mask.Text(), mask);
    EXPECT_EQ(now->Of("new"), CameraPreferences{});
    EXPECT_EQ(now->cameras.size(), 2U) << "a camera that is gone leaves";
}

TEST_F(PreferencesTest, OfTwoHostsAreOne) {
    using enum PreferenceChange::Result;
    const auto shared = std::make_shared<support::SharedStore>();
    PreferenceStore other(folder.File("Other.xml"));
    other.Follow({"Двор"});
    PreferenceChange joined;
    EXPECT_EQ(Write(">7</days>", ">14</days>").result, Done);
    store->Share(shared);
    EXPECT_THAT(store->Join(Joining::Merge, &joined), testing::IsEmpty());
    EXPECT_EQ(joined.result, Done);
    other.Share(shared);
    EXPECT_THAT(other.Join(Joining::Refuse, &joined), testing::IsEmpty()) << "it has none of its own";
    EXPECT_EQ(other.Now()->recording.days, 14);
    PreferenceStore third(folder.File("Third.xml"));
    EXPECT_EQ(third.Write(Replaced(third.Read().xml, ">7</days>", ">9</days>"), "").result, Done);
    third.Share(shared);
    EXPECT_THAT(third.Join(Joining::Refuse, &joined), testing::ElementsAre("the preferences differ"));

    // Of a camera that the other host does not know yet.
    EXPECT_EQ(Write("@record\">off<", "@record\">motion<").result, Done);
    other.FollowOthers();
    other.Follow({"gate", "Двор"});
    EXPECT_EQ(*other.Now(), *store->Now());
    EXPECT_EQ(other.Now()->Of("gate").record, RecordMode::OnMotion);

    EXPECT_EQ(Write(">14</days>", ">20</days>").result, Done);
    EXPECT_EQ(other.Write(Replaced(other.Read().xml, ">14</days>", ">30</days>"), "").result, Outdated);
    EXPECT_EQ(other.Now()->recording.days, 20);
    shared->SetAway(true);
    EXPECT_EQ(Write(">20</days>", ">30</days>").result, Unshared);
    EXPECT_EQ(store->Now()->recording.days, 20);
    shared->SetAway(false);

    // What is said of a camera goes with it.
    store->Follow({"Двор"});
    store->FollowOthers();
    EXPECT_EQ(shared->Get(PreferenceKey("gate")).entry, std::nullopt);
}

TEST_F(PreferencesTest, AreRefusedWithThePlace) {
    ASSERT_EQ(Write("@mqttServer\"/>", "@mqttServer\">broker</server>").result,
              PreferenceChange::Result::Done);
    ASSERT_EQ(Write("@mqttPassword\"/>", "@mqttPassword\">geheim</password>").result,
              PreferenceChange::Result::Done);
    const auto before = store->Now();
    const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
        {">7</days>", ">-1</days>", "outOfRange", "recording/days"},
        {">7</days>", ">3651</days>", "outOfRange", "recording/days"},
        {">7</days>", ">7.5</days>", "notANumber", "recording/days"},
        {">7</days>", "></days>", "notANumber", "recording/days"},
        {">2048<", ">-1<", "notANumber", "recording/freeMegabytes"},
        {">yes</phonesWatchAll>", ">maybe</phonesWatchAll>", "notAChoice", "viewing/phonesWatchAll"},
        {"camera-lost motion", "camera-lost rain motion", "notAChoice", "notices/kinds"},
        {"@webhookAddress\"/>", "@webhookAddress\">ftp://x/</address>", "notAWebAddress",
         "notices/webhook/address"},
        {"@webhookAddress\"/>", "@webhookAddress\">https://a:b@c/</address>", "notAWebAddress",
         "notices/webhook/address"},
        {"@webhookSecret\"/>", "@webhookSecret\">" + std::string(257, 's') + "</secret>", "textTooLong",
         "notices/webhook/secret"},
        {">broker<", ">broker/x<", "notAServer", "notices/mqtt/server"},
        {">broker<", ">elsewhere.example<", "enterAgain", "notices/mqtt/password"},
        {">1883<", ">8883<", "enterAgain", "notices/mqtt/password"},
        {">morrowstream<", ">a/#<", "notATopic", "notices/mqtt/topic"},
        {"type=\"mask\"", "type=\"BSTR\"", "wrongType", "cameras/item[1]/mask"},
        {"@mask\"/>", "@mask\">00</mask>", "notAllowed", "cameras/item[1]/mask"},
        {"@record\">off<", "@record\">never<", "notAChoice", "cameras/item[1]/record"},
        {"@sensitivity\">5<", "@sensitivity\">11<", "outOfRange", "cameras/item[1]/sensitivity"},
        {">gate<", ">tor<", "unknownElement", "cameras/item[1]/name"},
        {">gate<", ">Двор<", "mustBeUnique", "cameras/item[2]/name"},
        {"</recording>", "<x/></recording>", "unknownElement", "recording/x"},
        {"</recording>", "<days type=\"number\">1</days></recording>", "standsTwice", "recording/days[2]"},
    };
    for (const auto& [what, by, key, place] : rows) {
        const PreferenceChange change = Write(what, by);
        EXPECT_EQ(change.result, PreferenceChange::Result::Unsound) << by;
        ASSERT_FALSE(change.problems.empty()) << by;
        EXPECT_EQ(change.problems[0].key + " /preferences/" + place, key + " " + change.problems[0].path)
            << by;
    }
    EXPECT_EQ(*store->Now(), *before);
    const PreferenceReading reading = store->Read();
    const std::string entered =
        Replaced(Replaced(reading.xml, "stored=\"0\"", "stored=\"\""), "••••••••", "geheim");
    EXPECT_EQ(store->Write(Replaced(entered, ">1883<", ">8883<"), "").result, PreferenceChange::Result::Done)
        << "the same password, entered again";
    EXPECT_EQ(Write("</preferences>", "").result, PreferenceChange::Result::NoDocument);
    EXPECT_EQ(store->Write("<config/>", "").result, PreferenceChange::Result::NoDocument);
    EXPECT_EQ(store->Write("<preferences/>", "").result, PreferenceChange::Result::Done)
        << "a part may be missing";
}

TEST_F(PreferencesTest, OfADamagedFileAreThoseThatCanBeRead) {
    ASSERT_EQ(Write(">7</days>", ">30</days>").result, PreferenceChange::Result::Done);
    const std::string whole = platform::ReadWholeFile(file).value_or("");
    for (const auto& [content, days, copy] :
         {std::tuple{Replaced(whole, "@sensitivity\">5<", "@sensitivity\">55<"), 30, ".damaged"},
          {whole.substr(0, whole.size() / 2), 7, ".damaged2"}}) {
        ASSERT_EQ(S_OK, platform::ReplaceFile(file, content));
        store.emplace(file);
        EXPECT_EQ(store->Now()->recording.days, days);
        EXPECT_EQ(store->Now()->Of("gate"), CameraPreferences{});
        EXPECT_EQ(platform::ReadWholeFile(file + copy).value_or(""), content);
    }
    // A disk that takes nothing.
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    ASSERT_EQ(S_OK, platform::ReplaceFile(file + "/in", "x"));
    EXPECT_EQ(Write(">7</days>", ">8</days>").result, PreferenceChange::Result::NotWritten);
    EXPECT_EQ(store->Now()->recording.days, 8);
    EXPECT_FALSE(store->WriteWhatIsLeft());
    std::filesystem::remove_all(file);
    EXPECT_TRUE(store->WriteWhatIsLeft() && store->IsWritten());
    store.emplace(file);
    EXPECT_EQ(store->Now()->recording.days, 8);
}

} // namespace
} // namespace host::test
