// The packer as the component creates it.
#pragma once

#include <memory>
#include <vector>

#include "host/packer/frame_packer.h"
#include "interfaces/IMobileFramePacker.h"
#include "platform/com.h"

namespace host {

class MobileFramePacker : public platform::Implements<IMobileFramePacker> {
public:
    // The counters outlive the object; they are shared, since nothing else tells when the last viewer's
    // thread has ended.
    explicit MobileFramePacker(std::shared_ptr<PackerCounters> counters) : m_counters(std::move(counters)) {}

    // E_INVALIDARG for a parameter text that is refused.
    HRESULT Init(BSTR bstrParams) override;
    // Packs the picture. E_UNEXPECTED before Init and behind the last picture; E_INVALIDARG for a form or a
    // size that no source has; E_FAIL when it cannot be encoded. A picture that was not fetched is replaced.
    HRESULT AppendFrame(const BITMAPINFOHEADER* pHeader, const std::uint8_t* pPlanes) override;
    std::int32_t HasMoreFrames() override;
    HRESULT GetPackedData(std::uint8_t** ppData, std::uint32_t* pnSize) override;
    HRESULT GetParams(SPackerParams* pParams) override;

protected:
    ~MobileFramePacker() = default;

private:
    const std::shared_ptr<PackerCounters> m_counters;
    std::unique_ptr<FramePacker> m_packer;
    FramePacker::Packed m_packed;
};

} // namespace host
