#include "host/settings/document.h"

#include <charconv>
#include <stdexcept>

#include "platform/com.h"
#include "platform/text.h"

namespace host {
namespace {

using platform::Bstr;
using platform::ComPtr;
using ElementPtr = ComPtr<IConfigElement>;

// The type keeps the element with the display texts out, which has an attribute of this name as well.
constexpr const char16_t* kPasswords = u"//*[@password and @type='BSTR']";
constexpr const char16_t* kCameras = u"cams/item";
constexpr const char16_t* kMark = u"stored";
constexpr const char16_t* kKept = u"kept";
// As long for every password: its length is nobody's business.
constexpr std::u16string_view kDots = u"••••••••";

void Require(HRESULT hr, const char* what) {
    if (FAILED(hr))
        throw std::runtime_error(std::string("the settings document refuses to ") + what);
}

void SetValue(IConfigNode& node, std::u16string_view value) {
    Require(node.SetValue(Bstr(value).Get()), "take a value");
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
        Require(child->WriteAttribute(u"type", Bstr(u"BSTR").Get()), "take an attribute");
    }
    SetValue(*child, platform::FromUtf8(value));
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

std::vector<std::u16string> SettingsDocument::Passwords() const {
    std::vector<std::u16string> passwords;
    for (const ElementPtr& element : SelectElements(*m_root, kPasswords))
        passwords.push_back(ValueOf(*element));
    return passwords;
}

void SettingsDocument::ConcealPasswords() {
    std::size_t number = 0;
    for (const ElementPtr& element : SelectElements(*m_root, kPasswords)) {
        if (!ValueOf(*element).empty()) {
            const std::u16string mark = platform::FromUtf8(std::to_string(number));
            Require(element->WriteAttribute(kMark, Bstr(mark).Get()), "take an attribute");
            SetValue(*element, kDots);
        }
        ++number;
    }
}

bool SettingsDocument::RestorePasswords(const std::vector<std::u16string>& passwords) {
    for (const ElementPtr& element : SelectElements(*m_root, kPasswords)) {
        const auto mark = AttributeOf(*element, kMark);
        if (!mark)
            continue;
        const std::string digits = platform::ToUtf8(*mark);
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error != std::errc{} || end != digits.data() + digits.size() || number >= passwords.size())
            return false;
        SetValue(*element, passwords[number]);
    }
    return true;
}

bool SettingsDocument::IsMarked(IConfigElement& item) {
    const ElementPtr password = ElementAt(item, u"Password");
    return password && AttributeOf(*password, kMark);
}

void SettingsDocument::Mark(const std::vector<SettingsProblem>& problems) {
    for (const SettingsProblem& problem : problems) {
        if (const ElementPtr element = ElementAt(*m_root, platform::FromUtf8(problem.path).c_str()))
            Require(element->WriteAttribute(kKept, Bstr(platform::FromUtf8(problem.key)).Get()),
                    "take an attribute");
    }
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

bool SettingsDocument::Put(const CameraEntry& camera) {
    CameraEntry present;
    ElementPtr item = FindCamera(camera.name, &present);
    if (item && present == camera)
        return false;
    if (!item) {
        ElementPtr list = ElementAt(*m_root, u"cams");
        if (!list)
            Require(m_root->CreateChild(u"cams", list.Receive()), "take an element");
        if (const ElementPtr pattern = ElementAt(*m_root, u"addcam/item")) {
            Require(pattern->Clone(item.Receive()), "be copied");
            Require(list->AppendChild(item.Get(), 0), "take an element");
        } else {
            Require(list->CreateChild(u"item", item.Receive()), "take an element");
        }
    }
    SetChild(*item, u"Name", camera.name);
    SetChild(*item, u"Type", camera.type);
    SetChild(*item, u"Password", camera.password);
    return true;
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

} // namespace host
