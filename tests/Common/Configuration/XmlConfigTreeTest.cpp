#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"

#include <map>
#include <thread>

#include <gtest/gtest.h>

#include "Common/Configuration/XmlConfigSDK/ThreadArg.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "platform/threads.h"
#include "support/ConfigText.h"
#include "support/Texts.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using support::ElementFrom;
using support::Find;
using support::Lines;
using support::TextOf;
using support::XmlOf;

// An object with one text, which counts how often it was read.
struct Thing : IUnknown {
    static ComPtr<Thing> Create();
    HRESULT operator>>(IConfigElement* element) {
        return XmlConfig::SaveText(m_text, XmlConfig::SelectOrCreate(element, u"T", true).Get());
    }
    HRESULT operator<<(IConfigElement* element) {
        ++m_reads;
        return XmlConfig::LoadText(m_text, XmlConfig::SelectOrCreate(element, u"T", true).Get());
    }
    Bstr m_text{u"?"};
    int m_reads = 0;

protected:
    ~Thing() = default;
    HRESULT Query(const GUID& id, void** object) { return platform::QueryTable<IUnknown>(this, id, object); }
};
// As in a file of its own: seen through it, gcc warns of what cannot be.
[[gnu::noipa]] ComPtr<Thing> Thing::Create() {
    return platform::ComObject<Thing>::Create();
}
using Things = std::map<std::u16string, ComPtr<Thing>>;

struct Events final : CXmlConfigTree::ITagEvent {
    HRESULT OnEvent(std::uint32_t code, void*, IConfigElement* element) override {
        heard.push_back(std::to_string(code) +
                        (element ? XmlOf(ComPtr<IConfigElement>(element)).substr(0, 5) : ""));
        return E_FAIL;
    }
    std::uint32_t GetMask(std::uint32_t, IConfigElement*) override { return mask; }
    std::uint32_t mask = 15;
    std::vector<std::string> heard;
};

std::string Show(const Things& things) {
    std::string all;
    for (const auto& [key, thing] : things)
        all += platform::ToUtf8(key) + "=" + TextOf(thing->m_text) + " ";
    return all;
}

TEST(XmlConfigTree, OneChainStoresAndLoads) {
    Bstr host(u"h");
    Bstr label(u"//l");
    Bstr off(u"off");
    const auto run = [&](IConfigElement* element, bool store, bool append = true) {
        const CXmlConfigTree tree(element, store, append);
        CTag disabled(u"off", off);
        disabled.bEnable = false;
        tree.Bind({u"host", host}).Attr({u"label", &label}).End();
        tree.Bind(disabled).Attr({u"label", &label}).End();
        tree.Descend({u"x", false}).Bind({u"below", off}).End().End();
        const CXmlConfigTree back = tree.Descend({u"a/b"}).Descend({u"c"}).Attr({u"k", &label}).End().End();
        EXPECT_EQ(element, back.Element());
        EXPECT_EQ(element, tree.Descend({u"a"}).Root().Element());
    };
    const auto root = ElementFrom("<r/>");
    run(root.Get(), true);
    EXPECT_EQ("<r><host type=\"BSTR\" label=\"//l\">h</host><a><b><c k=\"//l\"/></b></a><a/></r>",
              XmlOf(root));
    host = nullptr;
    label = Bstr(u"other");
    run(root.Get(), false);
    EXPECT_EQ("h", TextOf(host));
    EXPECT_EQ("//l", TextOf(label));
    run(ElementFrom("<r><host type='int'>1</host></r>").Get(), false);
    EXPECT_EQ("h", TextOf(host));
    EXPECT_TRUE(label.IsNull()) << "an absent attribute";
    run(nullptr, true);
    run(nullptr, false);

    // Without append an element is used again, but for one that asks for more.
    const auto reused = ElementFrom("<r><host/><n lookup='x'/></r>");
    run(reused.Get(), true, false);
    const CXmlConfigTree list = CXmlConfigTree(reused.Get(), true, false).Descend({u"n"});
    list.Descend({u"i"}).End();
    list.Descend({u"i"}).End();
    EXPECT_EQ(
        "<r><host type=\"BSTR\" label=\"\">h</host><n lookup=\"x\"><i/><i/></n><a><b><c k=\"\"/></b></a></r>",
        XmlOf(reused));
    EXPECT_EQ(E_ELEMENT_NOT_FOUND, XmlConfig::LoadText(host, reused.Get()));
    EXPECT_ANY_THROW(XmlConfig::SaveText(host, nullptr));
}

