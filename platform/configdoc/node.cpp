#include "platform/configdoc/elements.h"

#include <optional>
#include <vector>

#include "platform/configdoc/expression.h"
#include "platform/configdoc/tree.h"

namespace platform {

namespace {

std::u16string_view ViewOfName(const char16_t* name) noexcept {
    return name == nullptr ? std::u16string_view{} : std::u16string_view(name);
}

// A name in UTF-8; nothing for what is none.
std::optional<std::string> NameFrom(const char16_t* name) {
    auto utf8 = XmlTextOf(ViewOfName(name));
    return utf8 && IsXmlName(*utf8) ? std::move(utf8) : std::nullopt;
}

HRESULT GiveText(std::string_view utf8, BSTR* place) {
    *place = Bstr(FromUtf8(utf8)).Detach();
    return S_OK;
}

HRESULT GiveValue(const pugi::xpath_node& node, BSTR* place) {
    if (node.attribute())
        return GiveText(node.attribute().value(), place);
    const std::string text = IsText(node.node()) ? node.node().value() : OwnText(node.node());
    // Without text an element has no value, not an empty one.
    return text.empty() ? S_OK : GiveText(text, place);
}

// An attribute as it stands in a document.
std::string XmlOf(pugi::xml_attribute attribute) {
    // As the attribute of an element, since that is what the library writes.
    pugi::xml_document scratch;
    const pugi::xml_node element = scratch.append_child("a");
    scratch.first_child().append_copy(attribute);
    const std::string text = platform::XmlOf(element);
    constexpr std::size_t kBefore = std::string_view("<a ").size();
    return text.substr(kBefore, text.rfind('"') + 1 - kBefore);
}

bool IsLike(pugi::xml_node a, pugi::xml_node b, bool deep) {
    if (std::string_view(a.name()) != b.name() || OwnText(a) != OwnText(b))
        return false;
    for (const pugi::xml_attribute attribute : a.attributes()) {
        if (IsNamespaceDeclaration(attribute.name()))
            continue;
        const pugi::xml_attribute other = b.attribute(attribute.name());
        if (!other || std::string_view(attribute.value()) != other.value())
            return false;
    }
    if (!deep)
        return true;
    const auto isElement = [](const pugi::xml_node& node) { return node.type() == pugi::node_element; };
    pugi::xml_node childA = a.find_child(isElement);
    pugi::xml_node childB = b.find_child(isElement);
    const auto next = [&](pugi::xml_node node) {
        do
            node = node.next_sibling();
        while (node && !isElement(node));
        return node;
    };
    for (; childA && childB; childA = next(childA), childB = next(childB)) {
        if (!IsLike(childA, childB, true))
            return false;
    }
    return !childA && !childB;
}

// Nodes that were selected; they are held as objects from the start, so that none is gone when it is asked
// for.
class Enumeration : public IConfigEnum {
public:
    HRESULT Next(std::uint32_t count, IConfigNode** nodes, std::uint32_t* fetched) override {
        if (nodes == nullptr || (fetched == nullptr && count != 1))
            return E_POINTER;
        std::uint32_t given = 0;
        for (; given < count && m_next < m_nodes.size(); ++given)
            nodes[given] = m_nodes[m_next++].Detach();
        for (std::uint32_t n = given; n < count; ++n)
            nodes[n] = nullptr;
        if (fetched != nullptr)
            *fetched = given;
        return given == count ? S_OK : S_FALSE;
    }

protected:
    explicit Enumeration(std::vector<ComPtr<IConfigNode>> nodes) : m_nodes(std::move(nodes)) {}
    ~Enumeration() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return QueryTable<IConfigEnum>(this, interfaceId, object);
    }

private:
    std::vector<ComPtr<IConfigNode>> m_nodes;
    std::size_t m_next = 0;
};

// What nodes of all kinds have, behind the interface of theirs.
template <class Interface>
class NodeBase : public Interface, public Holder {
public:
    HRESULT GetValue(BSTR* value) override {
        return Give(value, [&] { return GiveValue(Place(), value); });
    }
    IConfigNode* AsNode() noexcept override { return this; }

protected:
    using Holder::Holder;
    ~NodeBase() = default;

    // Runs `set` with a value in UTF-8.
    template <class Set>
    HRESULT WithValue(BSTR value, Set set) noexcept {
        return Guard([&] {
            const auto utf8 = XmlTextOf(ViewOf(value));
            return utf8 ? set(*utf8) : E_INVALIDARG;
        });
    }

