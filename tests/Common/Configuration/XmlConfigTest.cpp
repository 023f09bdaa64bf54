// Configuration documents, their binding to objects, and the arguments that reach the binding.

#include <atomic>
#include <map>
#include <thread>

#include <gtest/gtest.h>

#include "Common/Configuration/XmlConfigSDK/ThreadArg.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"
#include "platform/threads.h"
#include "support/ConfigText.h"
#include "support/RecordingLog.h"
#include "support/temp_folder.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using support::ElementFrom;
using support::Lines;
using support::RecordingLog;
using support::TextOf;
using support::WideOf;
using support::XmlOf;
using XmlConfig::CXmlConfig;

TEST(XmlConfig, LoadsTheFileOrElseTheDefault) {
    const TempFolder folder;
    const auto file = [&](const char* name, const char* content) {
        return WideOf(folder.Write(name, content));
    };
    const Bstr missing = WideOf(folder.File("missing"));
    const Bstr standard(u"<default/>");
    const struct {
        Bstr path, text;
        HRESULT status;
        const char* xml;
    } rows[] = {
        {file("good", "<good/>"), standard, S_OK, "<good/>"},
        {file("empty", ""), standard, S_OK, "<default/>"},
        {file("damaged", "<good"), standard, S_OK, "<default/>"},
        {file("damaged", "<good"), nullptr, platform::kStatusNotADocument, "(null)"},
        {missing, nullptr, E_INVALIDARG, "(null)"},
        {nullptr, Bstr::FromBytes("<a>\xD0\x94</a>"), S_OK, "<a>Д</a>"},
        {nullptr, Bstr(u"<a"), platform::kStatusNotADocument, "(null)"},
    };
    for (const auto& row : rows) {
        CXmlConfig config;
        EXPECT_EQ(row.status, config.Load(row.path, row.text)) << TextOf(row.path);
        EXPECT_EQ(row.xml, TextOf(config.GetXml()));
        EXPECT_EQ(row.path, config.Path());
        EXPECT_EQ(config.Root(), CXmlConfig(config).Root());
    }
    platform::RevokeClassFactory(kConfigDocumentClass);
    EXPECT_EQ(E_UNEXPECTED, CXmlConfig(nullptr, standard).Load(nullptr, standard));
    EXPECT_EQ(S_OK, platform::RegisterConfigDocumentClass());
}

TEST(XmlConfig, ReadsWritesAndMakesByPath) {
    RecordingLog& log = RecordingLog::Fresh();
    const auto root = ElementFrom("<r k='v'><a><b/></a></r>");
    Bstr text(u"kept");
    EXPECT_EQ(E_ELEMENT_NOT_FOUND, XmlConfig::GetAttributeValue(root.Get(), u"none", text));
    EXPECT_EQ(E_POINTER, XmlConfig::GetAttributeValue(nullptr, u"k", text));
    EXPECT_EQ("kept", TextOf(text));
    EXPECT_EQ(S_OK, XmlConfig::GetAttributeValue(root.Get(), u"k", text));
    EXPECT_EQ("v", TextOf(text));
    EXPECT_EQ(E_POINTER, XmlConfig::SetAttributeValue(nullptr, u"k", text));
    EXPECT_EQ(S_OK, XmlConfig::GetValueOfPath(nullptr, u"`x", text));
    EXPECT_EQ("x", TextOf(text));
    EXPECT_EQ("&lt;&gt;&amp;&apos;&quot;Ж", TextOf(XmlConfig::EscapeXml(Bstr(u"<>&'\"Ж"))));
    EXPECT_TRUE(XmlConfig::EscapeXml(nullptr).IsNull());
    EXPECT_FALSE(XmlConfig::SelectOrCreate(root.Get(), u"@k", true)); // a node that is no element
    EXPECT_FALSE(XmlConfig::SelectOrCreate(root.Get(), u"c", false));
    EXPECT_TRUE(XmlConfig::SelectOrCreate(root.Get(), u"a/b", true));
    for (const char16_t* path : {u"a/b", u"a", u"c/d"})
        EXPECT_TRUE(XmlConfig::CreatePath(root.Get(), path));
    EXPECT_EQ("<r k=\"v\"><a><b/><b/></a><a/><c><d/></c></r>", XmlOf(root));
    EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: pConfigElement\n"}));
    EXPECT_EQ("XmlConfig::GetAttributeValue", log.Lines()[0].function);
}