TEST(XmlConfigTree, LoadsCollectionsByComparison) {
    const std::string keyed = "<r><c KeyXPath='T/text()'>%</c></r>";
    const auto item = [](const std::string& text) { return "<item><T type='BSTR'>" + text + "</T></item>"; };
    const auto plain = [&](const std::string& key, const std::string& text) {
        return "<item><T type='BSTR'>" + text + "</T><key type='BSTR' hidden='true'>" + key + "</key></item>";
    };
    Things things;
    Events events;
    const auto load = [&](std::string items, bool withKeys, std::uint32_t policy = 0) {
        std::string xml = withKeys ? keyed : "<r><c>%</c></r>";
        xml.replace(xml.find('%'), 1, items);
        CTag tag(u"c", things);
        tag.pEvents = &events;
        tag.nPolicy = policy;
        events.heard.clear();
        CXmlConfigTree(ElementFrom(xml).Get(), false).Bind(tag).End();
        return Show(things);
    };
    EXPECT_EQ("O'B&=O'B& a=a b=b ", load(item("b") + item("a") + item("O'B&amp;"), true));
    EXPECT_EQ(events.heard, (Lines{"1<c Ke", "4<item", "4<item", "4<item"}));
    const Thing* const kept = things.at(u"O'B&").Get();
    // Gone first, then new, whatever their order; what stays is the same object.
    EXPECT_EQ("O'B&=O'B& c=c ", load(item("c") + item("O'B&amp;"), true));
    EXPECT_EQ(events.heard, (Lines{"1<c Ke", "8<item", "8<item", "4<item"}));
    EXPECT_EQ(kept, things.at(u"O'B&").Get());
    // The second item of a key changes nothing; a load ends at an item that cannot be read.
    EXPECT_EQ("c=c d=d ", load(item("c") + item("c") + item("d") + "<item/>" + item("e"), true));
    // A key has to be its item's own.
    EXPECT_EQ("c=c d=d ", load(item("c") + item("d") + "<item/>", true));
    const auto upward = ElementFrom("<r><c KeyXPath='../item/T'>" + item("x") + "</c></r>");
    CXmlConfigTree(upward.Get(), false).Bind({u"c", things}).End();
    EXPECT_EQ("c=c d=d ", Show(things));
    events.heard.clear();
    CTag absent(u"none", things);
    absent.pEvents = &events;
    CXmlConfigTree(upward.Get(), false).Bind(absent).End();
    EXPECT_EQ(events.heard, (Lines{"2"}));

    // Without a key path items carry their key.
    const auto stored = ElementFrom("<r/>");
    CXmlConfigTree(stored.Get(), true).Bind({u"c", things}).End();
    EXPECT_EQ("<r><c><item><T type=\"BSTR\">c</T><key type=\"BSTR\" hidden=\"true\">c</key></item>"
              "<item><T type=\"BSTR\">d</T><key type=\"BSTR\" hidden=\"true\">d</key></item></c></r>",
              XmlOf(stored));
    events.mask = 12;
    const int reads = things.at(u"c")->m_reads;
    EXPECT_EQ("c=c d=d ", load(plain("d", "d") + plain("c", "c"), false));
    EXPECT_EQ(events.heard, Lines());
    EXPECT_EQ(reads, things.at(u"c")->m_reads);
    EXPECT_EQ("c=new d=d ", load(plain("c", "new") + plain("d", "d"), false));
    EXPECT_EQ(events.heard, (Lines{"8<item", "4<item"}));
    // In order: neither added nor removed.
    EXPECT_EQ("c=1 d=2 ", load(plain("c", "1") + plain("d", "2") + plain("e", "3"), false, 1));
    EXPECT_EQ("c=3 d=2 ", load(plain("c", "3"), false, 1));
    EXPECT_EQ("", load("", true));
}

TEST(XmlConfigTree, ComparesWhatTheFirstOneHas) {
    const std::pair<const char*, const char*> same[] = {
        {"<a b='1'>x<c/></a>", "<a b='1' d='2'>x<c e='1'/></a>"}, {"<a/>", "<a></a>"}};
    for (const auto& [a, b] : same)
        EXPECT_EQ(S_OK, XmlConfig::Compare(ElementFrom(a).Get(), ElementFrom(b).Get(), true)) << a;
    const std::pair<const char*, const char*> different[] = {
        {"<a/>", "<b/>"}, {"<a>x</a>", "<a>y</a>"}, {"<a b='1'/>", "<a/>"}, {"<a b='1'/>", "<a b='2'/>"}};
    for (const auto& [a, b] : different)
        EXPECT_EQ(S_FALSE, XmlConfig::Compare(ElementFrom(a).Get(), ElementFrom(b).Get(), false)) << a;
    const auto more = ElementFrom("<a><c/><d/></a>");
    const auto less = ElementFrom("<a><c/></a>");
    EXPECT_EQ(S_OK, XmlConfig::Compare(more.Get(), less.Get(), false));
    EXPECT_EQ(S_FALSE, XmlConfig::Compare(more.Get(), less.Get(), true));
    EXPECT_EQ(S_FALSE, XmlConfig::Compare(less.Get(), more.Get(), true));
}

TEST(ThreadArg, IsEachThreadsOwn) {
    const std::uint32_t here = platform::CurrentThreadId();
    {
        const CThreadArg one("name", 1);
        const CThreadArg two("name", 2);
        EXPECT_EQ(2U, CThreadArg::Lookup("name", here));
        std::thread([&] {
            const CThreadArg three("name", 3);
            EXPECT_EQ(3U, CThreadArg::Lookup("name", platform::CurrentThreadId()));
            EXPECT_EQ(2U, CThreadArg::Lookup("name", here));
        }).join();
    }
    EXPECT_EQ(0U, CThreadArg::Lookup("name", here));
}

} // namespace
