#include "host/statetree/lookup.h"

#include <cstring>
#include <string>
#include <typeinfo>

#include "interfaces/IWebServer.h"
#include "platform/threads.h"

namespace host {

using platform::ComPtr;

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

} // namespace host
