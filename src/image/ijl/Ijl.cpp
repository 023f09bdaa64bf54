// The three calls, and the check of the record.

#include "image/ijl/Ijl.h"

#include "image/ijl/IjlDecoder.h"

#include <new>

namespace {

bool IsBuilt(IJLIOTYPE eMode) {
    return eMode == IJL_JBUFF_READPARAMS || eMode == IJL_JBUFF_READWHOLEIMAGE;
}

IJLERR CheckRecord(const JPEG_PROPERTIES& props) {
    if (!IsBuilt(props.iotype))
        return IJL_INVALID_JPEG_PROPERTIES;
    if (props.iotype == IJL_JBUFF_READWHOLEIMAGE) {
        if (const IJLERR eError = IjlCheckImage(props); eError != IJL_OK)
            return eError;
    }
    if (!props.JPGBytes || props.JPGSizeBytes == 0 || props.JPGChannels < 1 || props.JPGChannels > 256)
        return IJL_INVALID_JPEG_PROPERTIES;
    if (!IjlCanConvert(props.JPGColor, props.JPGChannels, props.DIBColor, props.DIBChannels))
        return IJL_INVALID_JPEG_PROPERTIES;
    return props.dcttype > 1 ? IJL_INVALID_JPEG_PROPERTIES : IJL_OK;
}

} // namespace

IJLERR ijlInit(JPEG_CORE_PROPERTIES* pRecord) noexcept {
    if (!pRecord)
        return IJL_INVALID_JPEG_PROPERTIES;
    try {
        *pRecord = JPEG_CORE_PROPERTIES{};
        constexpr std::size_t kComponents = 4;
        pRecord->jprops.components.resize(kComponents);
        ippiDecodeHuffmanState* pState = nullptr;
        const IppStatus nStatus = ippiDecodeHuffmanStateInitAlloc_JPEG_8u(&pState);
        pRecord->jprops.pHuffmanState.reset(pState);
        if (nStatus == ippStsNoErr)
            return IJL_OK;
    } catch (const std::bad_alloc&) {
    }
    pRecord->jprops = JPEG_PROPERTIES{};
    return IJL_MEMORY_ERROR;
}

IJLERR ijlRead(JPEG_CORE_PROPERTIES* pRecord, IJLIOTYPE eMode) noexcept {
    // Without a bit reader the record is not one that ijlInit has made.
    if (!pRecord || !pRecord->jprops.pHuffmanState)
        return IJL_INVALID_JPEG_PROPERTIES;
    JPEG_PROPERTIES& props = pRecord->jprops;
    const bool bOwnFields = pRecord->UseJPEGPROPERTIES == 0;
    props.iotype = eMode;
    if (bOwnFields) {
        static_cast<IjlFields&>(props) = *pRecord;
        if (const IJLERR eError = CheckRecord(props); eError != IJL_OK)
            return eError;
    } else if (!IsBuilt(eMode)) {
        return IJL_INVALID_JPEG_PROPERTIES;
    }
    IJLERR eError = IJL_MEMORY_ERROR;
    try {
        eError = CIjlDecoder(props).Read();
    } catch (const std::bad_alloc&) {
    }
    if (bOwnFields)
        static_cast<IjlFields&>(*pRecord) = props;
    return eError;
}

IJLERR ijlFree(JPEG_CORE_PROPERTIES* pRecord) noexcept {
    if (!pRecord)
        return IJL_INVALID_JPEG_PROPERTIES;
    pRecord->jprops = JPEG_PROPERTIES{};
    return IJL_OK;
}
