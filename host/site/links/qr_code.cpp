#include "host/site/links/qr_code.h"

#include <cstddef>
#include <memory>

#include <qrencode.h>

namespace host {
namespace {

constexpr int kQuietZone = 4;

struct FreeCode {
    void operator()(QRcode* code) const noexcept { QRcode_free(code); }
};

} // namespace

std::optional<QrCode> QrCode::Of(const std::string& text) {
    const std::unique_ptr<QRcode, FreeCode> code(QRcode_encodeString8bit(text.c_str(), 0, QR_ECLEVEL_M));
    if (!code)
        return std::nullopt;
    const auto count = static_cast<std::size_t>(code->width) * static_cast<std::size_t>(code->width);
    std::vector<bool> dark(count);
    for (std::size_t i = 0; i < count; ++i)
        dark[i] = (code->data[i] & 1) != 0;
    return QrCode(std::move(dark), code->width);
}

bool QrCode::IsDark(int x, int y) const noexcept {
    return x >= 0 && y >= 0 && x < m_width && y < m_width &&
           m_dark[static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) +
                  static_cast<std::size_t>(x)];
}

std::string QrCode::Svg() const {
    const std::string size = std::to_string(m_width + 2 * kQuietZone);
    std::string svg = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size + " " + size +
                      "\" shape-rendering=\"crispEdges\"><path fill=\"#fff\" d=\"M0 0h" + size + "v" + size +
                      "H0z\"/><path d=\"";
    for (int y = 0; y < m_width; ++y) {
        for (int x = 0; x < m_width; ++x) {
            int run = 0;
            while (IsDark(x + run, y))
                ++run;
            if (run == 0)
                continue;
            const std::string length = std::to_string(run);
            svg.append("M").append(std::to_string(x + kQuietZone)).append(" ");
            svg.append(std::to_string(y + kQuietZone)).append("h").append(length);
            svg.append("v1h-").append(length).append("z");
            x += run;
        }
    }
    return svg + "\"/></svg>";
}

std::vector<std::string> QrCode::TerminalLines() const {
    static constexpr const char* kHalves[] = {" ", "\u2584", "\u2580", "\u2588"};
    std::vector<std::string> lines;
    for (int y = -kQuietZone; y < m_width + kQuietZone; y += 2) {
        std::string line = "\x1B[30;107m"; // black on bright white
        for (int x = -kQuietZone; x < m_width + kQuietZone; ++x)
            line += kHalves[(IsDark(x, y) ? 2 : 0) + (IsDark(x, y + 1) ? 1 : 0)];
        lines.push_back(line + "\x1B[0m");
    }
    return lines;
}

} // namespace host
