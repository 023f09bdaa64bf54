#include <iconv.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "platform/text.h"
#include "platform/utf8.h"

namespace platform {

namespace {

// A single-byte code page. The system's converter fills the tables once, one byte at a time; after that a
// conversion is a look-up, one byte for one unit, without a converter state to share between threads.
class SingleBytePage {
public:
    // Null when the system does not have the page.
    static std::unique_ptr<const SingleBytePage> Load(const char* name) {
        const iconv_t converter = ::iconv_open("UTF-16LE", name);
        if (converter == reinterpret_cast<iconv_t>(-1))
            return nullptr;
        auto page = std::make_unique<SingleBytePage>();
        for (unsigned byte = 0; byte < page->m_toWide.size(); ++byte) {
            const char16_t unit = ConvertByte(converter, static_cast<char>(byte));
            page->m_toWide[byte] = unit;
            if (unit != kReplacement)
                page->m_fromWide.push_back({unit, static_cast<char>(byte)});
        }
        ::iconv_close(converter);
        std::ranges::sort(page->m_fromWide, {}, &Entry::unit);
        return page;
    }

    [[nodiscard]] std::u16string ToWide(std::string_view bytes) const {
        std::u16string text(bytes.size(), u'\0');
        std::ranges::transform(bytes, text.begin(),
                               [this](char byte) { return m_toWide[static_cast<unsigned char>(byte)]; });
        return text;
    }

    [[nodiscard]] std::string ToNarrow(std::u16string_view text) const {
        std::string bytes;
        bytes.reserve(text.size());
        while (!text.empty()) {
            const DecodedCharacter head = DecodeUtf16(text);
            bytes.push_back(Narrow(head.value));
            text.remove_prefix(head.length);
        }
        return bytes;
    }

private:
    struct Entry {
        char16_t unit;
        char byte;
    };

    static char16_t ConvertByte(iconv_t converter, char byte) noexcept {
        char16_t units[4] = {};
        char* in = &byte;
        char* out = reinterpret_cast<char*>(units);
        std::size_t inLeft = 1;
        std::size_t outLeft = sizeof units;
        ::iconv(converter, nullptr, nullptr, nullptr, nullptr);
        const std::size_t result = ::iconv(converter, &in, &inLeft, &out, &outLeft);
        // Page 1258 holds a base letter back until it knows that no accent follows.
        ::iconv(converter, nullptr, nullptr, &out, &outLeft);
        const bool isOneUnit = outLeft == sizeof units - sizeof units[0];
        return result == static_cast<std::size_t>(-1) || !isOneUnit ? kReplacement : units[0];
    }

    [[nodiscard]] char Narrow(char32_t value) const noexcept {
        if (value < 0x80)
            return static_cast<char>(value);
        const auto found = std::ranges::lower_bound(m_fromWide, value, {}, &Entry::unit);
        return found != m_fromWide.end() && found->unit == value ? found->byte : '?';
    }

