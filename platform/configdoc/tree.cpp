#include "platform/configdoc/tree.h"

#include <set>

#include "platform/configdoc/expression.h"

namespace platform {

namespace {

// An element's attribute names differ from each other; the parser does not look.
bool HasDistinctAttributes(pugi::xml_node element) {
    std::set<std::string_view> names;
    for (const pugi::xml_attribute attribute : element.attributes()) {
        if (!names.insert(attribute.name()).second)
            return false;
    }
    return true;
}

// Makes one piece of text of each run of adjoining text and CDATA, which XPath takes for one.
void JoinTexts(pugi::xml_node element) {
    for (pugi::xml_node first = element.first_child(); first; first = first.next_sibling()) {
        if (!IsText(first) || !IsText(first.next_sibling()))
            continue;
        std::string text = first.value();
        while (IsText(first.next_sibling())) {
            text += first.next_sibling().value();
            element.remove_child(first.next_sibling());
        }
        if (first.type() != pugi::node_pcdata) {
            const pugi::xml_node section = first;
            first = element.insert_child_before(pugi::node_pcdata, section);
            element.remove_child(section);
        }
        if (!first || !first.set_value(text.c_str()))
            throw std::bad_alloc();
    }
}

class StringWriter : public pugi::xml_writer {
public:
    void write(const void* data, std::size_t size) override {
        std::string_view text(static_cast<const char*>(data), size);
        // The library leaves a carriage return in text as it is, and a parser would take it for a line end.
        for (std::size_t at = text.find('\r'); at != std::string_view::npos; at = text.find('\r')) {
            m_text.append(text.substr(0, at)).append("&#13;");
            text.remove_prefix(at + 1);
        }
        m_text.append(text);
    }
    std::string Take() noexcept { return std::move(m_text); }

private:
    std::string m_text;
};

// Text without the white space that only lays a document out; a text that is nothing but blanks is kept where
// an element has nothing else, since a password may be.
constexpr unsigned kParseOptions =
    (pugi::parse_default | pugi::parse_ws_pcdata_single) & ~pugi::parse_doctype;

} // namespace

Holder::Holder(std::shared_ptr<Tree> tree, const pugi::xpath_node& node)
    : m_tree(std::move(tree)), m_node(node) {
    m_tree->m_holders.emplace(IdentityOf(m_node), this);
}

Holder::~Holder() {
    m_tree->m_holders.erase(IdentityOf(m_node));
}

void Holder::Follow(std::shared_ptr<Tree> tree, const pugi::xpath_node& node) noexcept {
    m_tree = std::move(tree);
    m_node = node;
}

std::shared_ptr<Tree> Tree::Parse(std::string_view document) {
    if (!IsHarmless(document))
        return nullptr;
    auto tree = std::make_shared<Tree>();
    if (!tree->m_document.load_buffer(document.data(), document.size(), kParseOptions, pugi::encoding_utf8))
        return nullptr;
    struct Check : pugi::xml_tree_walker {
        bool for_each(pugi::xml_node& node) override {
            JoinTexts(node);
            return HasDistinctAttributes(node);
        }
    } check;
    const auto elements = tree->m_document.children();
    std::size_t count = 0;
    for (const pugi::xml_node child : elements)
        count += child.type() == pugi::node_element ? 1 : 0;
    return count == 1 && tree->m_document.traverse(check) ? tree : nullptr;
}

void Tree::PassHolder(const pugi::xpath_node& from, Tree& target, const pugi::xpath_node& to) {
    const auto found = m_holders.find(IdentityOf(from));
    if (found == m_holders.end())
        return;
    Holder* const holder = found->second;
    m_holders.erase(found);
    target.m_holders.emplace(IdentityOf(to), holder);
    holder->Follow(target.shared_from_this(), to);
}

void Tree::Move(pugi::xml_node node, Tree& target, pugi::xml_node parent) {
    if (&target == this) {
        parent.append_move(node);
        return;
    }
    // The last holder of this tree may follow into the other one.
    const std::shared_ptr<Tree> keep = shared_from_this();
    const pugi::xml_node copy = parent.append_copy(node);
    if (!copy)
        throw std::bad_alloc();
    // Both trees have one shape, so one walk through the old nodes finds the new ones.
    pugi::xml_node from = node;
    pugi::xml_node to = copy;
    while (!m_holders.empty()) {
        PassHolder(from, target, to);
        for (auto a = from.first_attribute(), b = to.first_attribute(); a;
             a = a.next_attribute(), b = b.next_attribute())
            PassHolder({a, from}, target, {b, to});
        if (from.first_child()) {
            from = from.first_child();
            to = to.first_child();
            continue;
        }
        while (from != node && !from.next_sibling()) {
            from = from.parent();
            to = to.parent();
        }
        if (from == node)
            break;
        from = from.next_sibling();
        to = to.next_sibling();
    }
    node.parent().remove_child(node);
}

void Tree::MoveOut(pugi::xml_node node) {
    const auto alone = std::make_shared<Tree>();
    Move(node, *alone, alone->m_document);
}

std::string OwnText(pugi::xml_node element) {
    std::string text;
    for (const pugi::xml_node child : element.children()) {
        if (IsText(child))
            text += child.value();
    }
    return text;
}

void SetOwnText(Tree& tree, pugi::xml_node element, const std::string& text) {
    pugi::xml_node kept;
    for (pugi::xml_node child = element.first_child(); child;) {
        const pugi::xml_node next = child.next_sibling();
        if (child.type() == pugi::node_pcdata && !kept && !text.empty())
            kept = child;
        else if (IsText(child))
            tree.MoveOut(child); // somebody may hold it
        child = next;
    }
    if (text.empty())
        return;
    if (!kept)
        kept = element.prepend_child(pugi::node_pcdata);
    if (!kept || !kept.set_value(text.c_str()))
        throw std::bad_alloc();
}

std::string XmlOf(pugi::xml_node node, Layout layout) {
    StringWriter writer;
    node.print(writer, "\t", layout == Layout::Plain ? pugi::format_raw : pugi::format_indent,
               pugi::encoding_utf8);
    return writer.Take();
}

} // namespace platform
