// Cuts the qualified name of a function out of the compiler's own text, at compile time.
#pragma once

#include <cstddef>
#include <string_view>

// Reads a signature as g++ or clang++ writes it, once from its front to the parameters. Each blank, "*" or
// "&" shows that what was read so far is a part of the return type, so the name starts anew behind it.
class CSignatureReader {
public:
    // `szName` has room for the whole text and one character more.
    constexpr CSignatureReader(std::string_view text, char* szName) : m_text(text), m_szName(szName) {}

    // Gives the name's length; `szName` may hold remains of other words behind it.
    constexpr std::size_t Read() {
        char cBefore = ' ';
        for (int nDepth = 0; !m_text.empty();) { // of template arguments
            if (SkipUnnamedNamespace())
                continue;
            if (nDepth == 0 && !IsOfName(cBefore) && StartsWithWord("operator")) {
                ReadOperator();
                break;
            }
            if (!IsOfName(cBefore) && StartsWithWord("decltype"))
                m_text.remove_prefix(m_text.find(')')); // decltype(auto)
            const char c = m_text.front();
            // A "(" behind a blank belongs to a returned pointer to a function: void (* f(int))(char).
            if (nDepth == 0 && c == '(' && cBefore != ' ')
                break;
            nDepth += c == '<' ? 1 : 0;
            if (nDepth == 0 && (IsOfName(c) || c == ':' || c == '~'))
                Put(c);
            else if (nDepth == 0)
                m_nLength = 0;
            nDepth -= c == '>' ? 1 : 0;
            cBefore = c;
            m_text.remove_prefix(1);
        }
        return m_nLength;
    }

private:
    constexpr void ReadOperator() {
        for (; IsOfName(m_text.front()); m_text.remove_prefix(1))
            Put(m_text.front());
        if (m_text.starts_with("()")) {
            Put('(');
            Put(')');
            return;
        }
        if (!m_text.starts_with("[]"))
            Put(' ');
        m_text.remove_prefix(m_text.find_first_not_of(' '));
        const bool bType = IsOfName(m_text.front());
        int nDepth = 0; // of the template arguments of a type
        for (; nDepth > 0 || m_text.front() != '('; m_text.remove_prefix(1)) {
            const char c = m_text.front();
            nDepth += bType && c == '<' ? 1 : 0;
            // clang++ writes a blank in front of a pointer's star, g++ none.
            if (nDepth == 0 && !m_text.starts_with(" *") && !m_text.starts_with(" &"))
                Put(c);
            nDepth -= bType && c == '>' ? 1 : 0;
        }
    }

    constexpr bool SkipUnnamedNamespace() {
        for (const std::string_view name : {"{anonymous}::", "(anonymous namespace)::"}) {
            if (m_text.starts_with(name)) {
                m_text.remove_prefix(name.size());
                return true;
            }
        }
        return false;
    }
    constexpr bool StartsWithWord(std::string_view word) const {
        return m_text.starts_with(word) && m_text.size() > word.size() && !IsOfName(m_text[word.size()]);
    }
    static constexpr bool IsOfName(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
    }
    constexpr void Put(char c) { m_szName[m_nLength++] = c; }

    std::string_view m_text; // what is still to come
    char* m_szName;
    std::size_t m_nLength = 0;
};

// Makes "CCam::Connect" of "virtual HRESULT CCam::Connect(ICamSink*)". A lambda counts as the function that
// it stands in. Template arguments and unnamed namespaces are left out, so an assertion has one name in all
// instances of a template. A blank separates an operator's symbol, or the type that it converts to:
// "CCam::operator >>".
template <std::size_t N>
struct CFunctionName {
    char szName[N + 1] = {};

    constexpr CFunctionName(const char (&signature)[N]) {
        for (std::size_t i = CSignatureReader({signature, N - 1}, szName).Read(); i <= N; ++i)
            szName[i] = '\0';
    }
};

template <CFunctionName Name>
inline constexpr CFunctionName kFunctionName = Name;
