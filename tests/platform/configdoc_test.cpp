#include "platform/configdoc/configdoc.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include <gtest/gtest.h>

#include "platform/files.h"
#include "support/ConfigText.h"
#include "support/temp_folder.h"

namespace {

using platform::Bstr;
using platform::ComPtr;
using platform::kStatusNotADocument;
using support::ElementFrom;
using support::Find;
using support::NewDocument;
using support::RootOf;
using support::Selection;
using support::TextOf;
using support::ValueOf;
using support::WideOf;
using support::XmlOf;

std::string Repeated(std::string_view text, std::size_t times) {
    std::string all;
    for (std::size_t n = 0; n < times; ++n)
        all += text;
    return all;
}

TEST(ConfigDocument, RefusesWhatIsNoHonestDocument) {
    using std::string;
    const auto expect = [](const std::vector<string>& documents, HRESULT hr) {
        for (const string& xml : documents) {
            const auto document = NewDocument();
            EXPECT_EQ(hr, document->LoadXml(WideOf(xml).Get())) << xml.substr(0, 60);
            EXPECT_EQ(hr == S_OK, bool(RootOf(document)));
        }
    };
    expect(
        {"<?xml version='1.0' encoding='UTF-16'?><!-- <&x; --><a>&lt;&#x41;<![CDATA[<&x;]]></a>\n<?p &q;?>",
         "<a b='1' c=\"'&gt;'\"/>", Repeated("<a>", 100) + Repeated("</a>", 100)},
        S_OK);
    expect({Repeated("<a>", 101) + Repeated("</a>", 101),
            "text",
            "<a></b>",
            "<a/><b/>",
            "<a b='",
            "<a b='<'/>",
            "</a>",
            "<!-- <a/>",
            "<a b='1' b='2'/>",
            "<!DOCTYPE a [<!ENTITY x \"y\">]><a>&x;</a>",
            "<a>&x;</a>",
            "<a>&</a>",
            "<a b='&x;'/>",
            "<a>&#0;</a>",
            "<a>&#x1F;</a>",
            "<a>&#xD800;</a>",
            "<a>&#4294967361;</a>",
            "<a>\x01</a>",
            "<a" + Repeated(" b='1'", 257) + "/>",
            "<a>" + Repeated("<b/>", 500'000) + "</a>",
            "<a>" + string(platform::kDocumentBytesLimit, ' ') + "</a>"},
           kStatusNotADocument);
    // What was there stays.
    const auto document = NewDocument();
    EXPECT_EQ(S_OK, document->LoadXml(Bstr(u"\uFEFF<b/>").Get()));
    for (const Bstr& text : {Bstr(u"<a>\xD800</a>"), Bstr(u"<a>\xFFFE</a>"), Bstr(u"<c>"), Bstr(),
                             Bstr(std::u16string_view(u"<a>\0</a>", 8))})
        EXPECT_EQ(kStatusNotADocument, document->LoadXml(text.Get()));
    EXPECT_EQ("<b/>", XmlOf(document));
}

TEST(ConfigDocument, FilesComeInTheUnicodeEncodingsAndGoInOne) {
    const TempFolder folder;
    const std::string path = folder.File("a b.xml");
    std::u16string wide = platform::FromUtf8(path);
    const auto document = NewDocument();
    EXPECT_EQ(E_UNEXPECTED, document->Save(wide.c_str(), 0));
    EXPECT_EQ(platform::StatusFromError(platform::kErrorFileNotFound), document->Load(wide.c_str(), 0));
    using namespace std::string_literals;
    const auto load = [&](const std::string& bytes) {
        folder.Write("a b.xml", bytes);
        return document->Load(wide.c_str(), 0);
    };
    for (const std::string& good :
         {"<a>\xD0\x94</a>"s, "\xEF\xBB\xBF<a>\xD0\x94</a>"s, "\xFF\xFE<\0a\0>\0\x14\x04<\0/\0a\0>\0"s,
          "\xFE\xFF\0<\0a\0>\x04\x14\0<\0/\0a\0>"s}) {
        EXPECT_EQ(S_OK, load(good)) << good;
        EXPECT_EQ("<a>Д</a>", XmlOf(document)) << good;
    }
    for (const std::string& bad :
         {"<a>\xC4</a>"s, "<a>\xED\xA0\x80</a>"s, "\xFF\xFE<"s, "\xFF\xFE<\0a\0/\0>\0x"s, ""s})
        EXPECT_EQ(kStatusNotADocument, load(bad)) << bad;
    EXPECT_EQ("<a>Д</a>", XmlOf(document)) << "as it was";
    // White space lays out what has elements in it, and is a value where it stands alone. Every character
    // that was taken comes back.
    const std::string xml =
        "<a b=\"&#9;&quot;&lt;&amp;'\"><b>x<c>1</c></b><d>  </d><e><f/><g>&#13;\n&lt;]]&gt;</g></e></a>";
    EXPECT_EQ(S_OK, document->LoadXml(WideOf(xml).Get()));
    std::ranges::replace(wide, u'/', u'\\');
    std::filesystem::create_hard_link(path, folder.File("old"));
    EXPECT_EQ(S_OK, document->Save(wide.c_str(), 0));
    EXPECT_EQ("", platform::ReadWholeFile(folder.File("old"))) << "replaced, not written over";
    const std::string saved = platform::ReadWholeFile(path).value_or("");
    EXPECT_TRUE(saved.starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a b=")) << saved;
    EXPECT_NE(std::string::npos, saved.find("\n\t<e>\n\t\t<f />\n")) << saved;
    const std::string before = XmlOf(document);
    EXPECT_EQ(S_OK, document->Load(wide.c_str(), 0));
    EXPECT_EQ(before, XmlOf(document));
    EXPECT_EQ("\r\n<]]>", ValueOf(RootOf(document), u"e/g"));
    EXPECT_EQ("  ", ValueOf(RootOf(document), u"d"));
    EXPECT_TRUE(FAILED(document->Save(u"/nowhere/at/all.xml", 0)));
}

TEST(ConfigDocument, SelectsByPathsFromTheElement) {
    const auto root =
        ElementFrom("<r xmlns:xpt='u' k='1'><local name='Имя'/><cams KeyXPath='Name/text()'>"
                    "<item><Name>x</Name>1</item><item><Name>O'B&amp;\"</Name><Name>y</Name></item>"
                    "<item a='2' b='3'/></cams></r>");
    const auto cams = Find(root, u"cams");
    const auto first = Find(cams, u"item");
    ASSERT_TRUE(first);
    const std::pair<const char16_t*, const char*> rows[] = {
        {u"item/Name", "<Name>x</Name> <Name>O'B&amp;\"</Name> <Name>y</Name>"},
        {u"item/Name/text()", "x O'B&amp;\" y"},
        {u"item/@*", "a=\"2\" b=\"3\""},
        {u"../@*", "k=\"1\""},
        {u"../@xmlns:xpt", ""},
        {u"../cams/item/Name/text()", "x O'B&amp;\" y"},
        {u"../cams/@KeyXPath", "KeyXPath=\"Name/text()\""},
        {u"../../r/local/text()", ""},
        {u"//local/@name", "name=\"Имя\""},
        {u"/r/local", "<local name=\"Имя\"/>"},
        {u"item[Name='y' and Name != 'x']/Name[1]", "<Name>O'B&amp;\"</Name>"},
        {u"item[ Name/text() = 'O&apos;B&amp;&quot;' ]/Name[2]", "<Name>y</Name>"},
        {u"item[@a=2]", "<item a=\"2\" b=\"3\"/>"},
        {u"item[.//Name='y']/@*", ""},
        {u"item/node()/..",
         "<item><Name>x</Name>1</item> <item><Name>O'B&amp;\"</Name><Name>y</Name></item>"},
        {u"../..", ""},
        {u"nothing", ""},
    };
    for (const auto& [expression, expected] : rows)
        EXPECT_EQ(expected, Selection(cams, expression)) << platform::ToUtf8(expression);
    for (const std::string& bad : std::vector<std::string>{
             "", "item[", "item['x]", "count(item)", "item | item", "following::item", "$x", "//item//Name",
             "item[../item/Name='x']", "item[/r]", "item[Name=Name]", "item/", "a" + Repeated("/a", 100),
             "a[b='" + std::string(70'000, 'x') + "']"})
        EXPECT_EQ("refused", Selection(cams, WideOf(bad).Get())) << bad.substr(0, 50);
    EXPECT_EQ("refused", Selection(cams, nullptr));
    EXPECT_EQ("Name/text()", ValueOf(first, u"../@KeyXPath"));
    ComPtr<IConfigNode> node;
    EXPECT_EQ(E_ELEMENT_NOT_FOUND, first->SelectOne(u"nothing", node.Receive()));
    EXPECT_FALSE(node);
    // One node is one object.
    EXPECT_EQ(S_OK, first->SelectOne(u"../item[1]", node.Receive()));
    EXPECT_EQ(static_cast<IConfigNode*>(first.Get()), node.Get());
    // In the order of the document, however far a tree was changed, and in time.
    const auto wide = ElementFrom("<w>" + Repeated("<i><a>1</a></i>", 20'000) + "</w>");
    ComPtr<IConfigElement> copy;
    ASSERT_EQ(S_OK, wide->Clone(copy.Receive()));
    EXPECT_EQ(std::size_t{20'000} * 9 - 1, Selection(copy, u"i/a").size());
}

TEST(ConfigDocument, ValuesAreAnElementsOwn) {
    const auto root =
        ElementFrom("<r>a<T type='BSTR'><![CDATA[3]]>20<i/>240<!--of text--><![CDATA[!]]></T><E/></r>");
    const auto type = Find(root, u"T");
    EXPECT_EQ("320240!", ValueOf(root, u"T"));
    ComPtr<IConfigNode> piece;
    ASSERT_EQ(S_OK, type->SelectOne(u"i/../text()", piece.Receive()));
    ComPtr<IConfigNode> last;
    ASSERT_EQ(S_OK, root->SelectOne(u"T/text()[2]", last.Receive()));
    EXPECT_EQ(S_OK, type->SetValue(WideOf("<Двор №1>").Get()));
    EXPECT_EQ("<T type=\"BSTR\">&lt;Двор №1&gt;<i/></T>", XmlOf(type));
    EXPECT_EQ("&lt;Двор №1&gt;", XmlOf(piece));
    EXPECT_EQ("240!", XmlOf(last)); // held, though no longer a part of the element
    EXPECT_EQ(S_OK, type->SetValue(nullptr));
    EXPECT_EQ("<T type=\"BSTR\"><i/></T>", XmlOf(type));
    Bstr text;
    EXPECT_EQ(S_OK, type->GetValue(text.Receive()));
    EXPECT_TRUE(text.IsNull());
    EXPECT_EQ(S_OK, type->SetValue(Bstr(u"x").Get()));
    EXPECT_EQ("<T type=\"BSTR\">x<i/></T>", XmlOf(type));
    for (const std::u16string_view bad : {std::u16string_view(u"\0", 1), std::u16string_view(u"\x1B"),
                                          std::u16string_view(u"\xDC00"), std::u16string_view(u"\xFFFF")}) {
        EXPECT_EQ(E_INVALIDARG, type->SetValue(Bstr(bad).Get()));
        EXPECT_EQ(E_INVALIDARG, type->WriteAttribute(u"a", Bstr(bad).Get()));
    }
    EXPECT_EQ("<T type=\"BSTR\">x<i/></T>", XmlOf(type));

    text = Bstr(u"kept");
    EXPECT_EQ(S_FALSE, type->ReadAttribute(u"none", text.Receive()));
    EXPECT_EQ(S_OK, type->WriteAttribute(u"n", WideOf("\"&\n").Get()));
    EXPECT_EQ(S_OK, type->ReadAttribute(u"n", text.Receive()));
    EXPECT_EQ("\"&\n", TextOf(text));
    ComPtr<IConfigAttribute> attribute;
    EXPECT_EQ(S_FALSE, type->GetAttribute(u"none", attribute.Receive()));
    EXPECT_FALSE(attribute);
    ASSERT_EQ(S_OK, type->GetAttribute(u"n", attribute.Receive()));
    EXPECT_EQ("n=\"&quot;&amp;&#10;\"", XmlOf(attribute));
    EXPECT_EQ(S_OK, attribute->SetValue(nullptr));
    EXPECT_EQ("<T type=\"BSTR\" n=\"\">x<i/></T>", XmlOf(type));
    EXPECT_TRUE(attribute.Query<IConfigNode>());
    EXPECT_FALSE(attribute.Query<IConfigElement>());
    ComPtr<IConfigElement> child;
    for (const char16_t* name : {u"", u"1a", u"a b", u"a/b", u"<"})
        EXPECT_EQ(E_INVALIDARG, type->CreateChild(name, child.Receive()));
}

TEST(ConfigDocument, NodesOutliveDocumentsAndMoveBetweenThem) {
    auto document = NewDocument();
    ASSERT_EQ(S_OK, document->LoadXml(Bstr(u"<r><a k='1'><b>x</b></a><c/></r>").Get()));
    auto root = RootOf(document);
    const auto a = Find(root, u"a");
    const auto b = Find(a, u"b");
    ComPtr<IConfigAttribute> k;
    ASSERT_EQ(S_OK, a->GetAttribute(u"k", k.Receive()));
    ComPtr<IConfigNode> x;
    ASSERT_EQ(S_OK, b->SelectOne(u"text()", x.Receive()));
    ASSERT_EQ(S_OK, document->LoadXml(Bstr(u"<other/>").Get()));
    EXPECT_EQ("<r><a k=\"1\"><b>x</b></a><c/></r>", XmlOf(root));

    ComPtr<IConfigElement> clone;
    ASSERT_EQ(S_OK, a->Clone(clone.Receive()));
    EXPECT_EQ(S_OK, Find(clone, u"b")->SetValue(Bstr(u"y").Get()));
    EXPECT_EQ("", Selection(clone, u".."));
    EXPECT_EQ(S_FALSE, clone->Remove());

    // Removed, then put into a document of its own: whoever holds a part of it still does.
    EXPECT_EQ(S_OK, a->Remove());
    EXPECT_EQ("<r><c/></r>", XmlOf(root));
    root = nullptr;
    EXPECT_EQ("<a k=\"1\"><b>x</b></a>", XmlOf(a));
    const auto other = RootOf(document);
    EXPECT_EQ(S_OK, other->AppendChild(a.Get(), 0));
    EXPECT_EQ(S_OK, other->AppendChild(clone.Get(), 0));
    EXPECT_EQ(S_OK, x->SetValue(Bstr(u"z").Get()));
    EXPECT_EQ(S_OK, k->SetValue(Bstr(u"2").Get()));
    EXPECT_EQ(S_OK, b->WriteAttribute(u"n", nullptr));
    EXPECT_EQ("<other><a k=\"2\"><b n=\"\">z</b></a><a k=\"1\"><b>y</b></a></other>", XmlOf(document));
    // Within one document.
    EXPECT_EQ(S_OK, other->AppendChild(a.Get(), 0));
    EXPECT_EQ(S_OK, clone->AppendChild(b.Get(), 0));
    EXPECT_EQ("<other><a k=\"1\"><b>y</b><b n=\"\">z</b></a><a k=\"2\"/></other>", XmlOf(document));
    for (const auto& element : {other, clone, b})
        EXPECT_EQ(E_INVALIDARG, b->AppendChild(element.Get(), 0));
    EXPECT_EQ(E_POINTER, b->AppendChild(nullptr, 0));
    // A root that leaves its document leaves it empty.
    const auto last = ElementFrom("<last/>");
    EXPECT_EQ(S_OK, last->AppendChild(other.Get(), 0));
    EXPECT_FALSE(RootOf(document));
    EXPECT_EQ("(none)", XmlOf(document));
    document = nullptr;
    EXPECT_EQ("z", ValueOf(last, u"//b[@n]"));
}

} // namespace
