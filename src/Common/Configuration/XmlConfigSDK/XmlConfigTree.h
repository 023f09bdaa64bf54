// Binds program objects to a configuration document, in both directions with one description: a chain of
// steps on a cursor. In store mode the chain makes elements and writes values; in load mode it finds and
// reads them.
//
//     CXmlConfigTree oTree(pRoot, bStore);
//     oTree.Bind(CTag(u"host", m_bstrHost)).Attr({u"displayname", &bstrHostName}).End();
//
// A cursor without an element takes every step without effect, so that a missing part of a document ends its
// own branch alone. Cursors and tags belong to one thread; the owner of document and objects holds its lock
// through the whole chain.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "Common/Configuration/XmlConfigSDK/XmlCollection.h"
#include "platform/com.h"
#include "platform/configdoc/configdoc.h"
#include "platform/text.h"

// A tag without a bound object: a name or a path, static. Not enabled, it is switched off with all below it.
struct CTagName {
    const char16_t* szName;
    bool bEnable = true;
};

// An attribute bound to a text variable, which is read in store mode and replaced in load mode.
struct CTagAttr {
    std::u16string strName;
    platform::Bstr* pbstrValue;
};

struct CTag;

class CXmlConfigTree {
public:
    struct CPolicy {
        using value = std::uint32_t;
        static constexpr value eDefault = 0;
        // A collection is updated item by item in its own order; none is added or removed.
        static constexpr value eInOrder = 1;
    };

    // Hears what happens to a tag. It is not counted, and outlives the chain.
    struct ITagEvent {
        static constexpr std::uint32_t eFound = 1;   // load: the element is there, before the object is read
        static constexpr std::uint32_t eAbsent = 2;  // load: it is not; the element given is null
        static constexpr std::uint32_t eCreated = 4; // load: a new item, with its element
        // load: an item is about to go, with the element that it would write
        static constexpr std::uint32_t eRemoved = 8;

        virtual HRESULT OnEvent(std::uint32_t nCode, void* pObject, IConfigElement* pElement) = 0;
        // The codes that the receiver wants.
        virtual std::uint32_t GetMask(std::uint32_t nCode, IConfigElement* pElement) = 0;

    protected:
        ~ITagEvent() = default;
    };

    // A root cursor, on any element or on null. With bAppend a child tag is always made new in store mode.
    CXmlConfigTree(IConfigElement* pElement, bool bStore, bool bAppend = true);

    [[nodiscard]] CXmlConfigTree Descend(const CTagName& oTagName) const;
    // Does not tell what became of the object: the chain goes on.
    [[nodiscard]] CXmlConfigTree Bind(const CTag& oTag) const;
    const CXmlConfigTree& Attr(const CTagAttr& oTagAttr) const;
    // Back to the parent; a root cursor stays where it is.
    CXmlConfigTree End() const;
    [[nodiscard]] CXmlConfigTree Root() const;

    [[nodiscard]] IConfigElement* Element() const noexcept { return m_spState->spElement.Get(); }
    explicit operator IConfigElement*() const noexcept { return Element(); }
    [[nodiscard]] bool IsStore() const noexcept { return m_spState->bStore; }

    // The names in CThreadArg under which a tag's policy and receiver reach the collection.
    static constexpr char kPolicyArg[] = "CXmlConfigTree::CPolicy::value";
    static constexpr char kEventArg[] = "CXmlConfigTree::ITagEvent";

private:
    struct SState {
        platform::ComPtr<IConfigElement> spElement;
        bool bStore;
        bool bAppend;
        std::shared_ptr<SState> spParent; // null at the root
        std::vector<bool> aEnabled;       // of the root alone: one entry for each tag that is open
    };

    explicit CXmlConfigTree(std::shared_ptr<SState> spState) noexcept : m_spState(std::move(spState)) {}
    [[nodiscard]] SState& RootState() const noexcept;
    [[nodiscard]] CXmlConfigTree Reach(const CTagName& oTagName, bool bForceAppend, bool& bAbsent) const;

    std::shared_ptr<SState> m_spState;
};

// A tag with a bound object: a text or a collection, which outlives the chain.
struct CTag {
    template <class Map>
    CTag(const char16_t* name, Map& oMap)
        : szName(name), pCollection(std::make_shared<CMapCollection<Map>>(oMap)) {}
    CTag(const char16_t* name, platform::Bstr& bstrText) : szName(name), pText(&bstrText) {}

    [[nodiscard]] void* Object() const noexcept { return pText != nullptr ? pText : pCollection->Object(); }

    const char16_t* szName; // or path, static
    platform::Bstr* pText = nullptr;
    std::shared_ptr<ICollection> pCollection;
    CXmlConfigTree::ITagEvent* pEvents = nullptr;
    CXmlConfigTree::CPolicy::value nPolicy = CXmlConfigTree::CPolicy::eDefault;
    bool bEnable = true;
    bool bForceAppend = false;
    std::vector<CTagAttr> aAttributes; // written or read before the object is
};

namespace XmlConfig {

// A text as the value of an element, with type="BSTR". A null element is an exception with E_FAIL.
HRESULT SaveText(const platform::Bstr& bstrText, IConfigElement* pElement);
// E_ELEMENT_NOT_FOUND without a type and E_INVALIDARG for another one, the text unchanged. No value reads as
// an empty text, not null.
HRESULT LoadText(platform::Bstr& bstrText, IConfigElement* pElement);

} // namespace XmlConfig
