// Configuration documents: XML trees behind reference-counted interfaces.
//
// The document, its nodes and the enumerations of one tree belong to one thread at a time. A node stays good
// for as long as somebody holds it: after its document is gone or was loaded anew, after it was removed from
// its parent, and after it moved into another document. Text that comes out is the caller's to free.
//
// Names, expressions and paths are zero-terminated. Values are counted and hold what XML can hold: no control
// characters but tab, line feed and carriage return, no surrogate without its partner; others give
// E_INVALIDARG. Every operation may return E_OUTOFMEMORY, and E_POINTER for a null out parameter; on failure
// what comes out is null, unless an operation says otherwise.
//
// Expressions are abbreviated XPath 1.0 location paths: names, "*", "@", "/", "//" (once), ".", "..", text(),
// node(), and predicates that hold paths downwards, comparisons with a text or a number, and "and" and "or".
// They start at the element; "/" stands for the top of its tree. The five entities of XML in a quoted text
// stand for their characters, so that any text can be asked for. Everything else, among it all that could
// take longer than a walk through the tree, gives E_INVALIDARG.
#pragma once

#include <cstdint>

#include "platform/com.h"
#include "platform/export.h"
#include "platform/text.h"

// An element, an attribute, or a piece of text.
struct IConfigNode : IUnknown {
    static constexpr GUID iid{0x8C1E6A40, 0x52D7, 0x4B0E, {0x9B, 0x31, 0x6E, 0x0D, 0xA4, 0x7F, 0x25, 0xC1}};

    // The value of an element is its own text, not that of its children: setting it leaves them in place.
    // Null is an empty text. Text and CDATA that adjoin each other in a document are one piece.
    virtual HRESULT SetValue(BSTR value) = 0;
    // Null for an element without text.
    virtual HRESULT GetValue(BSTR* value) = 0;
    // "#text" for a piece of text.
    virtual HRESULT GetName(BSTR* name) = 0;
    // The element with all below it, as text: not indented, without declaration.
    virtual HRESULT GetXml(BSTR* xml) = 0;

protected:
    ~IConfigNode() = default;
};

struct IConfigAttribute : IConfigNode {
    static constexpr GUID iid{0x2F7B9D15, 0x0C64, 0x4E8A, {0xA7, 0x5C, 0x13, 0xE8, 0x6B, 0x90, 0xD2, 0x4F}};

protected:
    ~IConfigAttribute() = default;
};

// The nodes that an expression selected when it was evaluated.
struct IConfigEnum : IUnknown {
    static constexpr GUID iid{0xD45A03E8, 0x91BF, 0x4C27, {0x8E, 0x6D, 0x7A, 0x21, 0xF9, 0x5B, 0x0C, 0x38}};

    // Fills `nodes` with the next `count` nodes. S_OK: all of them; S_FALSE: fewer, for the end was reached.
    // `fetched`, which may be null for a count of 1, gets how many.
    virtual HRESULT Next(std::uint32_t count, IConfigNode** nodes, std::uint32_t* fetched) = 0;

protected:
    ~IConfigEnum() = default;
};

struct IConfigElement : IConfigNode {
    static constexpr GUID iid{0x6B90C2F7, 0xE13A, 0x45D8, {0xB4, 0x1F, 0x58, 0xC6, 0x0E, 0x97, 0x3D, 0xA2}};

    // All nodes that the expression selects, in document order; none is an empty enumeration.
    virtual HRESULT SelectNodes(const char16_t* expression, IConfigEnum** nodes) = 0;
    // The first one. E_ELEMENT_NOT_FOUND when there is none.
    virtual HRESULT SelectOne(const char16_t* expression, IConfigNode** node) = 0;
    // S_FALSE and null when the element has no such attribute.
    virtual HRESULT GetAttribute(const char16_t* name, IConfigAttribute** attribute) = 0;
    // The text of an attribute. S_FALSE, the place untouched, when the element has none of that name.
    virtual HRESULT ReadAttribute(const char16_t* name, BSTR* value) = 0;
    // Makes the attribute, or gives it another text.
    virtual HRESULT WriteAttribute(const char16_t* name, BSTR value) = 0;
    // A new element at the end of the children.
    virtual HRESULT CreateChild(const char16_t* name, IConfigElement** child) = 0;
    // Takes the element out of where it stands, in whatever document, and makes it the last child here.
    // `options` is 0. E_INVALIDARG for an element that this one stands in (or is), and for one that is no
    // element of this library.
    virtual HRESULT AppendChild(IConfigElement* element, std::int32_t options) = 0;
    // A deep copy that stands alone.
    virtual HRESULT Clone(IConfigElement** copy) = 0;
    // Takes the element out of its parent: it stands alone from then on. S_FALSE when it did already.
    virtual HRESULT Remove() = 0;
    // The value of the first node selected. E_ELEMENT_NOT_FOUND when there is none.
    virtual HRESULT GetValueOf(const char16_t* expression, BSTR* value) = 0;

protected:
    ~IConfigElement() = default;
};

// What a document refuses with kStatusNotADocument, in time and memory that its size bounds: text that is not
// well-formed, bytes that are not valid UTF-8 (or UTF-16 behind a byte order mark), document types and
// entities of one's own, and more than the limits below.
struct IConfigDocument : IUnknown {
    static constexpr GUID iid{0x41D8F6B3, 0x7A05, 0x4C9E, {0x92, 0xE4, 0x0B, 0x6F, 0xC3, 0x18, 0x5D, 0x7E}};

    // Reads a file. On failure the document is as it was. `options` is 0, here and below.
    virtual HRESULT Load(const char16_t* path, std::int32_t options) = 0;
    // Replaces a file: a crash at any point leaves the old or the new one. The file is UTF-8, with a
    // declaration, indented where that changes no value. E_UNEXPECTED while there is no root element.
    virtual HRESULT Save(const char16_t* path, std::int32_t options) = 0;
    // Parses a text. An encoding that its declaration names does not count. On failure the document is as it
    // was.
    virtual HRESULT LoadXml(BSTR xml) = 0;
    // The root element as text; E_UNEXPECTED while there is none.
    virtual HRESULT GetXml(BSTR* xml) = 0;
    // S_FALSE and null while there is none.
    virtual HRESULT GetRootElement(IConfigElement** root) = 0;

protected:
    ~IConfigDocument() = default;
};

inline constexpr GUID kConfigDocumentClass{
    0x0E5C71A9, 0xB82D, 0x4F36, {0x86, 0x3B, 0xD9, 0x47, 0x12, 0xAF, 0x60, 0xC5}};

namespace platform {

// The text is no document, or none that is taken ("The data is invalid.").
inline constexpr HRESULT kStatusNotADocument = StatusFromError(kErrorInvalidData);

inline constexpr std::size_t kDocumentBytesLimit = std::size_t{16} << 20; // as UTF-8
inline constexpr std::size_t kDocumentMarksLimit = 500'000;               // tags and attributes
inline constexpr std::size_t kDocumentDepthLimit = 100;                   // elements within elements
inline constexpr std::size_t kElementAttributesLimit = 256;
inline constexpr std::size_t kExpressionUnitsLimit = 65536;
inline constexpr std::size_t kExpressionTokensLimit = 200;

// Registers the class above in this process, where it is from the start: for whoever has revoked it.
MORROW_PLATFORM_API HRESULT RegisterConfigDocumentClass();

} // namespace platform
