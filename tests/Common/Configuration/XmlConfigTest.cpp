#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"

#include <fstream>

#include <gtest/gtest.h>

#include "support/ConfigText.h"
#include "support/RecordingLog.h"
#include "support/temp_folder.h"

namespace {

using platform::Bstr;
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
        std::ofstream(folder.File(name)) << content;
        return WideOf(folder.File(name));
    };
    const Bstr missing = WideOf(folder.File("missing"));
    const Bstr standard(u"<default/>");
    const struct {
        Bstr path;
        Bstr text;
        HRESULT status;
        const char* xml;
    } rows[] = {
        {file("good", "<good/>"), standard, S_OK, "<good/>"},
        {file("empty", ""), standard, S_OK, "<default/>"},
        {file("damaged", "<good"), standard, S_OK, "<default/>"},
        {file("damaged", "<good"), nullptr, platform::kStatusNotADocument, "(null)"},
        {missing, standard, S_OK, "<default/>"},
        {missing, nullptr, E_INVALIDARG, "(null)"},
        {nullptr, nullptr, E_INVALIDARG, "(null)"},
        {nullptr, Bstr::FromBytes("<a>\xD0\x94</a>"), S_OK, "<a>Д</a>"},
        {nullptr, Bstr(u"<a"), platform::kStatusNotADocument, "(null)"},
    };
    for (const auto& row : rows) {
        CXmlConfig config;
        EXPECT_EQ(row.status, config.Load(row.path, row.text)) << TextOf(row.path);
        EXPECT_EQ(row.xml, TextOf(config.GetXml()));
        EXPECT_EQ(row.path, config.Path());
        const CXmlConfig copy = config;
        EXPECT_EQ(config.Root(), copy.Root());
    }
    const CXmlConfig root(nullptr, Bstr(XmlConfig::kRootTemplate));
    EXPECT_EQ("<config xmlns:xpt=\"http://morrowstream.example/Kelp/xpt\"/>", TextOf(root.GetXml()));

    platform::RevokeClassFactory(kConfigDocumentClass);
    CXmlConfig none(nullptr, standard);
    EXPECT_EQ(E_UNEXPECTED, none.Load(nullptr, standard));
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
    EXPECT_TRUE(XmlConfig::CreatePath(root.Get(), u"a/b"));
    EXPECT_TRUE(XmlConfig::CreatePath(root.Get(), u"a"));
    EXPECT_TRUE(XmlConfig::SelectOrCreate(root.Get(), u"c/d", true));
    EXPECT_EQ("<r k=\"v\"><a><b/><b/></a><a/><c><d/></c></r>", XmlOf(root));
    EXPECT_EQ(log.Texts(), (Lines{"TRASSDO: pConfigElement\n"}));
    EXPECT_EQ("XmlConfig::GetAttributeValue", log.Lines()[0].function);
}

TEST(XmlConfig, MergesByModes) {
    const char* left = "<r a='1' type='BSTR'>x<i>1</i><i k='l'>2</i><only/></r>";
    const char* right = "<r b='2' a='3'>y<i>1</i><i>3</i><i/><new/></r>";
    const char* const keyedLeft = "<c KeyXPath='N'><i><N>a'b</N><v>1</v></i><i><N>c</N></i></c>";
    const char* const keyedRight = "<c KeyXPath='N'><i><N>z</N></i><i><N>a'b</N><v>2</v></i></c>";
    const struct {
        const char* left;
        const char* right;
        std::uint32_t mode;
        HRESULT status;
        const char* result;
    } rows[] = {
        {left, right, 0, S_OK,
         "<r a=\"3\" type=\"BSTR\" b=\"2\">y<i>1</i><i k=\"l\">2</i><only/><i>1</i><i>3</i><i/><new/></r>"},
        {left, right, 1, S_OK,
         "<r a=\"3\" type=\"BSTR\" b=\"2\">y<i>1</i><i k=\"l\">3</i><only/><i/><new/></r>"},
        {left, right, 9, S_OK,
         "<r a=\"3\" type=\"BSTR\" b=\"2\">y<i>1</i><i k=\"l\">3</i><only/><i/><new/></r>"},
        {left, right, 2, S_OK, "<r a=\"3\" type=\"BSTR\" b=\"2\">y<i>1</i><i k=\"l\">3</i><only/></r>"},
        {left, right, 3, S_OK,
         "<r a=\"3\" type=\"BSTR\" b=\"2\" conflict=\"true\">x<i>1</i><i k=\"l\" "
         "conflict=\"true\">2</i><only/>"
         "<i/><new/></r>"},
        {left, right, 4, S_OK,
         "<r a=\"3\" type=\"BSTR\" b=\"2\">xy<i>1</i><i k=\"l\">23</i><only/><i/><new/></r>"},
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

} // namespace