    std::array<char16_t, 256> m_toWide{};
    std::vector<Entry> m_fromWide; // in the order of the units
};

struct NamedPage {
    unsigned number;
    const char* name;
};

constexpr NamedPage kSingleBytePages[] = {
    {1250, "CP1250"}, {1251, "CP1251"},    {1252, "CP1252"},      {1253, "CP1253"},
    {1254, "CP1254"}, {1255, "CP1255"},    {1256, "CP1256"},      {1257, "CP1257"},
    {1258, "CP1258"}, {20127, "US-ASCII"}, {28591, "ISO-8859-1"},
};
constexpr std::size_t kPageCount = std::size(kSingleBytePages);

// The table of a page, made at its first use; null for UTF-8 and for what is not there. Immortal.
const SingleBytePage* FindPage(unsigned number) {
    const auto named = std::ranges::find(kSingleBytePages, number, &NamedPage::number);
    if (named == std::end(kSingleBytePages))
        return nullptr;
    // A race makes the page twice; the one that is not stored is dropped.
    static constinit std::array<std::atomic<const SingleBytePage*>, kPageCount> pages{};
    auto& stored = pages[static_cast<std::size_t>(named - std::begin(kSingleBytePages))];
    const SingleBytePage* page = stored.load(std::memory_order_acquire);
    if (page != nullptr)
        return page;
    std::unique_ptr<const SingleBytePage> made = SingleBytePage::Load(named->name);
    if (made != nullptr && stored.compare_exchange_strong(page, made.get(), std::memory_order_acq_rel))
        page = made.release();
    return page;
}

bool CanConvert(unsigned page) noexcept {
    try {
        return page == kCodePageUtf8 || FindPage(page) != nullptr;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

unsigned Resolve(unsigned page) noexcept {
    switch (page) {
    case kCodePageAnsi:
        return SystemCodePage();
    case kCodePageThread:
        return ThreadCodePage();
    default:
        return page;
    }
}

constinit std::atomic<unsigned> g_systemPage{kCodePageUtf8};
constinit thread_local unsigned t_threadPage = 0;

} // namespace

unsigned SystemCodePage() noexcept {
    return g_systemPage.load(std::memory_order_relaxed);
}

bool SetSystemCodePage(unsigned page) noexcept {
    if (!CanConvert(page))
        return false;
    g_systemPage.store(page, std::memory_order_relaxed);
    return true;
}

unsigned ThreadCodePage() noexcept {
    return t_threadPage != 0 ? t_threadPage : SystemCodePage();
}

bool SetThreadCodePage(unsigned page) noexcept {
    if (page != 0 && !CanConvert(page))
        return false;
    t_threadPage = page;
    return true;
}

unsigned CodePageOfLanguage(unsigned languageId) noexcept {
    if (languageId == 0)
        return kCodePageUtf8;
    // Two languages are written in two scripts, told apart by the upper bits.
    switch (languageId) {
    case 0x0C1A: // Serbian, Cyrillic
    case 0x082C: // Azerbaijani, Cyrillic
        return 1251;
    default:
        break;
    }
    static constexpr std::pair<unsigned, unsigned> pages[] = {
        {0x05, 1250}, // Czech
        {0x0E, 1250}, // Hungarian
        {0x15, 1250}, // Polish
        {0x18, 1250}, // Romanian
        {0x1A, 1250}, // Croatian, Serbian, Bosnian
        {0x1B, 1250}, // Slovak
        {0x1C, 1250}, // Albanian
        {0x24, 1250}, // Slovenian
        {0x02, 1251}, // Bulgarian
        {0x19, 1251}, // Russian
        {0x22, 1251}, // Ukrainian
        {0x23, 1251}, // Belarusian
        {0x2F, 1251}, // Macedonian
        {0x3F, 1251}, // Kazakh
        {0x08, 1253}, // Greek
        {0x1F, 1254}, // Turkish
        {0x2C, 1254}, // Azerbaijani, Latin
        {0x0D, 1255}, // Hebrew
        {0x01, 1256}, // Arabic
        {0x20, 1256}, // Urdu
        {0x29, 1256}, // Persian
        {0x25, 1257}, // Estonian
        {0x26, 1257}, // Latvian
        {0x27, 1257}, // Lithuanian
        {0x2A, 1258}, // Vietnamese
        // Chinese, Japanese, Korean, Thai: their pages are not among ours. Armenian, Georgian: there is none.
        {0x04, kCodePageUtf8},
        {0x11, kCodePageUtf8},
        {0x12, kCodePageUtf8},
        {0x1E, kCodePageUtf8},
        {0x2B, kCodePageUtf8},
        {0x37, kCodePageUtf8},
    };
    const auto found = std::ranges::find(pages, languageId & 0x3FF, &std::pair<unsigned, unsigned>::first);
    return found != std::end(pages) ? found->second : 1252;
}

std::u16string ToWide(std::string_view bytes, unsigned page) {
    const SingleBytePage* const table = FindPage(Resolve(page));
    return table != nullptr ? table->ToWide(bytes) : Utf8ToWide(bytes);
}

std::string ToNarrow(std::u16string_view text, unsigned page) {
    const SingleBytePage* const table = FindPage(Resolve(page));
    return table != nullptr ? table->ToNarrow(text) : WideToUtf8(text);
}

} // namespace platform
