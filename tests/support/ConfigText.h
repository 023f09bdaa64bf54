// Configuration documents as UTF-8 text, for tests.
#pragma once

#include <string>
#include <string_view>

#include "platform/configdoc/configdoc.h"
#include "platform/text.h"

namespace support {

inline platform::ComPtr<IConfigDocument> NewDocument() {
    (void)platform::RegisterConfigDocumentClass();
    platform::ComPtr<IConfigDocument> document;
    (void)platform::CoCreateInstance(kConfigDocumentClass, nullptr, platform::kContextAll,
                                     IConfigDocument::iid, document.ReceiveVoid());
    return document;
}

inline platform::Bstr WideOf(std::string_view utf8) {
    return platform::Bstr(platform::FromUtf8(utf8));
}

inline platform::ComPtr<IConfigElement> RootOf(const platform::ComPtr<IConfigDocument>& document) {
    platform::ComPtr<IConfigElement> root;
    (void)document->GetRootElement(root.Receive());
    return root;
}

// The root of a new document; null for a text that is none.
inline platform::ComPtr<IConfigElement> ElementFrom(std::string_view xml) {
    const auto document = NewDocument();
    (void)document->LoadXml(WideOf(xml).Get());
    return RootOf(document);
}

// "(null)" for null.
inline std::string TextOf(const platform::Bstr& text) {
    return text.IsNull() ? "(null)" : platform::ToUtf8(text.View());
}

template <class Node>
std::string XmlOf(const platform::ComPtr<Node>& node) {
    platform::Bstr xml;
    return node && SUCCEEDED(node->GetXml(xml.Receive())) ? TextOf(xml) : "(none)";
}

inline std::string ValueOf(const platform::ComPtr<IConfigElement>& element, const char16_t* expression) {
    platform::Bstr value;
    return FAILED(element->GetValueOf(expression, value.Receive())) ? "(none)" : TextOf(value);
}

inline platform::ComPtr<IConfigElement> Find(const platform::ComPtr<IConfigElement>& from,
                                             const char16_t* expression) {
    platform::ComPtr<IConfigNode> node;
    (void)from->SelectOne(expression, node.Receive());
    return node.Query<IConfigElement>();
}

// The nodes that an expression selects, as text with blanks between; the status when there are none.
inline std::string Selection(const platform::ComPtr<IConfigElement>& from, const char16_t* expression) {
    platform::ComPtr<IConfigEnum> nodes;
    const HRESULT hr = from->SelectNodes(expression, nodes.Receive());
    if (FAILED(hr))
        return hr == E_INVALIDARG ? "refused" : "failed";
    std::string all;
    platform::ComPtr<IConfigNode> node;
    while (nodes->Next(1, node.Receive(), nullptr) == S_OK)
        all += (all.empty() ? "" : " ") + XmlOf(node);
    return all;
}

} // namespace support
