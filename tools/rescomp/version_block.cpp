#include "tools/rescomp/resources.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "platform/resources.h"
#include "platform/text.h"
#include "tools/rescomp/input.h"

namespace rescomp {

namespace {

constexpr std::uint32_t kUtf16 = 1200;

void Align(std::string& bytes) {
    bytes.resize((bytes.size() + 3) / 4 * 4, '\0');
}

std::string Units(std::u16string_view text) {
    std::string bytes(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
    return bytes + std::string(sizeof(char16_t), '\0');
}

// One node: its length, the length of its value, whether that is a text, its key, its value, its children;
// each part on a boundary of four bytes.
std::string Node(std::u16string_view key, const std::string& value, bool isText,
                 const std::string& children = {}) {
    std::string bytes(6, '\0');
    bytes += Units(key);
    Align(bytes);
    bytes += value;
    if (!children.empty()) {
        Align(bytes);
        bytes += children;
    }
    const std::array<std::uint16_t, 3> head{
        static_cast<std::uint16_t>(bytes.size()),
        static_cast<std::uint16_t>(isText ? value.size() / sizeof(char16_t) : value.size()),
        static_cast<std::uint16_t>(isText ? 1 : 0)};
    std::memcpy(bytes.data(), head.data(), sizeof head);
    Align(bytes); // behind the node, for the next one
    return bytes;
}

std::array<std::uint16_t, 4> ParseVersion(const std::string& version) {
    std::array<std::uint16_t, 4> numbers{};
    std::string_view rest = version;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const std::size_t dot = std::min(rest.find('.'), rest.size());
        const auto number = ParseNumber(rest.substr(0, dot));
        if (!number)
            break;
        numbers[i] = *number;
        if (dot == rest.size())
            return numbers;
        rest.remove_prefix(dot + 1);
    }
    throw InputError("a version has up to four numbers with dots between them, not \"" + version + "\"");
}

} // namespace

Resource VersionBlock(const std::string& version, std::uint16_t language) {
    const auto numbers = ParseVersion(version);
    const std::uint32_t high = std::uint32_t{numbers[0]} << 16 | numbers[1];
    const std::uint32_t low = std::uint32_t{numbers[2]} << 16 | numbers[3];
    // Signature, version of the structure, file version, product version, mask of flags, flags, system, type
    // (a library), subtype, date.
    const std::array<std::uint32_t, 13> fixed{0xFEEF04BD, 0x10000, high, low, high, low, 0x3F,
                                              0,          0x40004, 2,    0,   0,    0};

    char name[16];
    std::snprintf(name, sizeof name, "%04X%04X", static_cast<unsigned>(language),
                  static_cast<unsigned>(kUtf16));
    const std::u16string versionText = platform::FromUtf8(version);
    const std::string texts = Node(u"FileDescription", Units(u"Morrowstream"), true) +
                              Node(u"FileVersion", Units(versionText), true) +
                              Node(u"ProductVersion", Units(versionText), true);
    const std::uint32_t pair = kUtf16 << 16 | language;
    const std::string translation(reinterpret_cast<const char*>(&pair), sizeof pair);
    const std::string children =
        Node(u"StringFileInfo", {}, true, Node(platform::FromUtf8(name), {}, true, texts)) +
        Node(u"VarFileInfo", {}, true, Node(u"Translation", translation, false));
    const std::string value(reinterpret_cast<const char*>(fixed.data()), sizeof fixed);
    return {{platform::kResourceTypeVersion},
            {std::uint16_t{1}},
            language,
            platform::CodePageOfLanguage(language),
            Node(u"VS_VERSION_INFO", value, false, children)};
}

} // namespace rescomp
