#include "host/settings/document.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <stdexcept>

#include "host/users/user_store.h"
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
// As long for every password: its length is nobody's business.
constexpr std::u16string_view kDots = u"••••••••";

void Require(HRESULT hr, const char* what) {
    if (FAILED(hr))
        throw std::runtime_error(std::string("the settings document refuses to ") + what);
}

std::u16string ValueOf(IConfigNode& node) {
    Bstr value;
    Require(node.GetValue(value.Receive()), "give a value");
    return std::u16string(value.View());
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

ElementPtr ElementAt(IConfigElement& element, const char16_t* path) {
    ComPtr<IConfigNode> node;
    return SUCCEEDED(element.SelectOne(path, node.Receive())) ? node.Query<IConfigElement>() : nullptr;
}

bool IsReadable(IConfigElement& camera) {
    return std::ranges::all_of(std::array{u"Name", u"Type", u"Password"}, [&](const char16_t* name) {
        const ElementPtr child = ElementAt(camera, name);
        Bstr type;
        return child && child->ReadAttribute(u"type", type.Receive()) == S_OK && type.View() == u"BSTR";
    });
}

void SetChild(IConfigElement& element, const char16_t* name, std::string_view value) {
    ElementPtr child = ElementAt(element, name);
    if (!child) {
        Require(element.CreateChild(name, child.Receive()), "take an element");
        Require(child->WriteAttribute(u"type", Bstr(u"BSTR").Get()), "take an attribute");
    }
    SetValue(*child, platform::FromUtf8(value));
}

CameraEntry ReadCamera(IConfigElement& item) {
    return {platform::ToUtf8(ValueAt(item, u"Name")), platform::ToUtf8(ValueAt(item, u"Type")),
            platform::ToUtf8(ValueAt(item, u"Password"))};
}

ComPtr<IConfigDocument> NewDocument() {
    ComPtr<IConfigDocument> document;
    Require(platform::CoCreateInstance(kConfigDocumentClass, nullptr, platform::kContextAll,
                                       IConfigDocument::iid, document.ReceiveVoid()),
            "exist");
    return document;
}

} // namespace

bool SettingsDocument::IsDocumentFile(const std::string& path) {
    ComPtr<IConfigDocument> document = NewDocument();
    ElementPtr root;
    if (document->Load(platform::FromUtf8(path).c_str(), 0) != S_OK ||
        document->GetRootElement(root.Receive()) != S_OK)
        return false;
    Bstr name;
    Require(root->GetName(name.Receive()), "give a name");
    // The component stops at the first camera that it cannot read, and the ones after it are lost as well.
    return name.View() == u"config" &&
           std::ranges::all_of(SettingsDocument(std::move(document), std::move(root)).Select(kCameras),
                               [](const ElementPtr& camera) { return IsReadable(*camera); });
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

std::vector<ElementPtr> SettingsDocument::Select(const char16_t* expression) const {
    ComPtr<IConfigEnum> nodes;
    Require(m_root->SelectNodes(expression, nodes.Receive()), "be searched");
    std::vector<ElementPtr> elements;
    for (ComPtr<IConfigNode> node; nodes->Next(1, node.Receive(), nullptr) == S_OK;) {
        if (ElementPtr element = node.Query<IConfigElement>())
            elements.push_back(std::move(element));
    }
    return elements;
}

std::vector<std::u16string> SettingsDocument::Passwords() const {
    std::vector<std::u16string> passwords;
    for (const ElementPtr& element : Select(kPasswords))
        passwords.push_back(ValueOf(*element));
    return passwords;
}

void SettingsDocument::ConcealPasswords() {
    std::size_t number = 0;
    for (const ElementPtr& element : Select(kPasswords)) {
        if (!ValueOf(*element).empty()) {
            const std::u16string mark = platform::FromUtf8(std::to_string(number));
            Require(element->WriteAttribute(kMark, Bstr(mark).Get()), "take an attribute");
            SetValue(*element, kDots);
        }
        ++number;
    }
}

bool SettingsDocument::RestorePasswords(const std::vector<std::u16string>& passwords) {
    for (const ElementPtr& element : Select(kPasswords)) {
        Bstr mark;
        const HRESULT hr = element->ReadAttribute(kMark, mark.Receive());
        Require(hr, "give an attribute");
        if (hr != S_OK)
            continue;
        const std::string digits = platform::ToUtf8(mark.View());
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error != std::errc{} || end != digits.data() + digits.size() || number >= passwords.size())
            return false;
        SetValue(*element, passwords[number]);
    }
    return true;
}

std::vector<CameraEntry> SettingsDocument::Cameras() const {
    std::vector<CameraEntry> cameras;
    for (const ElementPtr& item : Select(kCameras))
        cameras.push_back(ReadCamera(*item));
    return cameras;
}

std::vector<SettingsProblem>
SettingsDocument::Check(const std::function<bool(std::string_view)>& isTaken) const {
    std::vector<SettingsProblem> problems;
    std::set<std::string> names;
    std::size_t number = 0;
    for (const CameraEntry& camera : Cameras()) {
        const std::string item = "/config/cams/item[" + std::to_string(++number) + "]";
        const auto add = [&](const char* child, const char* key, std::string text) {
            problems.push_back({item + "/" + child, key, std::move(text)});
        };
        if (camera.name.empty())
            add("Name", "mustNotBeEmpty", "a camera has a name");
        else if (const std::string wrong = CheckLogin(camera.name); !wrong.empty())
            add("Name", camera.name.size() > kMaxLoginBytes ? "loginTooLong" : "loginCharacters",
                "a camera's name is its phone's login: " + wrong);
        else if (!names.insert(camera.name).second)
            add("Name", "mustBeUnique", "another camera has this name");
        else if (isTaken(camera.name))
            add("Name", "loginTaken", "a user who is no phone has this login");
        if (camera.password.empty())
            continue; // it is stored, and no phone can sign in
        if (const std::string wrong = CheckPassword(camera.password, UserKind::Phone); !wrong.empty())
            add("Password",
                camera.password.size() > kMaxPhonePasswordBytes ? "passwordTooLong" : "passwordCharacters",
                wrong);
    }
    return problems;
}

ElementPtr SettingsDocument::FindCamera(std::string_view name, CameraEntry* found) const {
    for (const ElementPtr& item : Select(kCameras)) {
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

bool SettingsDocument::OfferHost(std::string_view address) {
    if (address.empty() || !ValueAt(*m_root, u"host").empty())
        return false;
    SetChild(*m_root, u"host", address);
    return true;
}

} // namespace host
