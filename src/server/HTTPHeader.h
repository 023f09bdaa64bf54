// The parsed head of a request.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

    // A longer first line is nobody's honest request; the host's own limit is far below.
    static constexpr std::size_t kFirstLineLimit = 65536;

private:
    struct LessWithoutCase {
        using is_transparent = void;
        bool operator()(std::string_view a, std::string_view b) const noexcept;
    };

    std::map<std::string, std::string, LessWithoutCase> m_oParams;
    std::vector<std::string> m_aFirstLine;
};
