// What a request says: its head, its path and its query; and who sent it, as the host knows.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "interfaces/IWebHandler.h"
#include "midlet/MakeJar.h"
#include "platform/text.h"

// Single-byte texts. A local object of one call.
class CHTTPHeader {
public:
    // Fills the object from a text that ends at its first zero byte, if there is one. The position behind the
    // head, or nothing when the text is no complete head: no blank line at its end, a header line without
    // ":", no first line, or a first line of kFirstLineLimit bytes or more.
    std::optional<std::size_t> Parse(std::string_view text);

    // The value of the header line with that name, without regard to the case of A to Z; empty if there is
    // none.
    [[nodiscard]] std::string GetParam(std::string_view name) const;

    // Is the method exactly "POST"?
    [[nodiscard]] bool IsPost() const { return !m_aFirstLine.empty() && m_aFirstLine.front() == "POST"; }

    // Method, target, version. A blank more is an empty token more.
    [[nodiscard]] const std::vector<std::string>& FirstLine() const noexcept { return m_aFirstLine; }

    // No honest request has a longer first line. The host's own limit is far below.
    static constexpr std::size_t kFirstLineLimit = 65536;

private:
    struct LessWithoutCase {
        using is_transparent = void;
        bool operator()(std::string_view a, std::string_view b) const noexcept;
    };

    std::map<std::string, std::string, LessWithoutCase> m_oParams;
    std::vector<std::string> m_aFirstLine;
};

// The first segment of `path`, percent-decoded; what stands behind the cut goes to `rest`.
//
// The cut is at the first "/" of the whole path or, only if there is none, at the first "?". Without either,
// the result is the whole path and `rest` becomes null. A null path gives a null result and leaves `rest` as
// it was.
//
// Decoding undoes "%" with two hexadecimal digits; a plus sign stays a plus sign. A "%" without them, an
// escape of the zero byte, or 1024 bytes or more make the result empty. The bytes are taken in the calling
// thread's code page or, with bUtf8 and if they are valid, as UTF-8.
platform::Bstr SplitPath(const platform::Bstr& path, platform::Bstr& rest, bool bUtf8);

// Cuts every "/" off both ends.
std::u16string_view TrimSlashes(std::u16string_view text) noexcept;

// "a=1&b" gives a to 1 and b to nothing. A value goes up to the next "&", also over further "="; of a key
// that comes again the last value counts. Pieces without a key are dropped. Nothing is percent-decoded.
QueryMap ParseQuery(std::u16string_view text);

// Owns what GetRequestAuth of the host fills.
struct CRequestAuth : SRequestAuth {
    CRequestAuth() = default;
    CRequestAuth(const CRequestAuth&) = delete;
    CRequestAuth& operator=(const CRequestAuth&) = delete;
    ~CRequestAuth() {
        CoTaskMemFree(pData);
        SysFreeString(bstrLogin);
        SysFreeString(bstrPassword);
    }
};
