// The process state tree: see src/interfaces/IProcessStateTree.h for what its operations promise.
#pragma once

#include <memory>

#include "interfaces/IProcessStateTree.h"
#include "platform/com.h"

namespace host {

struct StateNodes; // all nodes and their lock

// A door to a tree.
class ProcessStateTree : public IProcessStateTree {
public:
    explicit ProcessStateTree(std::shared_ptr<StateNodes> nodes) : m_nodes(std::move(nodes)) {}

    HRESULT GetRootNode(IProcessStateNode** ppNode) override;

protected:
    ~ProcessStateTree() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<IProcessStateTree>(this, interfaceId, object);
    }

private:
    const std::shared_ptr<StateNodes> m_nodes;
};

// An empty tree with its root. It lives as long as a door to it or one of its nodes is held.
std::shared_ptr<StateNodes> MakeStateNodes();

} // namespace host
