#include "midlet/Manifest.h"

#include <algorithm>

namespace {

constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr std::string_view kLeftOut = "\t\r\n"; // of names and keys
constexpr std::string_view kValueEnd = "[]\r\n;";

// Reads the text from its front to its end.
class CIniReader {
public:
    explicit CIniReader(std::string_view text) noexcept : m_text(text) {}

    [[nodiscard]] bool AtEnd() const noexcept { return m_text.empty(); }
    [[nodiscard]] bool AtSection() const noexcept { return m_text.starts_with('['); }

    void SkipWhiteSpace() noexcept {
        m_text.remove_prefix(std::min(m_text.find_first_not_of(kWhiteSpace), m_text.size()));
    }

    // A comment without a line end runs to the end of the text.
    void SkipWhiteSpaceAndComments() noexcept {
        SkipWhiteSpace();
        while (m_text.starts_with(';')) {
            m_text.remove_prefix(std::min(m_text.find('\n'), m_text.size()));
            SkipWhiteSpace();
        }
    }

    void SkipCharacter() noexcept { m_text.remove_prefix(1); }

    // Takes the text in front of the closing character, and the character; false when it does not come.
    [[nodiscard]] bool TakeUpTo(char cClosing, std::string& strTaken) {
        const std::size_t nEnd = m_text.find(cClosing);
        if (nEnd == std::string_view::npos)
            return false;
        strTaken = Without(kLeftOut, m_text.substr(0, nEnd));
        m_text.remove_prefix(nEnd + 1);
        return true;
    }

    [[nodiscard]] std::string TakeValue() {
        const std::string_view value = m_text.substr(0, m_text.find_first_of(kValueEnd));
        m_text.remove_prefix(value.size());
        return Without("\t", value);
    }

private:
    static std::string Without(std::string_view leftOut, std::string_view text) {
        std::string strKept(text);
        std::erase_if(strKept, [&](char c) { return leftOut.find(c) != std::string_view::npos; });
        return strKept;
    }

    std::string_view m_text; // what is still to come
};

bool ReadSectionName(CIniReader& oReader, std::string& strName) {
    oReader.SkipWhiteSpaceAndComments();
    if (!oReader.AtSection())
        return false;
    oReader.SkipCharacter();
    oReader.SkipWhiteSpace();
    return oReader.TakeUpTo(']', strName);
}

} // namespace

CIniNode& CIniNode::Child(std::string_view name) {
    const auto found = std::ranges::find(oChildren, name, &CIniNode::strName);
    if (found != oChildren.end())
        return *found;
    oChildren.push_back({std::string(name), {}, {}});
    return oChildren.back();
}

bool CIniTree::LoadIni(std::string_view text) {
    m_oRoot = {};
    CIniReader oReader(text.substr(0, text.find('\0')));
    std::string strName;
    while (!oReader.AtEnd()) {
        if (!ReadSectionName(oReader, strName))
            return false;
        CIniNode& oSection = m_oRoot.Child(strName);
        oReader.SkipWhiteSpaceAndComments();
        while (!oReader.AtEnd() && !oReader.AtSection()) {
            if (!oReader.TakeUpTo('=', strName))
                return false;
            oSection.Child(strName).strValue = oReader.TakeValue();
            oReader.SkipWhiteSpaceAndComments();
        }
    }
    return true;
}
