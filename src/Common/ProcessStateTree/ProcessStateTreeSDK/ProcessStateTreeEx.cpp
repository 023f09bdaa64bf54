#include "Common/ProcessStateTree/ProcessStateTreeSDK/ProcessStateTreeEx.h"

namespace NSProcessStateTree {

HRESULT LookupProcessStateNode(const char16_t* szPath, std::int32_t bCreate, IProcessStateNode** ppNode) {
    platform::ComPtr<IProcessStateTree> spTree;
    HRESULT hr = platform::CoCreateInstance(kProcessStateTreeClass, nullptr, platform::kContextAll,
                                            IProcessStateTree::iid, spTree.ReceiveVoid());
    if (FAILED(hr))
        return hr;
    platform::ComPtr<IProcessStateNode> spRoot; // released before the tree
    hr = spTree->GetRootNode(spRoot.Receive());
    return FAILED(hr) ? hr : spRoot->GetNode(szPath, bCreate, ppNode);
}

} // namespace NSProcessStateTree
