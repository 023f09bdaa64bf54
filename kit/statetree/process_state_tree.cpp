#include "kit/statetree/process_state_tree.h"

#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "interfaces/IWebServer.h"
#include "platform/threads.h"

namespace kit {

using platform::ComPtr;

namespace {

// Far more than anybody needs; a tree deeper than that would be taken down by a deep recursion.
constexpr std::size_t kDeepest = 64;

std::vector<std::u16string_view> NamesOf(std::u16string_view path) {
    std::vector<std::u16string_view> names;
    for (;;) {
        const auto slash = path.find(u'/');
        names.push_back(path.substr(0, slash));
        if (slash == std::u16string_view::npos)
            return names;
        path.remove_prefix(slash + 1);
    }
}

} // namespace

// A place in the tree. Owned by the place above it, and by the nodes that stand for it.
struct StatePlace {
    std::u16string name;
    std::weak_ptr<StatePlace> above; // empty for the root, and once the place is out of the tree
    std::map<std::u16string, std::shared_ptr<StatePlace>, std::less<>> below;
    ComPtr<IUnknown> value;
};

struct StateNodes {
    std::mutex mutex; // everything below the root, removed places that are still held included
    std::shared_ptr<StatePlace> root = std::make_shared<StatePlace>();
};

namespace {

class ProcessStateNode : public platform::Implements<IProcessStateNode> {
public:
    ProcessStateNode(std::shared_ptr<StateNodes> nodes, std::shared_ptr<StatePlace> place)
        : m_nodes(std::move(nodes)), m_place(std::move(place)) {}

    HRESULT SetValue(IUnknown* pValue) override {
        ComPtr<IUnknown> value(pValue); // the old one goes behind the lock
        const std::lock_guard guard(m_nodes->mutex);
        std::swap(m_place->value, value);
        return S_OK;
    }

    HRESULT GetValue(IUnknown** ppValue) override {
        if (ppValue == nullptr)
            return E_POINTER;
        const std::lock_guard guard(m_nodes->mutex);
        ComPtr<IUnknown> value = m_place->value;
        *ppValue = value.Detach();
        return *ppValue != nullptr ? S_OK : E_ELEMENT_NOT_FOUND;
    }

    HRESULT RemoveNode(const char16_t* szPath) override {
        if (szPath == nullptr)
            return E_POINTER;
        try {
            // Let go of behind the lock, with the values in them.
            std::shared_ptr<StatePlace> removed;
            std::shared_ptr<StatePlace> above;
            const std::lock_guard guard(m_nodes->mutex);
            const std::u16string_view path(szPath);
            const HRESULT hr = path == u"." ? (removed = m_place, S_OK) : Find(path, false, &removed);
            if (FAILED(hr))
                return hr;
            above = removed->above.lock();
            if (!above)
                return E_ELEMENT_NOT_FOUND; // the root, or out of the tree already
            removed->above.reset();
            above->below.erase(removed->name);
            return S_OK;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

    HRESULT GetNode(const char16_t* szPath, std::int32_t bCreate, IProcessStateNode** ppNode) override {
        if (szPath == nullptr || ppNode == nullptr)
            return E_POINTER;
        *ppNode = nullptr;
        try {
            std::shared_ptr<StatePlace> place;
            {
                const std::lock_guard guard(m_nodes->mutex);
                const HRESULT hr = Find(szPath, bCreate != 0, &place);
                if (FAILED(hr))
                    return hr;
            }
            *ppNode = platform::ComObject<ProcessStateNode>::Create(m_nodes, std::move(place)).Detach();
            return *ppNode != nullptr ? S_OK : E_OUTOFMEMORY;
        } catch (const std::bad_alloc&) {
            return E_OUTOFMEMORY;
        }
    }

protected:
    ~ProcessStateNode() = default;

private:
    // With the lock held.
    HRESULT Find(std::u16string_view path, bool create, std::shared_ptr<StatePlace>* place) const {
        const auto names = NamesOf(path);
        for (const std::u16string_view name : names) {
            if (name.empty() || names.size() > kDeepest)
                return E_INVALIDARG;
        }
        std::shared_ptr<StatePlace> at = m_place;
        for (const std::u16string_view name : names) {
            auto found = at->below.find(name);
            if (found == at->below.end()) {
                if (!create)
                    return E_ELEMENT_NOT_FOUND;
                auto made = std::make_shared<StatePlace>();
                made->name = name;
                made->above = at;
                found = at->below.emplace(made->name, made).first;
            }
            at = found->second;
        }
        *place = std::move(at);
        return S_OK;
    }

    const std::shared_ptr<StateNodes> m_nodes;
    const std::shared_ptr<StatePlace> m_place;
};

} // namespace

std::shared_ptr<StateNodes> MakeStateNodes() {
    return std::make_shared<StateNodes>();
}

HRESULT ProcessStateTree::GetRootNode(IProcessStateNode** ppNode) {
    if (ppNode == nullptr)
        return E_POINTER;
    *ppNode = platform::ComObject<ProcessStateNode>::Create(m_nodes, m_nodes->root).Detach();
    return *ppNode != nullptr ? S_OK : E_OUTOFMEMORY;
}

ComPtr<IProcessStateNode> FindStateNode(const char16_t* szPath, bool create) {
    ComPtr<IProcessStateTree> tree;
    ComPtr<IProcessStateNode> root;
    ComPtr<IProcessStateNode> node;
    if (FAILED(platform::CoCreateInstance(kProcessStateTreeClass, nullptr, platform::kContextAll,
                                          IProcessStateTree::iid, tree.ReceiveVoid())) ||
        FAILED(tree->GetRootNode(root.Receive())) ||
        FAILED(root->GetNode(szPath, create ? 1 : 0, node.Receive())))
        return nullptr;
    return node;
}

std::optional<std::span<const std::uint8_t>> CurrentRequest() {
    using NSProcessStateTree::CThreadArgumentValue;
    const std::u16string path =
        NSProcessStateTree::ThreadArgumentPath(kCurrentRequestArgument, platform::CurrentThreadId());
    const auto node = FindStateNode(path.c_str(), false);
    ComPtr<IUnknown> value;
    if (!node || FAILED(node->GetValue(value.Receive())))
        return std::nullopt;
    const auto argument = value.Query<CThreadArgumentValue>();
    if (!argument || argument->m_pValue == nullptr || argument->m_szType == nullptr ||
        std::strcmp(argument->m_szType, typeid(WebServer::SCurrentRequest).name()) != 0)
        return std::nullopt;
    const auto& request = *static_cast<const WebServer::SCurrentRequest*>(argument->m_pValue);
    return std::span(request.pData, request.pData != nullptr ? request.nSize : 0);
}

} // namespace kit
