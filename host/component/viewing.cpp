#include "host/component/viewing.h"

#include <stdexcept>

#include "host/packer/mobile_frame_packer.h"
#include "host/statetree/process_state_tree.h"

namespace host {

using platform::ComObject;
using platform::ComPtr;

Viewing::Viewing(ContentAccess access, std::shared_ptr<PackerCounters> counters)
    : m_server(ComObject<ContentServer>::Create(std::move(access))) {
    const auto tree = ComObject<ProcessStateTree>::Create(MakeStateNodes());
    m_classes.AddObject(kProcessStateTreeClass, ComPtr<IUnknown>(tree.Get()));
    m_classes.Add(kMobileFramePackerClass,
                  [counters = std::move(counters)](const GUID& interfaceId, void** object) {
                      const auto packer = ComObject<MobileFramePacker>::Create(counters);
                      return packer ? packer->QueryInterface(interfaceId, object) : E_OUTOFMEMORY;
                  });
    const auto node = FindStateNode(kWebServerNode, true);
    if (!m_server || !node || FAILED(node->SetValue(m_server.Get())))
        throw std::runtime_error("the web server could not be published");
}

void Viewing::End() noexcept {
    m_server->Forget();
    if (const auto node = FindStateNode(kWebServerNode, false))
        (void)node->SetValue(nullptr);
}

} // namespace host
