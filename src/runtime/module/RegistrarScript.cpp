#include "runtime/module/Registrar.h"

#include <algorithm>
#include <charconv>

#include "platform/text.h"

namespace {

using platform::RegistryRoot;
using platform::RegistryValue;

constexpr std::u16string_view kBlanks = u" \t\r\n";

bool SameWord(std::u16string_view a, std::u16string_view b) noexcept {
    const auto fold = [](char16_t c) {
        return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - u'a' + u'A') : c;
    };
    return std::ranges::equal(a, b, {}, fold, fold);
}

struct SWord {
    enum class EKind { End, Bare, Quoted, Broken };

    EKind eKind = EKind::End;
    std::u16string strText;

    // One of the words with a meaning.
    [[nodiscard]] bool Is(std::u16string_view word) const noexcept {
        return eKind == EKind::Bare && SameWord(strText, word);
    }
    [[nodiscard]] bool IsName() const noexcept {
        return (eKind == EKind::Bare && strText != u"{" && strText != u"}" && strText != u"=") ||
               (eKind == EKind::Quoted && !strText.empty());
    }
};

class CWords {
public:
    explicit CWords(std::u16string_view script) : m_rest(script) { Next(); }

    [[nodiscard]] const SWord& Word() const noexcept { return m_oWord; }
    void Next() {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size()));
        m_oWord = {};
        if (m_rest.empty())
            return;
        if (m_rest.front() == u'\'') {
            TakeQuoted();
            return;
        }
        const std::size_t nEnd = std::min(m_rest.find_first_of(kBlanks), m_rest.size());
        m_oWord = {SWord::EKind::Bare, std::u16string(m_rest.substr(0, nEnd))};
        m_rest.remove_prefix(nEnd);
    }
    bool Skip(std::u16string_view word) {
        const bool bFound = m_oWord.Is(word);
        if (bFound)
            Next();
        return bFound;
    }

private:
    void TakeQuoted() {
        m_oWord.eKind = SWord::EKind::Broken; // until the closing apostrophe
        for (std::size_t n = 1; n < m_rest.size(); ++n) {
            if (m_rest[n] == u'\'' && m_rest.substr(n + 1, 1) != u"'") {
                m_oWord.eKind = SWord::EKind::Quoted;
                m_rest.remove_prefix(n + 1);
                return;
            }
            m_oWord.strText += m_rest[n];
            if (m_rest[n] == u'\'')
                ++n;
        }
        m_rest = {};
    }

    std::u16string_view m_rest;
    SWord m_oWord;
};

std::optional<std::uint32_t> ParseNumber(std::u16string_view text) {
    const std::string strText = platform::ToUtf8(text);
    const bool bHexadecimal = strText.starts_with("0x");
    const char* const pBegin = strText.data() + (bHexadecimal ? 2 : 0);
    const char* const pEnd = strText.data() + strText.size();
    std::uint32_t nValue = 0;
    const auto [pStop, eError] = std::from_chars(pBegin, pEnd, nValue, bHexadecimal ? 16 : 10);
    return eError == std::errc{} && pStop == pEnd ? std::optional(nValue) : std::nullopt;
}

std::optional<RegistryRoot> RootOf(const SWord& oWord) noexcept {
    if (oWord.Is(u"HKCR") || oWord.Is(u"HKEY_CLASSES_ROOT"))
        return RegistryRoot::ClassesRoot;
    if (oWord.Is(u"HKLM") || oWord.Is(u"HKEY_LOCAL_MACHINE"))
        return RegistryRoot::LocalMachine;
    return std::nullopt;
}

// Each operation takes its piece of the script and says whether there was one.
class CParser {
public:
    explicit CParser(std::u16string_view script) : m_oWords(script) {}

    bool TakeRoots(std::vector<SRegistrarRoot>& aRoots) {
        while (const auto eRoot = RootOf(m_oWords.Word())) {
            m_oWords.Next();
            SRegistrarKey oTop;
            if (!TakeBlock(oTop, 0) || !oTop.aValues.empty()) // a root has no values of its own
                return false;
            aRoots.push_back({*eRoot, std::move(oTop.aKeys)});
        }
        return m_oWords.Word().eKind == SWord::EKind::End && !aRoots.empty();
    }

private:
    bool TakeBlock(SRegistrarKey& oAround, unsigned nDepth) {
        if (nDepth > kRegistrarDepth || !m_oWords.Skip(u"{"))
            return false;
        while (!m_oWords.Skip(u"}")) {
            if (!(m_oWords.Skip(u"val") ? TakeNamedValue(oAround) : TakeKey(oAround, nDepth)))
                return false;
        }
        return true;
    }

    bool TakeName(std::u16string& strName) {
        if (!m_oWords.Word().IsName())
            return false;
        strName = m_oWords.Word().strText;
        m_oWords.Next();
        return true;
    }

    bool TakeNamedValue(SRegistrarKey& oAround) {
        std::u16string strName;
        return TakeName(strName) && m_oWords.Skip(u"=") && TakeValue(oAround, std::move(strName));
    }

    bool TakeKey(SRegistrarKey& oAround, unsigned nDepth) {
        using EMark = SRegistrarKey::EMark;
        SRegistrarKey oKey;
        if (m_oWords.Skip(u"delete")) {
            oKey.eMark = EMark::Delete;
            return TakeName(oKey.strName) && (oAround.aKeys.push_back(std::move(oKey)), true);
        }
        if (m_oWords.Skip(u"NoRemove"))
            oKey.eMark = EMark::NoRemove;
        else if (m_oWords.Skip(u"ForceRemove"))
            oKey.eMark = EMark::ForceRemove;
        if (!TakeName(oKey.strName))
            return false;
        if (m_oWords.Skip(u"=") && !TakeValue(oKey, {}))
            return false;
        if (m_oWords.Word().Is(u"{") && !TakeBlock(oKey, nDepth + 1))
            return false;
        oAround.aKeys.push_back(std::move(oKey));
        return true;
    }

    bool TakeValue(SRegistrarKey& oKey, std::u16string strName) {
        const bool bNumber = m_oWords.Word().Is(u"d");
        if (!bNumber && !m_oWords.Word().Is(u"s"))
            return false;
        m_oWords.Next();
        const SWord oWord = m_oWords.Word();
        if (!oWord.IsName() && oWord.eKind != SWord::EKind::Quoted)
            return false;
        m_oWords.Next();
        RegistryValue oValue = oWord.strText;
        if (bNumber) {
            const auto nNumber = ParseNumber(oWord.strText);
            if (!nNumber)
                return false;
            oValue = *nNumber;
        }
        oKey.aValues.emplace_back(std::move(strName), std::move(oValue));
        return true;
    }

    CWords m_oWords;
};

} // namespace

std::optional<std::vector<SRegistrarRoot>> ParseRegistrarScript(std::u16string_view script) {
    std::vector<SRegistrarRoot> aRoots;
    if (!CParser(script).TakeRoots(aRoots))
        return std::nullopt;
    return aRoots;
}
