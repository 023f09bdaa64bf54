// QR codes (ISO/IEC 18004) of addresses, for screens.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host {

class QrCode {
public:
    // Error correction of level M. Nothing when the text is too long or memory is short.
    static std::optional<QrCode> Of(const std::string& text);

    // A picture of its own size in modules, black on white with the quiet zone of four modules around.
    [[nodiscard]] std::string Svg() const;
    // Two modules a character, in colours of its own, so that it can be scanned on dark and light terminals.
    [[nodiscard]] std::vector<std::string> TerminalLines() const;

private:
    QrCode(std::vector<bool> dark, int width) : m_dark(std::move(dark)), m_width(width) {}
    // Outside of the code all is light.
    [[nodiscard]] bool IsDark(int x, int y) const noexcept;

    std::vector<bool> m_dark; // row by row
    int m_width;              // and height, without the quiet zone
};

} // namespace host