TEST(XmlConfig, MergesByModes) {
    const char* const left = "<r a='1' type='BSTR'>x<i>1</i><i k='l'>2</i><only/></r>";
    const char* const right = "<r b='2' a='3'>y<i>1</i><i>3</i><i/><new/></r>";
    const std::string joined = "<r a=\"3\" type=\"BSTR\" b=\"2\"";
    const char* const keyedLeft = "<c KeyXPath='N'><i><N>a'b</N><v>1</v></i><i><N>c</N></i></c>";
    const char* const keyedRight = "<c KeyXPath='N'><i><N>z</N></i><i><N>a'b</N><v>2</v></i></c>";
    const struct {
        const char *left, *right;
        std::uint32_t mode;
        HRESULT status;
        std::string result;
    } rows[] = {
        {left, right, 0, S_OK, joined + ">y<i>1</i><i k=\"l\">2</i><only/><i>1</i><i>3</i><i/><new/></r>"},
        {left, right, 1, S_OK, joined + ">y<i>1</i><i k=\"l\">3</i><only/><i/><new/></r>"},
        {left, right, 9, S_OK, joined + ">y<i>1</i><i k=\"l\">3</i><only/><i/><new/></r>"},
        {left, right, 2, S_OK, joined + ">y<i>1</i><i k=\"l\">3</i><only/></r>"},
        {left, right, 3, S_OK,
         joined + " conflict=\"true\">x<i>1</i><i k=\"l\" conflict=\"true\">2</i><only/><i/><new/></r>"},
        {left, right, 4, S_OK, joined + ">xy<i>1</i><i k=\"l\">23</i><only/><i/><new/></r>"},
        {"<r readonly='true'>x</r>", "<r>y</r>", 0, S_FALSE, "<r readonly=\"true\">x</r>"},
        {"<r type='BSTR'/>", "<r type='int' k='1'>y</r>", 0, E_INVALIDARG, "<r type=\"BSTR\"/>"},
        {keyedLeft, keyedRight, 2, S_OK, "<c KeyXPath=\"N\"><i><N>a'b</N><v>2</v></i><i><N>c</N></i></c>"},
        {keyedLeft, "<c/>", 1, E_NOTIMPL, "<c KeyXPath=\"N\"><i><N>a'b</N><v>1</v></i><i><N>c</N></i></c>"},
        {"<c KeyXPath='`x'><i/></c>", "<c KeyXPath='N'><i><N>x</N></i></c>", 1, S_OK,
         "<c KeyXPath=\"N\"><i/><i><N>x</N></i></c>"},
    };
    RecordingLog& log = RecordingLog::Fresh();
    for (const auto& row : rows) {
        const auto a = ElementFrom(row.left);
        const auto b = ElementFrom(row.right);
        const std::string before = XmlOf(b);
        EXPECT_EQ(row.status, CXmlConfig::Merge(a.Get(), b.Get(), row.mode)) << row.left << row.mode;
        EXPECT_EQ(row.result, XmlOf(a)) << row.mode;
        EXPECT_EQ(before, XmlOf(b));
    }
    EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: szLeftType==szRightType || !szLeftType || !szRightType\n",
                                  "TRASSDO: szKeyXPathRight\n"}));
    EXPECT_EQ("XmlConfig::CXmlConfig::Merge", log.Lines()[0].function);
}

// An object with one text, which counts how often it was read.
struct Thing : IUnknown {
    static ComPtr<Thing> Create();
    void SetKey(std::u16string_view key) { m_key = key; }
    HRESULT operator>>(IConfigElement* element) {
        return XmlConfig::SaveText(m_text, XmlConfig::SelectOrCreate(element, u"T", true).Get());
    }
    HRESULT operator<<(IConfigElement* element) {
        ++m_reads;
        return XmlConfig::LoadText(m_text, XmlConfig::SelectOrCreate(element, u"T", true).Get());
    }
    Bstr m_text{u"?"};
    std::u16string m_key; // that it was made for
    int m_reads = 0;

protected:
    ~Thing() = default;
    HRESULT Query(const GUID& id, void** object) { return platform::QueryTable<IUnknown>(this, id, object); }
};
ComPtr<Thing> Thing::Create() {
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
    Lines heard;
};

