// The parameters of a viewer's request, which the packer heeds.
//
// The text is what stands behind a source's key in a phone's request: "width=176&height=144&fps=5&rotate",
// pairs of a name and a number joined by "&", in any order. A number is a decimal one, digits with at most
// one point; the last of two equal names counts. A number outside its range is brought to the end of the
// range: a phone that asks for too much gets the most there is. A name that is not in the table is passed
// over, so that a newer phone can talk to an older host. A number that is none, and one where none belongs,
// is refused.
//
//   name     range       default   meaning
//   width    16..1920    176       size of the pictures in pixels, whole numbers
//   height   16..1920    144
//   fps      0.1..25     5         pictures a second
//   flimit   0..2^31-1   0         the stream ends after so many pictures; 0: never
//   quality  1..100      50        of JPEG
//   zx, zy   0..1000     0         left and top of the part of the source's picture that is shown, in
//                                  thousandths of its width and height
//   zw, zh   10..1000    1000      width and height of that part. One that would reach over the right or
//                                  lower edge is moved inwards.
//   rotate   0..270      0         a clockwise turn in degrees, a multiple of 90. Without "=" and number: 90.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace host {

struct PackerParameters {
    int width = 176;
    int height = 144;
    double fps = 5;
    std::uint32_t frameLimit = 0;
    int quality = 50;
    int zoomX = 0;
    int zoomY = 0;
    int zoomWidth = 1000;
    int zoomHeight = 1000;
    int quarterTurns = 0; // clockwise, 0 to 3

    friend bool operator==(const PackerParameters&, const PackerParameters&) = default;
};

// Nothing for a text that is refused. Never throws, and takes any bytes.
std::optional<PackerParameters> ParsePackerParameters(std::string_view text) noexcept;

} // namespace host
