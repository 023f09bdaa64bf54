// A configuration document, and the reading, making and merging of its elements.
//
// A thin layer over platform/configdoc: no lock, no shared state; a document belongs to one thread at a time,
// and the owner of one that lives longer holds its own lock. Texts compare exactly; null and empty are equal.
// Exhausted memory leaves as an exception, which the interface operations turn into a status.
#pragma once

#include <cstdint>

#include "platform/com.h"
#include "platform/configdoc/configdoc.h"
#include "platform/text.h"

namespace XmlConfig {

// The empty document. No element uses the prefix; it is only carried along.
inline constexpr char16_t kRootTemplate[] = u"<config xmlns:xpt=\"http://morrowstream.example/Kelp/xpt\"/>";

// The text of an attribute. E_ELEMENT_NOT_FOUND, the text untouched, when the element has none of that name;
// E_POINTER for a null element, which is reported. (Attributes are read on the element itself: there is no
// second view of it that could be missing.)
HRESULT GetAttributeValue(IConfigElement* pConfigElement, const char16_t* szName, platform::Bstr& bstrValue);
HRESULT SetAttributeValue(IConfigElement* pConfigElement, const char16_t* szName,
                          const platform::Bstr& bstrValue);

// Name and value of a node; the status of the one that fails.
HRESULT GetNameAndValue(IConfigNode* pNode, platform::Bstr& bstrName, platform::Bstr& bstrValue);

// The value of the first node that the expression selects; for a backtick and a text, that text, and nothing
// is asked of the element.
HRESULT GetValueOfPath(IConfigElement* pConfigElement, const char16_t* szPath, platform::Bstr& bstrValue);

// The first element that the path selects; without one a new one, if bCreate, else null. Null is also what a
// selected node gives that is no element, and what a failure gives.
platform::ComPtr<IConfigElement> SelectOrCreate(IConfigElement* pConfigElement, const char16_t* szPath,
                                                bool bCreate);
// Follows the names between the "/" of a path, making what is missing, and makes a new element of the last
// name, even if there is one. Null on failure.
platform::ComPtr<IConfigElement> CreatePath(IConfigElement* pConfigElement, const char16_t* szPath);

// The text with the five entities of XML in place of their characters; null for null.
platform::Bstr EscapeXml(const platform::Bstr& bstrText);

// One document, its root element, and the path that it came from. Copies share document and root.
class CXmlConfig {
public:
    // What becomes of children and differing values when Merge folds one element into another. Any other
    // number is as eMatch.
    enum EMerge : std::uint32_t {
        eAppend = 0,   // children are not matched: all of right's are appended; right's value wins
        eMatch = 1,    // children are matched and merged, the others of right appended; right's value wins
        eUpdate = 2,   // the same, but the others of right are dropped
        eConflict = 3, // as eMatch, but left's value stays and left gets conflict="true"
        eJoin = 4,     // as eMatch, but the value becomes left's followed by right's
    };

    // Makes the document and, if either argument is not null, loads it. The status is not kept: who needs it
    // calls Load.
    explicit CXmlConfig(const platform::Bstr& bstrPath = nullptr,
                        const platform::Bstr& bstrDefault = nullptr);

    // Reads the file or, if it is missing, empty or damaged, the default text, which may also hold UTF-8
    // bytes. Either may be null. E_UNEXPECTED without a document, E_INVALIDARG without anything to load,
    // E_FAIL without a root, or the document's status. The path is kept in any case.
    HRESULT Load(const platform::Bstr& bstrPath, const platform::Bstr& bstrDefault);
    // Writes the file. E_UNEXPECTED without a document.
    HRESULT Save(const platform::Bstr& bstrPath);
    HRESULT UpdateRootElement();

    // Null when there is no document or it has no text.
    [[nodiscard]] platform::Bstr GetXml() const;
    [[nodiscard]] IConfigElement* Root() const noexcept { return m_spRoot.Get(); }
    explicit operator IConfigElement*() const noexcept { return Root(); }
    [[nodiscard]] const platform::Bstr& Path() const noexcept { return m_bstrPath; }

    // Folds pRight, which stays as it is, into pLeft. The attributes of right overwrite left's. S_FALSE,
    // nothing changed, for a left with readonly="true"; E_INVALIDARG when both have a type and the two
    // differ; E_NOTIMPL when left's children have a key and right's have none. A failure leaves what was
    // merged by then.
    static HRESULT Merge(IConfigElement* pLeft, IConfigElement* pRight, std::uint32_t nMode);

private:
    platform::ComPtr<IConfigDocument> m_spDocument;
    platform::ComPtr<IConfigElement> m_spRoot; // null until a load succeeds
    platform::Bstr m_bstrPath;
};

// Calls use(IConfigNode*) for each node that an expression selects, until one gives a failure. The status of
// the last call or of the selection.
template <class Use>
HRESULT ForEachNode(IConfigElement* pElement, const char16_t* szExpression, Use use) {
    platform::ComPtr<IConfigEnum> spNodes;
    HRESULT hr = pElement->SelectNodes(szExpression, spNodes.Receive());
    platform::ComPtr<IConfigNode> spNode;
    while (SUCCEEDED(hr) && spNodes->Next(1, spNode.Receive(), nullptr) == S_OK)
        hr = use(spNode);
    return hr;
}

// The same for elements; E_NOINTERFACE for a node that is none.
template <class Use>
HRESULT ForEachElement(IConfigElement* pElement, const char16_t* szExpression, Use use) {
    return ForEachNode(pElement, szExpression, [&](const platform::ComPtr<IConfigNode>& spNode) -> HRESULT {
        const auto spElement = spNode.template Query<IConfigElement>();
        return spElement ? use(spElement) : E_NOINTERFACE;
    });
}

} // namespace XmlConfig
