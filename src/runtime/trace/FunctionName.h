// The qualified name of a function, cut out of the compiler's own text at compile time.
#pragma once

#include <cstddef>
#include <string_view>

// Holds "CCam::Connect" after it was given "virtual HRESULT CCam::Connect(ICamSink*)". A lambda counts as the
// function that it stands in,
// and template arguments are left out: an assertion is known by one name, whatever it was made for.
template <std::size_t N>
struct CFunctionName {
    char szName[N] = {};

    constexpr CFunctionName(const char (&signature)[N]) {
        const std::string_view text(signature, N - 1);
        const std::size_t nEnd = ParameterList(text);
        const std::size_t nStart = NameStart(text, nEnd);
        std::size_t nTo = 0;
        int nDepth = 0;
        for (std::size_t i = nStart; i < nEnd; ++i) {
            if (text[i] == '<')
                ++nDepth;
            if (nDepth == 0)
                szName[nTo++] = text[i];
            if (text[i] == '>')
                --nDepth;
        }
    }

private:
    // The place of the "(" that opens the parameters: the first one outside template arguments that does not
    // belong to the name "operator()".
    static constexpr std::size_t ParameterList(std::string_view text) {
        int nDepth = 0;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '<')
                ++nDepth;
            else if (text[i] == '>')
                --nDepth;
            else if (text[i] == '(' && nDepth == 0 && !text.substr(0, i).ends_with("operator"))
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
