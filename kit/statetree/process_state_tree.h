// The process state tree: see src/interfaces/IProcessStateTree.h for what its operations promise. A host
// itself uses FindStateNode and CurrentRequest.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "interfaces/IProcessStateTree.h"
#include "kit/export.h"
#include "platform/com.h"

namespace kit {

struct StateNodes; // all nodes and their lock

// A door to a tree.
class MORROW_KIT_API ProcessStateTree : public platform::Implements<IProcessStateTree> {
public:
    explicit ProcessStateTree(std::shared_ptr<StateNodes> nodes) : m_nodes(std::move(nodes)) {}

    HRESULT GetRootNode(IProcessStateNode** ppNode) override;

protected:
    ~ProcessStateTree() = default;

private:
    const std::shared_ptr<StateNodes> m_nodes;
};

// An empty tree with its root. It lives as long as a door to it or one of its nodes is held.
MORROW_KIT_API std::shared_ptr<StateNodes> MakeStateNodes();

// A node of this process's tree, through its registered class. Null when it is not there, or, with `create`,
// cannot be made.
MORROW_KIT_API platform::ComPtr<IProcessStateNode> FindStateNode(const char16_t* szPath, bool create);

// The credentials block of the request for which the calling thread works. To be used during the present call
// only. Nothing when the thread has published none.
MORROW_KIT_API std::optional<std::span<const std::uint8_t>> CurrentRequest();

} // namespace kit
