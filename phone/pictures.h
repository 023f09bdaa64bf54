// The pictures that a phone sends: JPEG files of one folder, cut into the part that they share and the rest.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace phone {

// A sequence that cannot be sent, as one line for the person at the terminal.
class PictureError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct PictureSize {
    unsigned width = 0;
    unsigned height = 0;
};

// The size in the first frame header (ITU-T T.81, B.2.2) of a JPEG file; none if there is no such header.
std::optional<PictureSize> JpegSize(std::string_view file);

// Where the phones' program cuts: the length of a JPEG's head with the usual tables, up to the scan's first
// byte.
inline constexpr std::size_t kUsualSplit = 607;
// The wire gives both the shared head and a frame's body 16 bits for their length.
inline constexpr std::size_t kLargestPart = 65535;

class PictureSequence {
public:
    // Cuts `files` (whole JPEG files, at least one; `names` for messages) at `split`. Where they do not all
    // share their first `split` bytes, nothing can be cut off: the split is 0 then, each body is a whole
    // file, and `Note` says so. Throws PictureError for what is no JPEG file or does not fit into the wire's
    // lengths.
    PictureSequence(std::vector<std::string> files, const std::vector<std::string>& names, std::size_t split);

    // The *.jpg and *.jpeg files of a folder in the order of their names.
    static PictureSequence Load(const std::filesystem::path& folder, std::size_t split);

    std::size_t Count() const { return m_files.size(); }
    // The shared first bytes.
    std::string_view Header() const { return std::string_view(m_files[0]).substr(0, m_split); }
    // The rest of picture `index`; the index goes round.
    std::string_view Body(std::size_t index) const {
        return std::string_view(m_files[index % m_files.size()]).substr(m_split);
    }
    // The size of the first picture.
    PictureSize Size() const { return m_size; }
    // Something that the user should know, or empty.
    const std::string& Note() const { return m_note; }

private:
    std::vector<std::string> m_files;
    std::size_t m_split;
    PictureSize m_size;
    std::string m_note;
};

} // namespace phone
