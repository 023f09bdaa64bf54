#include "kit/settings/document.h"

#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "platform/com.h"
#include "platform/text.h"

namespace kit {
namespace {

using platform::Bstr;
using platform::ComPtr;
using ElementPtr = ComPtr<IConfigElement>;

constexpr const char16_t* kCameras = u"cams/item";
constexpr std::u16string_view kPath = u"config";
// A whole head: the component looks for the type behind its first line.
constexpr std::u16string_view kHead = u"POST config HTTP/1.0\r\ncontent-type: text/xml\r\n\r\n";

// IConfiguration frees what goes in and makes what comes out, and on failure leaves it: one owner throughout.
template <class Operation>
HRESULT Exchange(Bstr& body, Bstr& head, Operation operation) {
    BSTR rawBody = body.Detach();
    BSTR rawHead = head.Detach();
    const HRESULT hr = operation(&rawBody, &rawHead);
    body = Bstr::Adopt(rawBody);
    head = Bstr::Adopt(rawHead);
    return hr;
}

void Require(HRESULT hr, const char* what) {
    if (FAILED(hr))
        throw std::runtime_error(std::string("the settings document refuses to ") + what);
}

// Empty when there is no such child.
std::u16string ValueAt(IConfigElement& element, const char16_t* path) {
    Bstr value;
    return SUCCEEDED(element.GetValueOf(path, value.Receive())) ? std::u16string(value.View())
                                                                : std::u16string();
}

void SetChild(IConfigElement& element, const char16_t* name, std::string_view value) {
    ElementPtr child = ElementAt(element, name);
    if (!child) {
        Require(element.CreateChild(name, child.Receive()), "take an element");
        SetAttribute(*child, u"type", u"BSTR");
    }
    SetValue(*child, platform::FromUtf8(value));
}

// A camera's new item, a copy of the pattern.
ElementPtr AddItem(IConfigElement& root) {
    ElementPtr list = ElementAt(root, u"cams");
    if (!list)
        Require(root.CreateChild(u"cams", list.Receive()), "take an element");
    ElementPtr item;
    if (const ElementPtr pattern = ElementAt(root, u"addcam/item")) {
        Require(pattern->Clone(item.Receive()), "be copied");
        Require(list->AppendChild(item.Get(), 0), "take an element");
    } else {
        Require(list->CreateChild(u"item", item.Receive()), "take an element");
    }
    return item;
}

ComPtr<IConfigDocument> NewDocument() {
    ComPtr<IConfigDocument> document;
    Require(platform::CoCreateInstance(kConfigDocumentClass, nullptr, platform::kContextAll,
                                       IConfigDocument::iid, document.ReceiveVoid()),
            "exist");
    return document;
}

} // namespace

std::vector<ElementPtr> SelectElements(IConfigElement& element, const char16_t* expression) {
    ComPtr<IConfigEnum> nodes;
    Require(element.SelectNodes(expression, nodes.Receive()), "be searched");
    std::vector<ElementPtr> elements;
    for (ComPtr<IConfigNode> node; nodes->Next(1, node.Receive(), nullptr) == S_OK;) {
        if (ElementPtr found = node.Query<IConfigElement>())
            elements.push_back(std::move(found));
    }
    return elements;
}

ElementPtr ElementAt(IConfigElement& element, const char16_t* path) {
    ComPtr<IConfigNode> node;
    return SUCCEEDED(element.SelectOne(path, node.Receive())) ? node.Query<IConfigElement>() : nullptr;
}

std::u16string NameOf(IConfigNode& node) {
    Bstr name;
    Require(node.GetName(name.Receive()), "give a name");
    return std::u16string(name.View());
}

std::u16string ValueOf(IConfigNode& node) {
    Bstr value;
    Require(node.GetValue(value.Receive()), "give a value");
    return std::u16string(value.View());
}

std::optional<std::u16string> AttributeOf(IConfigElement& element, const char16_t* name) {
    Bstr value;
    const HRESULT hr = element.ReadAttribute(name, value.Receive());
    Require(hr, "give an attribute");
    return hr == S_OK ? std::optional(std::u16string(value.View())) : std::nullopt;
}

void SetValue(IConfigNode& node, std::u16string_view value) {
    Require(node.SetValue(Bstr(value).Get()), "take a value");
}

void SetAttribute(IConfigElement& element, const char16_t* name, std::u16string_view value) {
    Require(element.WriteAttribute(name, Bstr(value).Get()), "take an attribute");
}

CameraEntry ReadCamera(IConfigElement& item) {
    return {platform::ToUtf8(ValueAt(item, u"Name")), platform::ToUtf8(ValueAt(item, u"Type")),
            platform::ToUtf8(ValueAt(item, u"Password"))};
}

std::optional<SettingsDocument> SettingsDocument::Read(const std::string& path) {
    ComPtr<IConfigDocument> document = NewDocument();
    ElementPtr root;
    if (document->Load(platform::FromUtf8(path).c_str(), 0) != S_OK ||
        document->GetRootElement(root.Receive()) != S_OK)
        return std::nullopt;
    return SettingsDocument(std::move(document), std::move(root));
}

std::optional<SettingsDocument> SettingsDocument::Parse(std::u16string_view text) {
    ComPtr<IConfigDocument> document = NewDocument();
    ElementPtr root;
    if (document->LoadXml(Bstr(text).Get()) != S_OK || document->GetRootElement(root.Receive()) != S_OK)
        return std::nullopt;
    return SettingsDocument(std::move(document), std::move(root));
}

std::u16string SettingsDocument::Text() const {
    Bstr text;
    Require(m_document->GetXml(text.Receive()), "become a text");
    return std::u16string(text.View());
}

std::vector<CameraEntry> SettingsDocument::Cameras() const {
    std::vector<CameraEntry> cameras;
    for (const ElementPtr& item : SelectElements(*m_root, kCameras))
        cameras.push_back(ReadCamera(*item));
    return cameras;
}

ElementPtr SettingsDocument::FindCamera(std::string_view name, CameraEntry* found) const {
    for (const ElementPtr& item : SelectElements(*m_root, kCameras)) {
        *found = ReadCamera(*item);
        if (found->name == name)
            return item;
    }
    return nullptr;
}

std::optional<CameraEntry> SettingsDocument::Camera(std::string_view name) const {
    CameraEntry found;
    return FindCamera(name, &found) ? std::optional(std::move(found)) : std::nullopt;
}

bool SettingsDocument::Put(const CameraEntry& camera) {
    return PutAll({&camera, 1});
}

bool SettingsDocument::PutAll(std::span<const CameraEntry> cameras) {
    struct Present {
        ElementPtr item;
        CameraEntry entry;
    };
    std::unordered_map<std::string, Present> present; // the first one of each name
    for (const ElementPtr& item : SelectElements(*m_root, kCameras)) {
        CameraEntry entry = ReadCamera(*item);
        std::string name = entry.name;
        present.try_emplace(std::move(name), Present{item, std::move(entry)});
    }
    bool changed = false;
    for (const CameraEntry& camera : cameras) {
        Present& found = present[camera.name];
        if (found.item && found.entry == camera)
            continue;
        if (!found.item)
            found.item = AddItem(*m_root);
        found.entry = camera;
        SetChild(*found.item, u"Name", camera.name);
        SetChild(*found.item, u"Type", camera.type);
        SetChild(*found.item, u"Password", camera.password);
        changed = true;
    }
    return changed;
}

bool SettingsDocument::RemoveIfSame(const CameraEntry& camera) {
    CameraEntry present;
    const ElementPtr item = FindCamera(camera.name, &present);
    if (!item || present != camera)
        return false;
    Require(item->Remove(), "give an element away");
    return true;
}

std::optional<std::string> SettingsDocument::Host() const {
    const ElementPtr host = ElementAt(*m_root, u"host");
    return host ? std::optional(platform::ToUtf8(ValueOf(*host))) : std::nullopt;
}

void SettingsDocument::SetHost(std::string_view address) {
    SetChild(*m_root, u"host", address);
}

std::string SettingsFile(const std::string& commonData) {
    return commonData + "/Norvane/Tessaron/Servers/Morrowstream.xml";
}

std::optional<std::u16string> GetSettings(IConfiguration& configuration) {
    const Bstr path(kPath);
    Bstr body;
    Bstr head;
    const HRESULT hr = Exchange(body, head, [&](BSTR* rawBody, BSTR* rawHead) {
        return configuration.GetContent(path.Get(), rawBody, rawHead);
    });
    return FAILED(hr) ? std::nullopt : std::optional(std::u16string(body.View()));
}

HRESULT SetSettings(IConfiguration& configuration, std::u16string_view document, std::u16string* now) {
    const Bstr path(kPath);
    Bstr body(document);
    Bstr head(kHead);
    const HRESULT hr = Exchange(body, head, [&](BSTR* rawBody, BSTR* rawHead) {
        return configuration.SetContent(path.Get(), rawBody, rawHead);
    });
    *now = body.View();
    return hr;
}

} // namespace kit
