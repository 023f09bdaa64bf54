#include "platform/configdoc/expression.h"

#include <algorithm>
#include <functional>
#include <unordered_set>

#include "platform/configdoc/configdoc.h"
#include "platform/configdoc/tree.h"

namespace platform {

namespace {

using Tokens = std::vector<std::string>;

bool IsQuoted(std::string_view token) noexcept {
    return token.starts_with('\'') || token.starts_with('"');
}

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool IsConstant(std::string_view token) noexcept {
    return IsQuoted(token) || (!token.empty() && IsDigit(token.front()));
}

bool IsNameCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || static_cast<unsigned char>(c) >= 0x80 ||
           IsDigit(c) || std::string_view("_-.:").find(c) != std::string_view::npos;
}

// How many bytes the token at the head of a text takes that begins with no blank; 0 for what is no token.
std::size_t TokenLength(std::string_view text) noexcept {
    const char first = text.front();
    if (first == '\'' || first == '"') {
        const std::size_t end = text.find(first, 1);
        return end == std::string_view::npos ? 0 : end + 1;
    }
    for (const std::string_view pair : {"//", "..", "!=", "<=", ">="}) {
        if (text.starts_with(pair))
            return pair.size();
    }
    if (std::string_view("/.@*[]()=<>").find(first) != std::string_view::npos)
        return 1;
    if (!IsNameCharacter(first))
        return 0;
    const auto end = std::ranges::find_if_not(text, IsDigit(first) ? IsDigit : IsNameCharacter);
    return static_cast<std::size_t>(end - text.begin());
}

// Nothing when there is something that is no token, or there are too many.
std::optional<Tokens> Split(std::string_view text) {
    Tokens tokens;
    while (!text.empty()) {
        if (text.front() == ' ' || text.front() == '\t' || text.front() == '\n' || text.front() == '\r') {
            text.remove_prefix(1);
            continue;
        }
        const std::size_t length = TokenLength(text);
        if (length == 0 || tokens.size() == kExpressionTokensLimit)
            return std::nullopt;
        tokens.emplace_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return tokens;
}

// Does a list of tokens follow the grammar of configdoc.h? It is what keeps an evaluation within a walk
// through the tree: "//" once, no way up or to the top within a predicate, no comparison of two sets.
class Grammar {
public:
    explicit Grammar(const Tokens& tokens) noexcept : m_tokens(tokens) {}

    bool Matches() {
        if (Take("/") && AtEnd())
            return true;
        return Path(false) && AtEnd();
    }

private:
    bool Path(bool inPredicate) {
        if (!inPredicate && Peek("//") && !Descend())
            return false;
        do {
            if (!Step(inPredicate))
                return false;
        } while (Take("/") || (Peek("//") && Descend()));
        return !Peek("//");
    }

    bool Descend() { return Take("//") && !std::exchange(m_hasDescended, true); }

    bool Step(bool inPredicate) {
        if (Take("."))
            return true;
        if (Peek(".."))
            return !inPredicate && Take("..");
        (void)Take("@");
        const bool isNodeTest = (Peek("text") || Peek("node")) && Peek("(", 1);
        if (isNodeTest) {
            m_at += 2;
            if (!Take(")"))
                return false;
        } else if (!Take("*") && !Name()) {
            return false;
        }
        while (Take("[")) {
            if (!Condition() || !Take("]"))
                return false;
        }
        return true;
    }

    bool Condition() {
        do {
            if (!Comparison())
                return false;
        } while (Take("and") || Take("or"));
        return true;
    }

    bool Comparison() {
        const bool isConstant = Constant();
        if (!isConstant && !Path(true))
            return false;
        for (const std::string_view sign : {"=", "!=", "<", "<=", ">", ">="}) {
            if (Take(sign))
                return Constant() || (isConstant && Path(true));
        }
        return true;
    }

    bool Constant() { return !AtEnd() && IsConstant(m_tokens[m_at]) && Advance(); }
    bool Name() { return !AtEnd() && IsXmlName(m_tokens[m_at]) && Advance(); }
    bool Take(std::string_view token) { return Peek(token) && Advance(); }
    bool Advance() noexcept { return ++m_at != 0; }
    [[nodiscard]] bool AtEnd() const noexcept { return m_at >= m_tokens.size(); }
    [[nodiscard]] bool Peek(std::string_view token, std::size_t ahead = 0) const noexcept {
        return m_at + ahead < m_tokens.size() && m_tokens[m_at + ahead] == token;
    }

    const Tokens& m_tokens;
    std::size_t m_at = 0;
    bool m_hasDescended = false;
};

// A quoted text without its quotes and with the characters that its entities stand for.
std::string Unquoted(std::string_view token) {
    struct Entity {
        std::string_view name;
        char character;
    };
    constexpr Entity kEntities[] = {
        {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&apos;", '\''}, {"&quot;", '"'}};
    token = token.substr(1, token.size() - 2);
    std::string text;
    text.reserve(token.size());
    while (!token.empty()) {
        const auto found = std::ranges::find_if(
            kEntities, [&](const Entity& entity) { return token.starts_with(entity.name); });
        const bool isEntity = token.front() == '&' && found != std::end(kEntities);
        text.push_back(isEntity ? found->character : token.front());
        token.remove_prefix(isEntity ? found->name.size() : 1);
    }
    return text;
}

bool IsSelectable(const pugi::xpath_node& found) noexcept {
    return found.attribute() || found.node().type() == pugi::node_element || IsText(found.node());
}

// A set in the order of the tree that `from` stands in. One walk through it: comparing places node by node
// takes longer the more siblings there are.
std::vector<pugi::xpath_node> InDocumentOrder(const pugi::xpath_node_set& set, pugi::xml_node from) {
    std::unordered_set<const void*> wanted;
    for (const pugi::xpath_node& found : set)
        wanted.insert(IdentityOf(found));
    std::vector<pugi::xpath_node> ordered;
    const auto visit = [&](const pugi::xpath_node& node) {
        if (wanted.contains(IdentityOf(node)))
            ordered.push_back(node);
    };
    struct Visitor : pugi::xml_tree_walker {
        explicit Visitor(decltype(visit)& call) : m_call(call) {}
        bool for_each(pugi::xml_node& node) override {
            m_call(node);
            for (const pugi::xml_attribute attribute : node.attributes())
                m_call({attribute, node});
            return true;
        }
        decltype(visit)& m_call;
    } visitor(visit);
    from.root().traverse(visitor);
    return ordered;
}

} // namespace

std::optional<Expression> Expression::SingleStep(std::string_view text) {
    const bool isAttribute = text.starts_with('@');
    if (isAttribute)
        text.remove_prefix(1);
    if (text == "*")
        return Expression(isAttribute ? Kind::Attributes : Kind::Children, {});
    if (!IsXmlName(text))
        return std::nullopt;
    return Expression(isAttribute ? Kind::AttributeOfName : Kind::ChildrenOfName, std::string(text));
}

// "../.." and the like, then names, then a name, an attribute's name or "text()". No two ways lead to one
// node, and what is found is in document order.
std::optional<Expression> Expression::StraightWalk(std::string_view text) {
    constexpr std::size_t kMostSteps = 8;
    Expression walk(Kind::Walk, {});
    bool isDown = false;
    for (bool isLast = false; !isLast;) {
        const std::size_t cut = text.find('/');
        isLast = cut == std::string_view::npos;
        const std::string_view step = text.substr(0, cut);
        const bool isUp = step == "..";
        const bool ends = step == "text()" || (step.starts_with('@') && IsXmlName(step.substr(1)));
        if ((isUp && isDown) || (ends && !isLast) || !(isUp || ends || IsXmlName(step)) ||
            walk.m_steps.size() == kMostSteps)
            return std::nullopt;
        isDown = !isUp;
        walk.m_steps.emplace_back(step);
        text.remove_prefix(isLast ? text.size() : cut + 1);
    }
    return walk;
}

std::optional<Expression> Expression::Parse(std::u16string_view text) {
    if (text.empty() || text.size() > kExpressionUnitsLimit)
        return std::nullopt;
    const auto utf8 = XmlTextOf(text);
    if (!utf8)
        return std::nullopt;
    if (auto step = SingleStep(*utf8))
        return step;
    if (auto walk = StraightWalk(*utf8))
        return walk;
    const auto tokens = Split(*utf8);
    if (!tokens || !Grammar(*tokens).Matches())
        return std::nullopt;
    Expression path(Kind::Path, {});
    for (const std::string& token : *tokens) {
        if (IsQuoted(token)) {
            path.m_text += "$v" + std::to_string(path.m_literals.size()) + " ";
            path.m_literals.push_back(Unquoted(token));
        } else {
            path.m_text += token + " ";
        }
    }
    return path;
}

pugi::xpath_node_set Expression::Evaluate(pugi::xml_node from) const {
    pugi::xpath_variable_set variables;
    for (std::size_t n = 0; n < m_literals.size(); ++n)
        variables.set(("v" + std::to_string(n)).c_str(), m_literals[n].c_str());
    return pugi::xpath_query(m_text.c_str(), &variables).evaluate_node_set(from);
}

void Expression::Walk(pugi::xml_node from, std::size_t step, bool all,
                      std::vector<pugi::xpath_node>& nodes) const {
    const auto goesOn = [&] { return all || nodes.empty(); };
    const std::string& text = m_steps[step];
    const bool isLast = step + 1 == m_steps.size();
    const auto reach = [&](pugi::xml_node node) {
        if (!isLast)
            Walk(node, step + 1, all, nodes);
        else if (IsSelectable(node))
            nodes.emplace_back(node);
    };
    if (text == "..") {
        if (from.parent())
            reach(from.parent());
    } else if (text.front() == '@') {
        const std::string_view name = std::string_view(text).substr(1);
        const pugi::xml_attribute found = from.attribute(name.data());
        if (found && !IsNamespaceDeclaration(name))
            nodes.emplace_back(found, from);
    } else if (text == "text()") {
        for (pugi::xml_node child = from.first_child(); child && goesOn(); child = child.next_sibling()) {
            if (IsText(child))
                nodes.emplace_back(child);
        }
    } else {
        for (pugi::xml_node child = from.child(text.c_str()); child && goesOn();
             child = child.next_sibling(text.c_str()))
            reach(child);
    }
}

std::vector<pugi::xpath_node> Expression::All(pugi::xml_node from) const {
    std::vector<pugi::xpath_node> nodes;
    switch (m_kind) {
    case Kind::ChildrenOfName:
        for (const pugi::xml_node child : from.children(m_text.c_str()))
            nodes.emplace_back(child);
        break;
    case Kind::Children:
        for (const pugi::xml_node child : from.children()) {
            if (child.type() == pugi::node_element)
                nodes.emplace_back(child);
        }
        break;
    case Kind::AttributeOfName:
    case Kind::Attributes:
        for (const pugi::xml_attribute attribute : from.attributes()) {
            if (!IsNamespaceDeclaration(attribute.name()) &&
                (m_kind == Kind::Attributes || m_text == attribute.name()))
                nodes.emplace_back(attribute, from);
        }
        break;
    case Kind::Walk:
        Walk(from, 0, true, nodes);
        break;
    case Kind::Path: {
        const pugi::xpath_node_set set = Evaluate(from);
        if (set.type() == pugi::xpath_node_set::type_sorted || set.size() < 2)
            nodes.assign(set.begin(), set.end());
        else
            nodes = InDocumentOrder(set, from);
        std::erase_if(nodes, std::not_fn(IsSelectable));
        break;
    }
    }
    return nodes;
}

pugi::xpath_node Expression::First(pugi::xml_node from) const {
    if (m_kind == Kind::ChildrenOfName)
        return from.child(m_text.c_str());
    std::vector<pugi::xpath_node> nodes;
    if (m_kind == Kind::Walk)
        Walk(from, 0, false, nodes);
    else
        nodes = All(from);
    return nodes.empty() ? pugi::xpath_node() : nodes.front();
}

} // namespace platform