    // Of a text, or of an attribute.
    template <class Target>
    HRESULT SetValueOf(Target target, BSTR value) noexcept {
        return WithValue(value, [&](const std::string& text) {
            return target.set_value(text.c_str()) ? S_OK : E_OUTOFMEMORY;
        });
    }
};

class Text : public NodeBase<IConfigNode> {
public:
    HRESULT SetValue(BSTR value) override { return SetValueOf(Node(), value); }
    HRESULT GetName(BSTR* name) override {
        return Give(name, [&] { return GiveText("#text", name); });
    }
    HRESULT GetXml(BSTR* xml) override {
        return Give(xml, [&] { return GiveText(platform::XmlOf(Node()), xml); });
    }

protected:
    using NodeBase::NodeBase;
    ~Text() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return QueryTable<IConfigNode>(this, interfaceId, object);
    }
};

class AttributeObject : public NodeBase<IConfigAttribute> {
public:
    HRESULT SetValue(BSTR value) override { return SetValueOf(Attribute(), value); }
    HRESULT GetName(BSTR* name) override {
        return Give(name, [&] { return GiveText(Attribute().name(), name); });
    }
    HRESULT GetXml(BSTR* xml) override {
        return Give(xml, [&] { return GiveText(XmlOf(Attribute()), xml); });
    }

protected:
    using NodeBase::NodeBase;
    ~AttributeObject() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        if (interfaceId == IConfigNode::iid) // which every node answers to
            return QueryTable<IConfigAttribute>(this, IConfigAttribute::iid, object);
        return QueryTable<IConfigAttribute>(this, interfaceId, object);
    }
};

class Element : public NodeBase<IConfigElement> {
public:
    HRESULT SetValue(BSTR value) override {
        return WithValue(value, [&](const std::string& text) {
            SetOwnText(*Home(), Node(), text);
            return S_OK;
        });
    }
    HRESULT GetName(BSTR* name) override {
        return Give(name, [&] { return GiveText(Node().name(), name); });
    }
    HRESULT GetXml(BSTR* xml) override {
        return Give(xml, [&] { return GiveText(platform::XmlOf(Node()), xml); });
    }

    HRESULT SelectNodes(const char16_t* expression, IConfigEnum** nodes) override {
        return Give(nodes, [&] {
            const auto parsed = Expression::Parse(ViewOfName(expression));
            if (!parsed)
                return E_INVALIDARG;
            std::vector<ComPtr<IConfigNode>> held;
            for (const pugi::xpath_node& found : parsed->All(Node())) {
                held.push_back(Home()->Hold(found));
                if (!held.back())
                    return E_OUTOFMEMORY;
            }
            *nodes = ComObject<Enumeration>::Create(std::move(held)).Detach();
            return *nodes != nullptr ? S_OK : E_OUTOFMEMORY;
        });
    }
    HRESULT SelectOne(const char16_t* expression, IConfigNode** node) override {
        return Give(node, [&] {
            return WithFirst(expression, [&](const pugi::xpath_node& found) {
                *node = Home()->Hold(found).Detach();
                return *node != nullptr ? S_OK : E_OUTOFMEMORY;
            });
        });
    }
    HRESULT GetValueOf(const char16_t* expression, BSTR* value) override {
        return Give(value, [&] {
            return WithFirst(expression,
                             [&](const pugi::xpath_node& found) { return GiveValue(found, value); });
        });
    }

    HRESULT GetAttribute(const char16_t* name, IConfigAttribute** attribute) override {
        return Give(attribute, [&] {
            const auto utf8 = NameFrom(name);
            const pugi::xml_attribute found = utf8 ? Node().attribute(utf8->c_str()) : pugi::xml_attribute();
            if (!found)
                return S_FALSE;
            const ComPtr<IConfigNode> node = Home()->Hold({found, Node()});
            if (!node)
                return E_OUTOFMEMORY;
            return node->QueryInterface(IConfigAttribute::iid, reinterpret_cast<void**>(attribute));
        });
    }
    HRESULT ReadAttribute(const char16_t* name, BSTR* value) override {
        if (value == nullptr)
            return E_POINTER;
        return Guard([&] {
            const auto utf8 = NameFrom(name);
            const pugi::xml_attribute found = utf8 ? Node().attribute(utf8->c_str()) : pugi::xml_attribute();
            return found ? GiveText(found.value(), value) : S_FALSE;
        });
    }
    HRESULT WriteAttribute(const char16_t* name, BSTR value) override {
        return WithValue(value, [&](const std::string& text) {
            const auto utf8 = NameFrom(name);
            if (!utf8)
                return E_INVALIDARG;
            pugi::xml_attribute attribute = Node().attribute(utf8->c_str());
            if (!attribute)
                attribute = Node().append_attribute(utf8->c_str());
            return attribute.set_value(text.c_str()) ? S_OK : E_OUTOFMEMORY;
        });
    }

