// The qualified name of a function, cut out of the compiler's own text at compile time.
#pragma once

#include <cstddef>
#include <string_view>

// Holds "CCam::Connect" after it was given "virtual HRESULT CCam::Connect(ICamSink*)". A lambda counts as the
// function that it stands in, and template arguments are left out: an assertion is known by one name,
// whatever it was made for.
template <std::size_t N>
struct CFunctionName {
    char szName[N] = {};

    constexpr CFunctionName(const char (&signature)[N]) {
        const std::string_view text(signature, N - 1);
        const std::size_t nOperator = OperatorSymbol(text);
        const std::size_t nEnd = nOperator != 0 ? SymbolEnd(text, nOperator) : ParameterList(text);
        std::size_t nTo = 0;
        int nDepth = 0; // of template arguments
        for (std::size_t i = NameStart(text, nOperator != 0 ? nOperator : nEnd); i < nEnd; ++i) {
            // As it is written in a log: "CCam::operator >>". The return type leaves room for the blank.
            if (i == nOperator && i != 0 && text[i] != '(')
                szName[nTo++] = ' ';
            const bool bName = nOperator == 0 || i < nOperator; // not the symbol, which may be a bracket
            if (bName && text[i] == '<')
                ++nDepth;
            if (nDepth == 0)
                szName[nTo++] = text[i];
            if (bName && text[i] == '>')
                --nDepth;
        }
    }

private:
    // The place of the symbol of an operator function, behind the word; 0 for a function with a name.
    static constexpr std::size_t OperatorSymbol(std::string_view text) {
        constexpr std::string_view kWord = "::operator";
        const std::size_t nEnd = text.find('(');
        const std::size_t nWord = text.substr(0, nEnd).rfind(kWord);
        if (nWord == std::string_view::npos)
            return 0;
        const std::size_t nSymbol = nWord + kWord.size();
        constexpr std::string_view kSymbols = "<>=+-*/%&|^!~[(,";
        return kSymbols.find(text[nSymbol]) != std::string_view::npos ? nSymbol : 0;
    }

    // "()" is a symbol, too.
    static constexpr std::size_t SymbolEnd(std::string_view text, std::size_t nSymbol) {
        return text.find('(', nSymbol + (text[nSymbol] == '(' ? 1 : 0));
    }

    // The place of the "(" that opens the parameters: the first one outside template arguments.
    static constexpr std::size_t ParameterList(std::string_view text) {
        int nDepth = 0;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '<')
                ++nDepth;
            else if (text[i] == '>')
                --nDepth;
            else if (text[i] == '(' && nDepth == 0)
                return i;
        }
        return text.size();
    }

    // The name begins behind the last blank outside template arguments; "*" and "&" of a return type go with
    // the blank.
    static constexpr std::size_t NameStart(std::string_view text, std::size_t nEnd) {
        int nDepth = 0;
        for (std::size_t i = nEnd; i > 0; --i) {
            const char c = text[i - 1];
            if (c == '>')
                ++nDepth;
            else if (c == '<')
                --nDepth;
            else if (nDepth == 0 && (c == ' ' || c == '*' || c == '&'))
                return i;
        }
        return 0;
    }
};

template <CFunctionName Name>
inline constexpr CFunctionName kFunctionName = Name;
