// What the component does with the process state tree: it looks nodes up, and publishes values for the length
// of a scope.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <typeinfo>

#include "interfaces/IProcessStateTree.h"
#include "platform/com.h"
#include "platform/sync.h"
#include "platform/threads.h"
#include "runtime/trace/Trace.h"

namespace NSProcessStateTree {

// The node at a path from the root; with bCreate 1 it is made if it is missing. The status of whatever fails
// first, *ppNode carrying no reference then. Nothing is kept between two lookups. Any thread.
inline HRESULT LookupProcessStateNode(const char16_t* szPath, std::int32_t bCreate,
                                      IProcessStateNode** ppNode) {
    platform::ComPtr<IProcessStateTree> spTree;
    HRESULT hr = platform::CoCreateInstance(kProcessStateTreeClass, nullptr, platform::kContextAll,
                                            IProcessStateTree::iid, spTree.ReceiveVoid());
    if (FAILED(hr))
        return hr;
    platform::ComPtr<IProcessStateNode> spRoot; // released before the tree
    hr = spTree->GetRootNode(spRoot.Receive());
    return FAILED(hr) ? hr : spRoot->GetNode(szPath, bCreate, ppNode);
}

// Publishes a value of the calling thread while it exists, at the path that ThreadArgumentPath makes of the
// name. To be used as a local variable: constructed and destroyed on one thread, behind the value and before
// the calls for which the value is meant. The value stays the caller's.
//
// A failed publication shows in a report and nowhere else; the code that is called finds nothing then.
// Exhausted memory is a status exception with E_OUTOFMEMORY.
template <class T>
class CThreadArgument {
public:
    CThreadArgument(const char16_t* szName, T* pValue) {
        const platform::SectionGuard guard(m_cs);
        const std::u16string strPath =
            ThrowStatusWithoutMemory([&] { return ThreadArgumentPath(szName, platform::CurrentThreadId()); });
        HRESULT hr = LookupProcessStateNode(strPath.c_str(), 1, m_spProcessStateNode.Receive());
        TRASSDO(SUCCEEDED(_ARE(hr)), return);

        // Without a value the node stays this object's all the same, so that it goes out of the tree again.
        const auto spValue = platform::ComObject<CThreadArgumentValue>::Create();
        hr = spValue ? S_OK : E_OUTOFMEMORY;
        TRASSDO(SUCCEEDED(_ARE(hr)), return);
        spValue->m_szType = typeid(T).name();
        spValue->m_pValue = pValue;
        // A failure is not reported: the reader misses the value as it would miss the node.
        (void)m_spProcessStateNode->SetValue(spValue.Get());
    }
    CThreadArgument(const CThreadArgument&) = delete;
    CThreadArgument& operator=(const CThreadArgument&) = delete;
    ~CThreadArgument() {
        const platform::SectionGuard guard(m_cs);
        TRASSDO(m_spProcessStateNode, return);
        const HRESULT hr = m_spProcessStateNode->RemoveNode(u".");
        TRASSDO(SUCCEEDED(_ARE(hr)), {});
    }

private:
    // The node goes last, behind the lock.
    platform::ComPtr<IProcessStateNode> m_spProcessStateNode;
    platform::CriticalSection m_cs; // held by the constructor and the destructor
};

} // namespace NSProcessStateTree