TEST(XmlConfigTree, OneChainStoresAndLoads) {
    Bstr host(u"h"), label(u"//l"), off(u"off");
    const auto run = [&](IConfigElement* element, bool store) {
        const CXmlConfigTree tree(element, store);
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
    EXPECT_EQ("h//l", TextOf(host) + TextOf(label));
    run(ElementFrom("<r><host type='int'>1</host></r>").Get(), false);
    EXPECT_EQ("h(null)", TextOf(host) + TextOf(label)) << "another type, an absent attribute";
    for (const bool store : {true, false})
        run(nullptr, store);

    // Without append an element is used again, but for one that asks for more.
    for (const std::string attribute : {"", " lookup=\"x\"", " appendtags=\"\"", " forced=\"\""}) {
        const auto reused = ElementFrom("<r" + attribute + "><n/></r>");
        CTag tag(u"n", host);
        tag.bForceAppend = attribute == " forced=\"\"";
        CXmlConfigTree(reused.Get(), true, false).Bind(tag).End();
        EXPECT_EQ("<r" + attribute + ">" + (attribute.empty() ? "" : "<n/>") + "<n type=\"BSTR\">h</n></r>",
                  XmlOf(reused));
    }
    EXPECT_EQ(E_ELEMENT_NOT_FOUND, XmlConfig::LoadText(host, root.Get()));
    EXPECT_ANY_THROW(XmlConfig::SaveText(host, nullptr));
}

TEST(XmlConfigTree, LoadsCollectionsByComparison) {
    const auto item = [](const std::string& text) { return "<item><T type='BSTR'>" + text + "</T></item>"; };
    const auto plain = [&](const std::string& key, const std::string& text) {
        return "<item><T type='BSTR'>" + text + "</T><key type='BSTR' hidden='true'>" + key + "</key></item>";
    };
    Things things;
    Events events;
    const auto load = [&](const std::string& items, const std::string& keyPath, std::uint32_t policy = 0) {
        CTag tag(u"c", things);
        tag.pEvents = &events;
        tag.nPolicy = policy;
        events.heard.clear();
        CXmlConfigTree(ElementFrom("<r><c" + keyPath + ">" + items + "</c></r>").Get(), false)
            .Bind(tag)
            .End();
        std::string all;
        for (const auto& [key, thing] : things)
            all += platform::ToUtf8(key) + "=" + TextOf(thing->m_text) + " ";
        return all;
    };
    const std::string keyed = " KeyXPath='T/text()'";
    EXPECT_EQ("O'B&=O'B& a=a b=b ", load(item("b") + item("a") + item("O'B&amp;"), keyed));
    EXPECT_EQ(events.heard, (Lines{"1<c Ke", "4<item", "4<item", "4<item"}));
    const Thing* const kept = things.at(u"O'B&").Get();
    // Gone first, then new, whatever their order; what stays is the same object.
    EXPECT_EQ("O'B&=O'B& c=c ", load(item("c") + item("O'B&amp;"), keyed));
    EXPECT_EQ(events.heard, (Lines{"1<c Ke", "8<item", "8<item", "4<item"}));
    EXPECT_TRUE(kept == things.at(u"O'B&").Get() && kept->m_key == u"O'B&");
    // The second item of a key changes nothing; a load ends at an item that cannot be read. A key has to be
    // its item's own.
    EXPECT_EQ("c=c d=d ", load(item("c") + item("c") + item("d") + "<item/>" + item("e"), keyed));
    EXPECT_EQ("c=c d=d ", load(item("x"), " KeyXPath='../item/T'"));
    CTag absent(u"none", things);
    absent.pEvents = &events;
    events.heard.clear();
    CXmlConfigTree(ElementFrom("<r/>").Get(), false).Bind(absent).End();
    EXPECT_EQ(events.heard, (Lines{"2"}));

    // Without a key path items carry their key.
    const auto stored = ElementFrom("<r/>");
    CXmlConfigTree(stored.Get(), true).Bind({u"c", things}).End();
    EXPECT_EQ("<r><c><item><T type=\"BSTR\">c</T><key type=\"BSTR\" hidden=\"true\">c</key></item>"
              "<item><T type=\"BSTR\">d</T><key type=\"BSTR\" hidden=\"true\">d</key></item></c></r>",
              XmlOf(stored));
    events.mask = 12;
    const int reads = things.at(u"c")->m_reads;
    EXPECT_EQ("c=c d=d ", load(plain("d", "d") + plain("c", "c"), ""));
    EXPECT_EQ(events.heard, Lines());
    EXPECT_EQ(reads, things.at(u"c")->m_reads);
    EXPECT_EQ("c=new d=d ", load(plain("c", "new") + plain("d", "d"), ""));
    EXPECT_EQ(events.heard, (Lines{"8<item", "4<item"}));
    // In order: neither added nor removed.
    EXPECT_EQ("c=1 d=2 ", load(plain("c", "1") + plain("d", "2") + plain("e", "3"), "", 1));
    EXPECT_EQ("c=3 d=2 ", load(plain("c", "3"), "", 1));
    // Two entries do not share an item.
    EXPECT_EQ("c=3 d=3 ", load(plain("c", "3") + plain("d", "3"), "", 1));
    EXPECT_EQ("c=3 ", load(item("3"), keyed));
    EXPECT_EQ("", load("", keyed));
}

TEST(XmlConfigTree, ComparesWhatTheFirstOneHas) {
    const struct {
        const char *a, *b;
        bool deep;
        HRESULT result;
    } rows[] = {
        {"<a b='1'>x<c/></a>", "<a b='1' d='2'>x<c e='1'/></a>", true, S_OK},
        {"<a/>", "<b/>", false, S_FALSE},
        {"<a>x</a>", "<a>y</a>", false, S_FALSE},
        {"<a b='1'/>", "<a/>", false, S_FALSE},
        {"<a b='1'/>", "<a b='2'/>", false, S_FALSE},
        {"<a><c/><d/></a>", "<a><c/></a>", false, S_OK},
        {"<a><c/><d/></a>", "<a><c/></a>", true, S_FALSE},
        {"<a><c/></a>", "<a><c/><d/></a>", true, S_FALSE},
    };
    for (const auto& [a, b, deep, result] : rows)
        EXPECT_EQ(result, XmlConfig::Compare(ElementFrom(a).Get(), ElementFrom(b).Get(), deep)) << a << b;
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
    // A process may end while other threads are in the store.
    EXPECT_EXIT(
        {
            std::atomic<int> rounds{0};
            std::thread([&rounds] {
                for (;; ++rounds)
                    const CThreadArg four("name", 4);
            }).detach();
            while (rounds < 1000)
                std::this_thread::yield();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
