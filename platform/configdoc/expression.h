// Expressions that select nodes. Private to this folder.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

namespace platform {

// One expression of the kind that configdoc.h tells of, checked, and ready to be evaluated.
class Expression {
public:
    // Nothing for an expression that is not taken.
    static std::optional<Expression> Parse(std::u16string_view text);

    // The nodes that it selects from an element, in document order: elements, attributes, pieces of text.
    [[nodiscard]] std::vector<pugi::xpath_node> All(pugi::xml_node from) const;
    // The first of them; null when there is none.
    [[nodiscard]] pugi::xpath_node First(pugi::xml_node from) const;

private:
    // Most expressions are a single step, or lead straight down from an element or its parents, by names;
    // they need no evaluation. A walk's text is its last step.
    enum class Kind { ChildrenOfName, Children, AttributeOfName, Attributes, Walk, Path };

    Expression(Kind kind, std::string name) : m_kind(kind), m_text(std::move(name)) {}
    static std::optional<Expression> SingleStep(std::string_view text);
    static std::optional<Expression> StraightWalk(std::string_view text);
    // Appends what the steps from the given one on lead to; only the first of it where `all` is false.
    void Walk(pugi::xml_node from, std::size_t step, bool all, std::vector<pugi::xpath_node>& nodes) const;
    [[nodiscard]] pugi::xpath_node_set Evaluate(pugi::xml_node from) const;

    Kind m_kind;
    std::string m_text;                  // the name, or the path with a variable in place of each quoted text
    std::vector<std::string> m_literals; // the quoted texts
    std::vector<std::string> m_steps;    // of a walk
};

// Is it a piece of text?
inline bool IsText(pugi::xml_node node) noexcept {
    return node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata;
}

// Such an attribute is none that an expression selects.
inline bool IsNamespaceDeclaration(std::string_view name) noexcept {
    return name == "xmlns" || name.starts_with("xmlns:");
}

} // namespace platform
