// What viewing needs of the host: the process state tree, the sources, the objects that serve them to the
// component, and the page that shows one source to a person.

#include <gtest/gtest.h>

#include "host/rig.h"
#include "host/sources/source_table.h"
#include "host/sources/sources.h"
#include "image/FrameBlock.h"
#include "kit/component/component.h"
#include "kit/statetree/process_state_tree.h"
#include "phone/packet.h"
#include "platform/files.h"
#include "platform/threads.h"
#include "support/Fake.h"
#include "support/Jpeg.h"

namespace host {
namespace {

using NSProcessStateTree::CThreadArgumentValue;
using platform::Bstr;
using platform::ComObject;
using platform::ComPtr;
using support::Eventually;
using support::MakeBlock;
using test::LongLimits;
using test::Page;
using test::Rig;
using test::ShortLimits;

// Does something when it is let go of.
class Value : public support::Fake<CThreadArgumentValue> {
public:
    explicit Value(std::function<void()> gone = [] {}) : m_gone(std::move(gone)) {}

protected:
    ~Value() { m_gone(); }

private:
    const std::function<void()> m_gone;
};

TEST(ProcessStateTree, KeepsNodesByPathUntilTheyAreRemoved) {
    const auto nodes = kit::MakeStateNodes();
    ComPtr<IProcessStateNode> root;
    ASSERT_EQ(ComObject<kit::ProcessStateTree>::Create(nodes)->GetRootNode(root.Receive()), S_OK);
    const auto find = [&](const char16_t* path, int create) {
        ComPtr<IProcessStateNode> node;
        const HRESULT hr = root->GetNode(path, create, node.Receive());
        EXPECT_EQ(SUCCEEDED(hr), static_cast<bool>(node));
        return std::pair(hr, node);
    };
    for (const char16_t* path : {u"", u"/a", u"a//b"})
        EXPECT_EQ(find(path, 1).first, E_INVALIDARG);
    EXPECT_EQ(find(u"a/b", 0).first, E_ELEMENT_NOT_FOUND);
    const auto leaf = find(u"a/b/1a2c", 1).second;
    EXPECT_EQ(find(u"A/b", 0).first, E_ELEMENT_NOT_FOUND) << "names are exact";
    ComPtr<IUnknown> value;
    EXPECT_EQ(leaf->GetValue(value.Receive()), E_ELEMENT_NOT_FOUND);
    int gone = 0;
    // A value that uses the tree when it goes: it would wait for ever if the tree's lock were held then.
    const auto set = [&](IProcessStateNode& node) {
        const auto made = ComObject<Value>::Create([&] { gone += find(u"a", 1).first == S_OK ? 1 : 0; });
        EXPECT_EQ(node.SetValue(made.Get()), S_OK);
    };
    set(*leaf);
    set(*leaf);
    EXPECT_EQ(gone, 1);
    EXPECT_EQ(find(u"a/b/1a2c", 0).second->GetValue(value.Receive()), S_OK);
    value = nullptr;
    EXPECT_EQ(leaf->RemoveNode(u"."), S_OK);
    EXPECT_EQ(leaf->RemoveNode(u"."), E_ELEMENT_NOT_FOUND);
    EXPECT_EQ(find(u"a/b/1a2c", 0).first, E_ELEMENT_NOT_FOUND);
    EXPECT_EQ(leaf->SetValue(nullptr), S_OK);
    EXPECT_EQ(gone, 2);
    set(*find(u"a/c/d", 1).second);
    EXPECT_EQ(root->RemoveNode(u"a"), S_OK) << "with all below it";
    EXPECT_EQ(gone, 3);
}

TEST(Sources, AreFoundByKeyAndLeadNowhereElse) {
    Rig rig(LongLimits());
    SourceTable& table = *rig.sources;
    const auto files = rig.folder.Path() / "files";
    for (const char* name : {"pictures", "empty", ".hidden"})
        std::filesystem::create_directories(files / name);
    std::filesystem::create_directories(rig.folder.Path() / "outside");
    std::filesystem::create_symlink(rig.folder.Path() / "outside", files / "link");
    for (const auto& folder : {files / "pictures", files / ".hidden", rig.folder.Path() / "outside"})
        platform::ReplaceFile(folder / "a.jpg", support::MakeJpeg(64, 48));
    platform::ReplaceFile(files / "pictures/b.JPEG", "no picture");
    for (const char* key : {"", "file", "file/", "file/none", "file/empty", "file/.hidden", "file/..",
                            "file/../outside", "file/pictures/a.jpg", "file/link", "file//", "Clock", "yard"})
        EXPECT_FALSE(table.Open(key)) << key;
    EXPECT_EQ(table.OwnKeys(), (std::vector<std::string>{"clock", "file/empty", "file/pictures"}));

    const kit::SourcePtr pictures = table.Open("file/pictures");
    ASSERT_TRUE(pictures);
    EXPECT_EQ(table.Open("file/pictures"), pictures) << "shared by all who watch it";
    EXPECT_EQ(pictures->Now()->Jpeg(), support::MakeJpeg(64, 48)) << "the file as it is";
    EXPECT_EQ(pictures->Now()->Layout(), (kit::PlaneLayout{64, 48, false}));
    EXPECT_TRUE(Eventually([&] { return pictures->Now()->Sequence() == 0; }))
        << "the second one is a placeholder";
    std::filesystem::remove_all(files / "pictures");
    EXPECT_TRUE(Eventually([&] { return !pictures->Now(); }));

    EXPECT_NE(dynamic_cast<ClockSource*>(table.Open("clock").get()), nullptr);
    const auto cam = rig.AddCamera("clock");
    const kit::SourcePtr camera = table.Open("clock");
    EXPECT_EQ(camera->Now()->Sequence(), 0U) << "a camera of that name comes first, and has no picture yet";
    cam->Show(MakeBlock(32, 24));
    EXPECT_EQ(camera->Now()->Layout().width, 32);
    rig.feeds->OnCamRemoved(Bstr(u"clock").Get());
    EXPECT_FALSE(camera->Now());
}

TEST(ContentServer, ServesPicturesToThoseWhoMayWatch) {
    Rig rig(LongLimits());
    std::filesystem::create_directories(rig.folder.Path() / "files/f");
    platform::ReplaceFile(rig.folder.File("files/f/a.jpg"), support::MakeJpeg(64, 48));
    const auto cam = rig.AddCamera("yard");
    cam->Show(MakeBlock(32, 24));
    kit::Viewing viewing(PhoneContentOf(rig.sources,
                                        [&](auto token) {
                                            const auto viewer = rig.authenticator.OwnerOf(token);
                                            return viewer ? std::optional(rig.authenticator.RightsOf(*viewer))
                                                          : std::nullopt;
                                        }),
                         rig.packers);
    ComPtr<IUnknown> published;
    ASSERT_EQ(kit::FindStateNode(kWebServerNode, false)->GetValue(published.Receive()), S_OK);
    const auto server = published.Query<IWebServer>();
    ASSERT_TRUE(server);
    std::string token = rig.authenticator.TokenOf({"phone", false});
    const auto open = [&](const char16_t* key, std::string_view block) {
        ComPtr<IUnknown> object;
        const HRESULT hr =
            server->OpenContent(Bstr(key).Get(), static_cast<std::int32_t>(block.size()),
                                reinterpret_cast<const std::uint8_t*>(block.data()), object.Receive());
        return std::pair(hr, object.Query<IConfiguration>());
    };
    EXPECT_EQ(open(u"yard", token + "x").first, E_ACCESSDENIED);
    EXPECT_EQ(open(u"file/../f", token).first, E_ELEMENT_NOT_FOUND);
    const auto yard = open(u"yard", token).second;
    const auto file = open(u"file/f", token).second;
    ASSERT_TRUE(yard && file);
    EXPECT_EQ(viewing.Viewers(), 2U);

    const auto get = [](const ComPtr<IConfiguration>& content, const char16_t* path) {
        Bstr body;
        BSTR request = nullptr;
        const HRESULT hr = content->GetContent(Bstr(path).Get(), body.Receive(), &request);
        EXPECT_EQ(FAILED(hr), body.IsNull());
        return std::pair(hr, std::string(body.Bytes()));
    };
    const auto refused = std::pair(E_ACCESSDENIED, std::string());
    EXPECT_EQ(get(yard, kContentOriginal), refused) << "nobody has published a request";
    const auto node = kit::FindStateNode(
        NSProcessStateTree::ThreadArgumentPath(kCurrentRequestArgument, platform::CurrentThreadId()).c_str(),
        true);
    WebServer::SCurrentRequest request{static_cast<std::uint32_t>(token.size()),
                                       reinterpret_cast<const std::uint8_t*>(token.data())};
    const auto argument = ComObject<Value>::Create();
    argument->m_pValue = &request;
    argument->m_szType = "another type";
    ASSERT_EQ(node->SetValue(argument.Get()), S_OK);
    EXPECT_EQ(get(yard, kContentOriginal), refused);
    argument->m_szType = typeid(WebServer::SCurrentRequest).name();

    EXPECT_EQ(get(yard, kContentOriginal), std::pair(S_OK, MakeBlock(32, 24)));
    EXPECT_EQ(support::DecodeJpeg(get(yard, kContentJpeg).second).width, 32);
    const std::string header = get(file, kContentOriginal).second;
    EXPECT_EQ(header.size(), sizeof(BITMAPINFOHEADER));
    EXPECT_EQ(header.substr(4, 8), std::string("\x40\0\0\0\x30\0\0\0", 8));
    EXPECT_EQ(header.substr(16, 4), "MJPG") << "a form that is fetched as JPEG";
    EXPECT_EQ(get(file, kContentJpeg).second, support::MakeJpeg(64, 48));
    EXPECT_EQ(get(yard, u"video?other").first, E_INVALIDARG);
    token[3] ^= 1;
    EXPECT_EQ(get(yard, kContentOriginal), refused) << "no user of this host";
    token[3] ^= 1;
    rig.authenticator.SetPhonesWatchAll(false);
    EXPECT_EQ(get(yard, kContentOriginal).first, E_ELEMENT_NOT_FOUND) << "from now on";
    EXPECT_EQ(open(u"yard", token).first, E_ELEMENT_NOT_FOUND);
    EXPECT_EQ(open(u"clock", token).first, S_OK);
    rig.authenticator.SetPhonesWatchAll(true);
    EXPECT_EQ(get(yard, kContentOriginal).first, S_OK);
    rig.feeds->OnCamRemoved(Bstr(u"yard").Get());
    EXPECT_EQ(get(yard, kContentOriginal).first, E_ELEMENT_NOT_FOUND);
    viewing.End();
    EXPECT_EQ(get(file, kContentOriginal), refused) << "the host is stopping";
    EXPECT_EQ(open(u"clock", token).first, E_ACCESSDENIED);
    (void)node->RemoveNode(u".");
}

// A picture of the stream, whose numbers must go on.
phone::Packet Unpack(const std::optional<std::string>& message, std::uint32_t number) {
    if (!message)
        return {};
    std::string bytes = *message;
    EXPECT_EQ(static_cast<unsigned char>(bytes[16]), number);
    bytes.replace(16, 4, std::string("\1\0\0\0", 4)); // each one is the first for this reader
    phone::PacketReader reader;
    reader.Feed(bytes);
    return reader.Next().value_or(phone::Packet{});
}

// What a person sees is followed in a browser.
TEST(ViewPage, GetsOnePictureAtATimeAsItAsks) {
    Limits limits = ShortLimits();
    limits.ackDeadline = std::chrono::seconds(2); // far beyond the two heartbeats in which nothing may come
    Rig rig(limits);
    const auto cam = rig.AddCamera("front door");
    cam->Show(MakeBlock(64, 48));
    EXPECT_EQ(rig.Get("/view/front%20door").status, 200U);
    for (const char* target : {"/view/", "/view/none", "/view/%zz"})
        EXPECT_EQ(rig.Get(target).status, 404U) << target;
    EXPECT_EQ(Page(rig.Port(), "Origin: http://evil.example\r\n", "/view/clock").reply.status, 403U);
    for (const char* message : {"set width=x", "ack", "ack x", "hello"}) {
        Page page(rig.Port(), "", "/view/clock");
        page.Say(message);
        EXPECT_TRUE(page.IsClosed()) << message;
    }

    Page page(rig.Port(), "Origin: http://localhost\r\n", "/view/front%20door");
    ASSERT_TRUE(page.Say("set width=32&height=24&fps=25"));
    EXPECT_EQ(Unpack(page.PictureWithin(100), 1).width, 32U);
    EXPECT_EQ(page.PictureWithin(2), std::nullopt) << "the first one is not acknowledged";
    ASSERT_TRUE(page.Say("ack 1"));
    EXPECT_EQ(Unpack(page.PictureWithin(100), 2).width, 32U);
    ASSERT_TRUE(page.Say("set width=48&height=64&rotate&flimit=4") && page.Say("ack 2"));
    const phone::Packet turned = Unpack(page.PictureWithin(100), 3);
    EXPECT_TRUE(turned.height == 64 && !turned.last);
    EXPECT_TRUE(Eventually([&] { return rig.packers->open == 1; })) << "the first packer is gone";
    ASSERT_TRUE(page.Say("ack 3"));
    EXPECT_TRUE(Unpack(page.PictureWithin(100), 4).last);
    ASSERT_TRUE(page.Say("ack 4"));
    EXPECT_TRUE(page.IsClosed()) << "behind the last picture";

    // Old pictures are not shown, which the state says; and a page that does not draw is dropped.
    Page stale(rig.Port(), "", "/view/front%20door");
    ASSERT_TRUE(stale.Say("set fps=25") && stale.PictureWithin(100));
    EXPECT_TRUE(Eventually([&, number = 0]() mutable {
        (void)stale.Say("ack " + std::to_string(number++));
        return stale.Read().data == R"({"type":"view","picture":false})";
    }));
    Page silent(rig.Port(), "", "/view/clock");
    ASSERT_TRUE(silent.Say("set fps=25") && silent.PictureWithin(100));
    EXPECT_TRUE(silent.IsClosed());
    EXPECT_LT(rig.Stop(), std::chrono::seconds(10));
    EXPECT_EQ(rig.packers->open, 0U);
}

} // namespace
} // namespace host
