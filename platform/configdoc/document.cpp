#include "platform/configdoc/configdoc.h"

#include "platform/configdoc/tree.h"
#include "platform/files.h"

namespace platform {

namespace {

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

std::optional<std::string> FromUtf16(std::string_view bytes, bool isBigEndian) {
    if (bytes.size() % 2 != 0)
        return std::nullopt;
    std::u16string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t n = 0; n < bytes.size(); n += 2) {
        const auto first = static_cast<unsigned char>(bytes[n]);
        const auto second = static_cast<unsigned char>(bytes[n + 1]);
        text.push_back(static_cast<char16_t>(isBigEndian ? first << 8 | second : second << 8 | first));
    }
    return XmlTextOf(text);
}

class ConfigDocument : public Implements<IConfigDocument> {
public:
    HRESULT Load(const char16_t* path, std::int32_t) override {
        if (path == nullptr)
            return E_POINTER;
        return Guard([&] {
            const auto content = ReadWholeFile(NativePath(path), kDocumentBytesLimit);
            return content ? TakeFile(*content) : StatusFromError(LastError());
        });
    }

    HRESULT Save(const char16_t* path, std::int32_t) override {
        if (path == nullptr)
            return E_POINTER;
        return Guard([&] {
            if (!HasRoot())
                return E_UNEXPECTED;
            const std::string text = kDeclaration + XmlOf(m_tree->Root(), Layout::Indented);
            const HRESULT hr = ReplaceFile(NativePath(path), text);
            return FAILED(hr) ? hr : S_OK; // a folder that cannot be synced is no failure of the file
        });
    }

    HRESULT LoadXml(BSTR xml) override {
        return Guard([&] {
            std::u16string_view wide = ViewOf(xml);
            if (wide.starts_with(u'\uFEFF'))
                wide.remove_prefix(1);
            if (wide.size() > kDocumentBytesLimit)
                return kStatusNotADocument;
            const auto text = XmlTextOf(wide);
            return text ? Take(*text) : kStatusNotADocument;
        });
    }

    HRESULT GetXml(BSTR* xml) override {
        return Give(xml, [&] {
            if (!HasRoot())
                return E_UNEXPECTED;
            *xml = Bstr(FromUtf8(XmlOf(m_tree->Root()))).Detach();
            return S_OK;
        });
    }

    HRESULT GetRootElement(IConfigElement** root) override {
        return Give(root, [&] { return HasRoot() ? GiveElement(*m_tree, m_tree->Root(), root) : S_FALSE; });
    }

protected:
    ConfigDocument() = default;
    ~ConfigDocument() = default;

private:
    // The root may have moved into another document.
    [[nodiscard]] bool HasRoot() const noexcept { return m_tree && m_tree->Root(); }

    // By its byte order mark; without one a file is UTF-8.
    HRESULT TakeFile(std::string_view content) {
        if (content.starts_with("\xFF\xFE") || content.starts_with("\xFE\xFF")) {
            const auto text = FromUtf16(content.substr(2), content.starts_with('\xFE'));
            return text ? Take(*text) : kStatusNotADocument;
        }
        return Take(content.substr(content.starts_with(kUtf8Mark) ? kUtf8Mark.size() : 0));
    }

    HRESULT Take(std::string_view text) {
        auto tree = Tree::Parse(text);
        if (!tree)
            return kStatusNotADocument;
        m_tree = std::move(tree);
        return S_OK;
    }

    std::shared_ptr<Tree> m_tree;
};

class ConfigDocumentFactory : public Implements<IClassFactory> {
public:
    HRESULT CreateInstance(IUnknown* outer, const GUID& interfaceId, void** object) override {
        if (object == nullptr)
            return E_POINTER;
        *object = nullptr;
        if (outer != nullptr)
            return CLASS_E_NOAGGREGATION;
        const auto document = ComObject<ConfigDocument>::Create();
        return document ? document->QueryInterface(interfaceId, object) : E_OUTOFMEMORY;
    }
    HRESULT LockServer(std::int32_t lock) override {
        if (lock != 0)
            ModuleLock::Add();
        else
            ModuleLock::Drop();
        return S_OK;
    }

protected:
    ConfigDocumentFactory() = default;
    ~ConfigDocumentFactory() = default;
};

// The class is there from the start, as those of a machine are.
[[maybe_unused]] const HRESULT kRegistered = RegisterConfigDocumentClass();

} // namespace

HRESULT RegisterConfigDocumentClass() {
    const auto factory = ComObject<ConfigDocumentFactory>::Create();
    return factory ? RegisterClassFactory(kConfigDocumentClass, factory.Get()) : E_OUTOFMEMORY;
}

} // namespace platform
