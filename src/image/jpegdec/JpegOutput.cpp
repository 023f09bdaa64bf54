// From the samples of one MCU row to the destination: upsampling, and the copy or resampling into the
// caller's planes.

#include "image/jpegdec/JpegDecoder.h"

#include <algorithm>

// Where a component's samples stand in its buffer. Those at half resolution begin one column, and with 4:2:0
// one row, further in: the spare ones stand around them.
CJPEGDecoder::SampleRows CJPEGDecoder::BufferRows(std::int32_t nComponent) const {
    const CJPEGColorComponent& component = *m_apComponents[nComponent];
    const bool bFull = IsFullResolution(nComponent);
    const std::int32_t nStep = bFull ? m_nCcWidth : SsStep();
    std::uint8_t* const pFirst = bFull ? component.m_pCcBuffer.get() : component.m_pSsBuffer.get();
    return {pFirst + (component.m_nHFactor == 2 ? 1 : 0) + (component.m_nVFactor == 2 ? nStep : 0), nStep};
}

// 4:2:2 chroma is brought to full width, for pixels; for planes only its spare samples are set, and the
// kernel that halves its height does the rest. 4:2:0 chroma has the resolution of planes already and stays as
// it is here; components at full resolution were reconstructed in place.
JpegStatus CJPEGDecoder::UpsampleMcuRow() {
    if (m_eJpegSampling != JS_422)
        return JPEG_OK;
    const std::int32_t nWidth = m_nCcWidth >> 1;
    for (std::int32_t i = 1; i < std::min(m_nJpegComponents, 3); ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        std::uint8_t* pRow = component.m_pSsBuffer.get();
        for (std::int32_t y = 0; y < m_nMcuHeight; ++y, pRow += SsStep()) {
            pRow[0] = pRow[1];
            pRow[nWidth + 1] = pRow[nWidth];
        }
        if (m_eConversion == Conversion::YCbCrToPlanar)
            continue;
        const IppStatus nStatus =
            ippiSampleUpH2V1_JPEG_8u_C1R(component.m_pSsBuffer.get() + 1, SsStep(), {nWidth, m_nMcuHeight},
                                         component.m_pCcBuffer.get(), m_nCcWidth, {m_nCcWidth, m_nMcuHeight});
        if (nStatus < 0)
            return JPEG_INTERNAL_ERROR;
    }
    return JPEG_OK;
}

// The last row holds fewer lines than an MCU where the picture's height is no multiple of it.
JpegStatus CJPEGDecoder::ConvertMcuRow(std::int32_t nMcuRow) {
    m_nCcHeight = m_nMcuHeight - (nMcuRow == m_nMcuRows - 1 ? m_nPadY : 0);
    switch (m_eConversion) {
    case Conversion::GrayToGray:
        return CopyLuma(static_cast<std::uint8_t*>(m_pDst), m_nDstStep, nMcuRow);
    case Conversion::YCbCrToPlanar: {
        const PlanarDestination& planes = *static_cast<const PlanarDestination*>(m_pDst);
        if (const JpegStatus eStatus = CopyLuma(planes.pY, planes.nYStep, nMcuRow); eStatus != JPEG_OK)
            return eStatus;
        if (const JpegStatus eStatus = WriteChroma(1, planes.pCb, planes.nCbStep, nMcuRow);
            eStatus != JPEG_OK)
            return eStatus;
        return WriteChroma(2, planes.pCr, planes.nCrStep, nMcuRow);
    }
    case Conversion::Pixels:
        return ConvertPixels(nMcuRow);
    case Conversion::None:
        break;
    }
    return JPEG_OK;
}

// What has not gone there straight already: m_nDirectCols columns of MCUs.
JpegStatus CJPEGDecoder::CopyLuma(std::uint8_t* pPlane, std::int64_t nStep, std::int32_t nMcuRow) const {
    if (!pPlane || KernelStep(nStep) == 0)
        return JPEG_INTERNAL_ERROR;
    const std::int32_t nDone = m_nDirectCols * m_nMcuWidth;
    if (nDone == m_nDstWidth)
        return JPEG_OK;
    const IppStatus nStatus = ippiCopy_8u_C1R(m_apComponents[0]->m_pCcBuffer.get() + nDone, m_nCcWidth,
                                              pPlane + std::int64_t{nMcuRow} * m_nMcuHeight * nStep + nDone,
                                              KernelStep(nStep), {m_nDstWidth - nDone, m_nCcHeight});
    return nStatus < 0 ? JPEG_INTERNAL_ERROR : JPEG_OK;
}

// One chroma plane at half width and half height, both rounded down: an odd last column or row of the picture
// has no chroma of its own, and a picture of one column or row has none at all.
JpegStatus CJPEGDecoder::WriteChroma(std::int32_t nComponent, std::uint8_t* pPlane, std::int64_t nStep,
                                     std::int32_t nMcuRow) const {
    const IppiSize half{m_nDstWidth >> 1, m_nCcHeight >> 1};
    if (half.width == 0 || half.height == 0)
        return JPEG_OK;
    if (!pPlane || KernelStep(nStep) == 0)
        return JPEG_INTERNAL_ERROR;
    const CJPEGColorComponent& component = *m_apComponents[nComponent];
    std::uint8_t* const pOut = pPlane + std::int64_t{nMcuRow} * (m_nMcuHeight >> 1) * nStep;
    IppStatus nStatus = ippStsNoErr;
    if (m_eJpegSampling == JS_422) {
        nStatus = ippxSample422To420_8u_C1R(component.m_pSsBuffer.get() + 1, SsStep(), pOut,
                                            KernelStep(nStep), half);
    } else if (m_eJpegSampling == JS_444) {
        nStatus = ippiSampleDownH2V2_JPEG_8u_C1R(component.m_pCcBuffer.get(), m_nCcWidth,
                                                 {m_nCcWidth, m_nMcuHeight}, pOut, KernelStep(nStep), half);
    } else if (const std::int32_t nDone = m_nDirectCols * (m_nMcuWidth >> 1); nDone < half.width) {
        nStatus = ippiCopy_8u_C1R(component.m_pSsBuffer.get() + SsStep() + 1 + nDone, SsStep(), pOut + nDone,
                                  KernelStep(nStep), {half.width - nDone, half.height});
    }
    return nStatus < 0 ? JPEG_INTERNAL_ERROR : JPEG_OK;
}