    HRESULT CreateChild(const char16_t* name, IConfigElement** child) override {
        return Give(child, [&] {
            const auto utf8 = NameFrom(name);
            if (!utf8)
                return E_INVALIDARG;
            const pugi::xml_node made = Node().append_child(utf8->c_str());
            return made ? GiveElement(*Home(), made, child) : E_OUTOFMEMORY;
        });
    }
    HRESULT AppendChild(IConfigElement* element, std::int32_t) override {
        if (element == nullptr)
            return E_POINTER;
        auto* const other = dynamic_cast<Element*>(element);
        if (other == nullptr)
            return E_INVALIDARG;
        return Guard([&] {
            for (pugi::xml_node above = Node(); above; above = above.parent()) {
                if (above == other->Node())
                    return E_INVALIDARG;
            }
            other->Home()->Move(other->Node(), *Home(), Node());
            return S_OK;
        });
    }
    HRESULT Clone(IConfigElement** copy) override {
        return Give(copy, [&] {
            const auto alone = std::make_shared<Tree>();
            const pugi::xml_node made = alone->Document().append_copy(Node());
            return made ? GiveElement(*alone, made, copy) : E_OUTOFMEMORY;
        });
    }
    HRESULT Remove() override {
        return Guard([&] {
            if (Node().parent().type() == pugi::node_document)
                return S_FALSE;
            Home()->MoveOut(Node());
            return S_OK;
        });
    }

protected:
    using NodeBase::NodeBase;
    ~Element() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        if (interfaceId == IConfigNode::iid)
            return QueryTable<IConfigElement>(this, IConfigElement::iid, object);
        return QueryTable<IConfigElement>(this, interfaceId, object);
    }

private:
    template <class Use>
    HRESULT WithFirst(const char16_t* expression, Use use) {
        const auto parsed = Expression::Parse(ViewOfName(expression));
        if (!parsed)
            return E_INVALIDARG;
        const pugi::xpath_node found = parsed->First(Node());
        return found ? use(found) : E_ELEMENT_NOT_FOUND;
    }
};

} // namespace

namespace {

// Calls use(Node, Node) for two elements of this library.
template <class Use>
HRESULT WithBoth(IConfigElement* first, IConfigElement* second, Use use) noexcept {
    if (first == nullptr || second == nullptr)
        return E_POINTER;
    auto* const a = dynamic_cast<Element*>(first);
    auto* const b = dynamic_cast<Element*>(second);
    if (a == nullptr || b == nullptr)
        return E_INVALIDARG;
    return Guard([&] { return use(a->Node(), b->Node()); });
}

} // namespace

HRESULT CopyAttributes(IConfigElement* to, IConfigElement* from) {
    return WithBoth(to, from, [](pugi::xml_node left, pugi::xml_node right) {
        for (const pugi::xml_attribute attribute : right.attributes()) {
            if (IsNamespaceDeclaration(attribute.name()))
                continue;
            pugi::xml_attribute place = left.attribute(attribute.name());
            if (!place)
                place = left.append_attribute(attribute.name());
            if (!place.set_value(attribute.value()))
                return E_OUTOFMEMORY;
        }
        return S_OK;
    });
}

HRESULT CopyChildren(IConfigElement* to, IConfigElement* from) {
    return WithBoth(to, from, [](pugi::xml_node left, pugi::xml_node right) {
        const pugi::xml_node last = right.last_child(); // an element may get copies of its own children
        for (pugi::xml_node child = right.first_child(); child;
             child = child == last ? pugi::xml_node() : child.next_sibling()) {
            if (child.type() == pugi::node_element && !left.append_copy(child))
                return E_OUTOFMEMORY;
        }
        return S_OK;
    });
}

HRESULT CompareElements(IConfigElement* first, IConfigElement* second, bool deep) {
    return WithBoth(first, second,
                    [&](pugi::xml_node a, pugi::xml_node b) { return IsLike(a, b, deep) ? S_OK : S_FALSE; });
}

ComPtr<IConfigNode> Tree::Hold(const pugi::xpath_node& node) {
    const auto found = m_holders.find(IdentityOf(node));
    if (found != m_holders.end())
        return ComPtr<IConfigNode>(found->second->AsNode());
    if (node.attribute())
        return ComObject<AttributeObject>::Create(shared_from_this(), node);
    if (IsText(node.node()))
        return ComObject<Text>::Create(shared_from_this(), node);
    return ComObject<Element>::Create(shared_from_this(), node);
}

HRESULT GiveElement(Tree& tree, pugi::xml_node element, IConfigElement** place) {
    const ComPtr<IConfigNode> node = tree.Hold(element);
    if (!node)
        return E_OUTOFMEMORY;
    return node->QueryInterface(IConfigElement::iid, reinterpret_cast<void**>(place));
}

} // namespace platform
