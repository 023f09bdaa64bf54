#include "midlet/Manifest.h"

#include <optional>

#include "Common/Utils/LocalizeEx.h"
#include "platform/resources.h"
#include "platform/text.h"
#include "runtime/archive/Archive.h"
#include "runtime/trace/Trace.h"

namespace {

constexpr std::string_view kFixedLines = "Manifest-Version: 1.0\r\n"
                                         "MicroEdition-Configuration: CLDC-1.0\r\n"
                                         "Created-By: 1.4.2_03 (Sun Microsystems Inc.)\r\n"
                                         "MIDlet-Vendor: Norvane\r\n"
                                         "MIDlet-Version: 6.0\r\n"
                                         "MicroEdition-Profile: MIDP-2.0\r\n"
                                         "logo: /icons/logo_big.png\r\n"
                                         "testJPEG: /icons/test.jpg\r\n"
                                         "RESOURCE: /mobile/video\r\n";

// A viewing midlet asks the host for its cameras there. The angle brackets are part of the text.
constexpr std::string_view kViewingLines = "CAMLIST: /xslt/enum/all?xslt=cameras.xsl\r\n"
                                           "RANGES: /xslt/<hash>/ranges?xslt=archives.xsl\r\n";

void AppendLine(std::string& strManifest, std::string_view key, std::string_view value,
                std::string_view rest = {}) {
    strManifest += key;
    strManifest += ": ";
    for (const char c : value) {
        if (c != '\r' && c != '\n' && c != '\0')
            strManifest += c;
    }
    strManifest += rest;
    strManifest += "\r\n";
}

constexpr char16_t kArchiveType[] = u"ZIP";
constexpr std::uint16_t kLanguageArchive = 211;

// Language files take a few kilobytes. No memory is allocated for an entry that claims to be larger.
constexpr std::uint32_t kLanguageFileLimit = 1U << 20;

// The one language whose file is 8-bit text.
constexpr std::u16string_view kNarrowLanguage = u"RUS";
constexpr char16_t kByteOrderMark = 0xFEFF;

void ReplaceAll(std::u16string& strText, std::u16string_view from, std::u16string_view to) {
    for (std::size_t n = strText.find(from); n != std::u16string::npos; n = strText.find(from, n + to.size()))
        strText.replace(n, from.size(), to);
}

// The name of a language's file from the abbreviated name of the language ("ENU" gives "gui.eng.ini").
std::u16string LanguageFileName(std::u16string_view abbreviation) {
    std::u16string strName = u"gui." + std::u16string(abbreviation) + u".ini";
    for (char16_t& c : strName) {
        if (c >= u'A' && c <= u'Z')
            c = static_cast<char16_t>(c - u'A' + u'a');
    }
    ReplaceAll(strName, u"enu", u"eng");
    ReplaceAll(strName, u"esp", u"spa");
    return strName;
}

// Unpacks an item; gives an empty text when that fails.
std::string UnpackItem(CArchiveReader* pReader, const SArchiveEntry& oEntry) {
    if (oEntry.nUncompressedSize > kLanguageFileLimit)
        return {};
    std::string strBlock(oEntry.nUncompressedSize, '\0');
    const ArchiveStatus nStatus =
        ReadArchiveItem(pReader, oEntry.nIndex, strBlock.data(), oEntry.nUncompressedSize);
    SetLastArchiveStatus(nStatus);
    if (nStatus != kArchiveOk && nStatus != kArchiveMore)
        return {};
    return strBlock;
}

std::string TextOfUtf16(std::string_view bytes) {
    std::u16string strText(bytes.size() / 2, u'\0');
    for (std::size_t n = 0; n < strText.size(); ++n)
        strText[n] = static_cast<char16_t>(static_cast<std::uint8_t>(bytes[2 * n]) |
                                           static_cast<std::uint8_t>(bytes[2 * n + 1]) << 8);
    std::u16string_view text = strText;
    if (text.size() > 2 && text.front() == kByteOrderMark)
        text.remove_prefix(1);
    return platform::ToUtf8(text);
}

// Reads the language's file as UTF-8; gives nothing when the archive has no such file.
std::optional<std::string> ReadLanguageFile(CArchiveReader* pReader, std::u16string_view abbreviation) {
    std::int32_t nIndex = -1;
    SArchiveEntry oEntry;
    const ArchiveStatus nStatus =
        FindArchiveItem(pReader, LanguageFileName(abbreviation).c_str(), true, &nIndex, &oEntry);
    SetLastArchiveStatus(nStatus);
    if (nStatus != kArchiveOk)
        return std::nullopt;
    const std::string strBlock = UnpackItem(pReader, oEntry);
    if (abbreviation == kNarrowLanguage)
        return platform::ToUtf8(platform::ToWide(strBlock, platform::kCodePageThread));
    return TextOfUtf16(strBlock);
}

HRESULT LoadTexts(CArchiveReader* pReader, std::uint32_t nLanguage, CIniTree& oTree) {
    LOG_AS("CUploadServer::Localize");
    const auto res = ReadLanguageFile(pReader, platform::AbbreviatedLanguageName(nLanguage));
    TRASSDO(res, return E_ELEMENT_NOT_FOUND);
    const bool bRes = oTree.LoadIni(*res);
    TRASSDO(bRes, return E_FAIL);
    return S_OK;
}

} // namespace

HRESULT Localize(std::string& strManifest, std::string_view section, std::uint32_t nLanguage) {
    LOG_AS("CUploadServer::Localize");
    const auto ptr = platform::FindResource(ThisModule(), kArchiveType, kLanguageArchive);
    TRASSDO(ptr, return E_FAIL);
    const ArchivePtr res(OpenArchive(ptr->bytes.data(), static_cast<std::uint32_t>(ptr->bytes.size()),
                                     kSourceMemory, nullptr));
    TRASSDO(res, return E_UNEXPECTED);
    CIniTree oTree;
    const HRESULT hr = LoadTexts(res->pReader, nLanguage, oTree);
    if (FAILED(hr))
        return hr;
    const auto& oKeys = oTree.Root().Child(section).oChildren;
    // The trace tells the condition. NOLINTNEXTLINE(readability-container-size-empty)
    TRASSDO(oKeys.size(), return E_FAIL);
    for (const CIniNode& oKey : oKeys)
        strManifest += oKey.strName + ": " + oKey.strValue + "\r\n";
    return S_OK;
}

std::string BuildManifest(const SManifestValues& oValues) {
    std::string strManifest(kFixedLines);
    if (!oValues.strJarName.empty())
        AppendLine(strManifest, "MIDlet-Name", oValues.strJarName);
    // A comma in the name would shift the icon and the class, but only on the phone of the person who chose
    // that name.
    AppendLine(strManifest, "MIDlet-1", oValues.strJarName, ", /icons/logo_small.png, Quillstart");
    if (!oValues.strLogin.empty())
        AppendLine(strManifest, "LOGIN", oValues.strLogin);
    if (!oValues.strPassword.empty())
        AppendLine(strManifest, "PSW", oValues.strPassword);
    AppendLine(strManifest, "SRV", oValues.strHost);
    const bool bUpload = oValues.szFormat != nullptr;
    if (bUpload)
        AppendLine(strManifest, "FORMAT", oValues.szFormat);
    else
        strManifest += kViewingLines;
    static_cast<void>(Localize(strManifest, bUpload ? "Sendora" : "Viewlander"));
    return strManifest;
}
