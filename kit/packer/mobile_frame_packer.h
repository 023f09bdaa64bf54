// The packer as the component creates it.
#pragma once

#include <memory>
#include <vector>

#include "interfaces/IMobileFramePacker.h"
#include "kit/export.h"
#include "kit/packer/frame_packer.h"
#include "platform/com.h"

namespace kit {

// One viewer's thread uses one object.
class MORROW_KIT_API MobileFramePacker : public platform::Implements<IMobileFramePacker> {
public:
    // The counters outlive the object; they are shared, since nothing else tells when the last viewer's
    // thread has ended.
    explicit MobileFramePacker(std::shared_ptr<PackerCounters> counters) : m_counters(std::move(counters)) {}

    // E_INVALIDARG for a parameter text that is refused.
    HRESULT Init(BSTR bstrParams) override;
    // Packs the picture. E_UNEXPECTED before Init and behind the last picture; E_INVALIDARG for a form or a
    // size that no source has; E_FAIL when it cannot be encoded. A picture that was not fetched is replaced.
    HRESULT AppendFrame(const BITMAPINFOHEADER* pHeader, const std::uint8_t* pPlanes) override;
    // 1 until the last picture that was asked for is packed, else 0.
    std::int32_t HasMoreFrames() override;
    // Header (framing.h) and JPEG in one block, which is the caller's to free (CoTaskMemFree). E_PENDING
    // without a picture that was not fetched yet; E_OUTOFMEMORY, after which it can be fetched again.
    HRESULT GetPackedData(std::uint8_t** ppData, std::uint32_t* pnSize) override;
    // E_UNEXPECTED before Init.
    HRESULT GetParams(SPackerParams* pParams) override;

protected:
    ~MobileFramePacker() = default;

private:
    const std::shared_ptr<PackerCounters> m_counters;
    std::unique_ptr<FramePacker> m_packer;
    FramePacker::Packed m_packed;
};

} // namespace kit
