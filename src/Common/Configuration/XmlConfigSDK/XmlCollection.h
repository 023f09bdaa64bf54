// Collections of objects and their elements.
//
// A collection is an ordered map from a key text to a reference to an object, which reads and writes itself
// with HRESULT operator<<(IConfigElement*) and HRESULT operator>>(IConfigElement*). Each entry is an element
// `item`. The key is the value that the attribute KeyXPath of the collection's element leads to, or else a
// child `key`.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/com.h"
#include "platform/configdoc/configdoc.h"
#include "platform/text.h"

// A map as the binding sees it: entries by their position at the last Refresh.
class ICollection {
public:
    virtual ~ICollection() = default;

    // The map itself, for the receivers of events.
    virtual void* Object() noexcept = 0;
    // Notes the entries as they are now, in their order; how many there are. Positions stay good while
    // entries are erased.
    virtual std::size_t Refresh() = 0;
    virtual std::u16string_view Key(std::size_t nEntry) const = 0;
    // The object writes or reads itself.
    virtual HRESULT Store(std::size_t nEntry, IConfigElement* pElement) = 0;
    virtual HRESULT Read(std::size_t nEntry, IConfigElement* pElement) = 0;
    virtual void Erase(std::size_t nEntry) = 0;
    // A new object, which is told its key, reads itself and becomes an entry, unless there is one of that
    // key.
    virtual HRESULT Add(std::u16string_view key, IConfigElement* pElement) = 0;
};

// Map: from std::u16string to ComPtr<Class>. Class::Create() makes an empty object, whose SetKey is called
// before it reads itself: an object that has its key as one of its fields refuses an element with another
// one.
template <class Map>
class CMapCollection : public ICollection {
public:
    explicit CMapCollection(Map& oMap) noexcept : m_oMap(oMap) {}

    void* Object() noexcept override { return &m_oMap; }
    std::size_t Refresh() override {
        m_aEntries.clear();
        m_aEntries.reserve(m_oMap.size());
        for (auto it = m_oMap.begin(); it != m_oMap.end(); ++it)
            m_aEntries.push_back(it);
        return m_aEntries.size();
    }
    std::u16string_view Key(std::size_t nEntry) const override { return m_aEntries.at(nEntry)->first; }
    HRESULT Store(std::size_t nEntry, IConfigElement* pElement) override {
        return *m_aEntries.at(nEntry)->second >> pElement;
    }
    HRESULT Read(std::size_t nEntry, IConfigElement* pElement) override {
        return *m_aEntries.at(nEntry)->second << pElement;
    }
    void Erase(std::size_t nEntry) override { m_oMap.erase(m_aEntries.at(nEntry)); }
    HRESULT Add(std::u16string_view key, IConfigElement* pElement) override {
        using Object = typename Map::mapped_type;
        Object spNew = std::remove_pointer_t<decltype(Object().Get())>::Create();
        if (!spNew)
            return E_OUTOFMEMORY;
        spNew->SetKey(key);
        const HRESULT hr = *spNew << pElement;
        if (SUCCEEDED(hr))
            m_oMap.try_emplace(std::u16string(key), std::move(spNew));
        return hr;
    }

private:
    Map& m_oMap;
    std::vector<typename Map::iterator> m_aEntries;
};

namespace XmlConfig {

// A new element for each entry, in map order; the first failure ends it.
HRESULT SaveCollection(ICollection& oCollection, IConfigElement* pElement);
// Compares the items of the element with those that the objects would write, and changes, removes and makes
// what differs, in this order. A failure ends it; what has been done by then stays. An item whose key is
// taken already changes nothing.
HRESULT LoadCollection(ICollection& oCollection, IConfigElement* pElement);

// Is b like a? S_OK for yes, S_FALSE for no, or a failure. Attributes that b alone has do not count; without
// bDeep, neither do children.
HRESULT Compare(IConfigElement* pA, IConfigElement* pB, bool bDeep);

} // namespace XmlConfig
