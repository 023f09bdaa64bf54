#include "image/jpegdec/JpegTables.h"

CJPEGDecoderQuantTable::~CJPEGDecoderQuantTable() = default;

IppStatus CJPEGDecoderQuantTable::Init() {
    return ippiQuantInvTableInit_JPEG_8u16u(m_aRaw, m_aSteps);
}

CJPEGDecoderHuffmanTable::~CJPEGDecoderHuffmanTable() = default;

bool CJPEGDecoderHuffmanTable::Build() {
    if (!m_bBuilt) {
        ippiDecodeHuffmanSpec* pSpec = nullptr;
        m_bUsable = ippiDecodeHuffmanSpecInit_JPEG_8u(m_aBits, m_aValues, &pSpec) == ippStsNoErr;
        m_pSpec.reset(pSpec);
        m_bBuilt = true;
    }
    return m_bUsable;
}
