// The process state tree: named nodes of one process, in which components publish objects for each other.
//
// Implemented by the host, as the class below. There is one tree in a process: every object of the class is a
// door to the same nodes, and the nodes outlive it. The tree keeps its own lock and may be used from any
// thread; it must not hold that lock while it releases a value, since that may run anybody's code.
#pragma once

#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/com.h"
#include "platform/text.h"

// A path is a list of names with "/" between them, relative to the node that it is given to. Names are
// compared exactly, by UTF-16 code units.
//
// Operations with a number for a name keep their places in the table; nobody in the component calls them.
struct IProcessStateNode : IUnknown {
    static constexpr GUID iid{0x7D672717, 0x22EF, 0x4738, {0x9E, 0x73, 0x60, 0x80, 0xA4, 0x1E, 0xD2, 0x3A}};

    virtual HRESULT Reserved1() { return E_NOTIMPL; }
    // The node takes a reference of its own to the value and lets go of the one before. Null empties it.
    // S_OK; any failure leaves the old value.
    virtual HRESULT SetValue(IUnknown* pValue) = 0;
    // The value, with a new reference. A node without a value gives a failure, or success with null: the
    // component takes either for "nothing there". E_POINTER.
    virtual HRESULT GetValue(IUnknown** ppValue) = 0;
    virtual HRESULT Reserved4() { return E_NOTIMPL; }
    // Takes a node, with all below it, out of the tree; their values are released, unless somebody else holds
    // the node itself. "." names this node. E_ELEMENT_NOT_FOUND for a path that is not there and for a node
    // that is out of the tree already. A removed node stays usable for those who hold it, and is found by
    // nobody.
    virtual HRESULT RemoveNode(const char16_t* szPath) = 0;
    virtual HRESULT Reserved6() { return E_NOTIMPL; }
    virtual HRESULT Reserved7() { return E_NOTIMPL; }
    virtual HRESULT Reserved8() { return E_NOTIMPL; }
    // The node at the path, with a new reference. With bCreate 1, nodes that are missing on the way are made,
    // empty; with 0 a missing one is E_ELEMENT_NOT_FOUND. On failure *ppNode is null or untouched, and
    // carries no reference. E_INVALIDARG for a path with an empty name; E_POINTER; E_OUTOFMEMORY.
    virtual HRESULT GetNode(const char16_t* szPath, std::int32_t bCreate, IProcessStateNode** ppNode) = 0;

protected:
    ~IProcessStateNode() = default;
};

struct IProcessStateTree : IUnknown {
    static constexpr GUID iid{0x320469B3, 0xF05D, 0x4F9D, {0x8B, 0x53, 0xBB, 0x62, 0x53, 0x8D, 0xC2, 0x98}};

    // The node above all others, with a new reference; always the same one. E_POINTER.
    virtual HRESULT GetRootNode(IProcessStateNode** ppNode) = 0;

protected:
    ~IProcessStateTree() = default;
};

// The component creates an object of this class for each lookup and lets go of it at once.
inline constexpr GUID kProcessStateTreeClass{
    0xE84471FE, 0x4D4D, 0x4042, {0xB9, 0x95, 0x35, 0x5F, 0x1B, 0x87, 0x18, 0x0B}};

namespace NSProcessStateTree {

// A value that a thread publishes for the code that it calls. A reader asks the node's value for this
// identifier, compares m_szType as text with typeid(T).name() of the type that it expects (texts, not
// pointers: each module has its own copy), and may use *m_pValue as a T during the call in which it found it,
// on the publishing thread alone.
struct CThreadArgumentValue : IUnknown {
    static constexpr GUID iid{0x44369AAA, 0xC7EF, 0x4849, {0xB8, 0xB3, 0x3F, 0x18, 0xB2, 0xCC, 0xFA, 0xC4}};

    const char* m_szType = nullptr; // static text of the publisher's module
    void* m_pValue = nullptr;       // not owned; lives on the publisher's stack

protected:
    ~CThreadArgumentValue() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<CThreadArgumentValue>(this, interfaceId, object);
    }
};

// Where a thread's argument of that name stands: "WebServer/CurrentRequest" and the thread 0x1A2C give
// "WebServer/CurrentRequest/1a2c". The number is platform::CurrentThreadId() of the publishing thread.
inline std::u16string ThreadArgumentPath(std::u16string_view name, std::uint32_t nThread) {
    std::array<char, 8> aDigits{};
    const auto oEnd = std::to_chars(aDigits.data(), aDigits.data() + aDigits.size(), nThread, 16);
    std::u16string path(name);
    path += u'/';
    path += platform::FromUtf8({aDigits.data(), oEnd.ptr});
    return path;
}

} // namespace NSProcessStateTree
