// A tree of nodes and those who hold its nodes; how operations of both give what they find. Private to this
// folder.
#pragma once

#include <exception>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include <optional>
#include <pugixml.hpp>

#include "platform/configdoc/configdoc.h"

namespace platform {

class Tree;

// Somebody who holds a node: knows where it is now. A tree knows its holders, so that it can tell them when
// their nodes move into another tree; the holders keep the tree alive.
class Holder {
public:
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    [[nodiscard]] const pugi::xpath_node& Place() const noexcept { return m_node; }
    [[nodiscard]] pugi::xml_node Node() const noexcept { return m_node.node(); }
    [[nodiscard]] pugi::xml_attribute Attribute() const noexcept { return m_node.attribute(); }
    [[nodiscard]] const std::shared_ptr<Tree>& Home() const noexcept { return m_tree; }

    // What the node is given out as.
    virtual IConfigNode* AsNode() noexcept = 0;
    // For the trees alone, when the node has moved.
    void Follow(std::shared_ptr<Tree> tree, const pugi::xpath_node& node) noexcept;

protected:
    Holder(std::shared_ptr<Tree> tree, const pugi::xpath_node& node);
    ~Holder();

private:
    std::shared_ptr<Tree> m_tree;
    pugi::xpath_node m_node; // an attribute with its element, or a node alone
};

// A document, or an element that stands alone: at most one element at the top. One thread at a time.
class Tree : public std::enable_shared_from_this<Tree> {
public:
    Tree() = default;
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    // Nothing for a text that is no document. The text is UTF-8.
    static std::shared_ptr<Tree> Parse(std::string_view document);

    [[nodiscard]] pugi::xml_document& Document() noexcept { return m_document; }
    [[nodiscard]] pugi::xml_node Root() const noexcept { return m_document.document_element(); }

    // Whoever holds a node; a new object when nobody does. Null when memory is short.
    ComPtr<IConfigNode> Hold(const pugi::xpath_node& node);

    // Moves a node with all below it, and those who hold any of it, to the end of the children of `parent`,
    // which stands in `target`.
    void Move(pugi::xml_node node, Tree& target, pugi::xml_node parent);
    // The same into a tree of its own.
    void MoveOut(pugi::xml_node node);

private:
    friend class Holder;

    void PassHolder(const pugi::xpath_node& from, Tree& target, const pugi::xpath_node& to);

    pugi::xml_document m_document;
    std::unordered_map<const void*, Holder*> m_holders; // by the node's place in memory
};

// What a node is known by: its place in memory.
inline const void* IdentityOf(const pugi::xpath_node& node) noexcept {
    return node.attribute() ? static_cast<const void*>(node.attribute().internal_object())
                            : node.node().internal_object();
}

// All text that stands directly in an element, without that of its children.
std::string OwnText(pugi::xml_node element);
// Replaces it by one piece in front of the children; without text no piece is left.
void SetOwnText(Tree& tree, pugi::xml_node element, const std::string& text);

// An element or a piece of text as it stands in a document; indented, where that changes no value, or not.
enum class Layout { Plain, Indented };
std::string XmlOf(pugi::xml_node node, Layout layout = Layout::Plain);

// Runs an operation's body, so that no exception crosses the interface.
template <class Body>
HRESULT Guard(Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_UNEXPECTED; // the XML library's own complaint
    }
}

// The same for one that gives an object or a text, which is null until the body fills the place.
template <class Result, class Body>
HRESULT Give(Result** place, Body body) noexcept {
    if (place == nullptr)
        return E_POINTER;
    *place = nullptr;
    return Guard(body);
}

// Puts an element, with a reference, into the place.
HRESULT GiveElement(Tree& tree, pugi::xml_node element, IConfigElement** place);

// --- What is looked at before a parser sees a document ---

// Can an XML document hold this text? Valid UTF-8 without control characters but tab, line feed and carriage
// return, and without U+FFFE and U+FFFF.
bool IsXmlText(std::string_view utf8) noexcept;

// Is it a name that an element or an attribute may have, with or without a prefix?
bool IsXmlName(std::string_view utf8) noexcept;

// The wide text in UTF-8; nothing when it is no text that XML can hold.
std::optional<std::string> XmlTextOf(std::u16string_view text);

// Walks once through a document in UTF-8 and says whether a parser may have it: within the limits of
// configdoc.h, text as above, no document type, no entity but the five of XML, only references to characters
// that XML can hold. What it does not look at is whether tags match; that is the parser's work.
bool IsHarmless(std::string_view document) noexcept;

} // namespace platform
