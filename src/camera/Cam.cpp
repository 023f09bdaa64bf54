#include "camera/Cam.h"

#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <utility>

#include "Common/Configuration/config/DocumentTexts.h"
#include "camera/VideoFrame.h"
#include "runtime/trace/Trace.h"

namespace {

constexpr char kSchemaArg[] = "CCam::CSchema";

// The fields that are stored of a camera, in the order of its element's children.
struct SField {
    const char16_t* szName;
    platform::Bstr CCam::*pText;
};
constexpr SField kFields[] = {
    {u"Name", &CCam::m_bstrName},
    {u"Type", &CCam::m_bstrType},
    {u"Password", &CCam::m_bstrPassword},
};

} // namespace

platform::ComPtr<CCam> CCam::Create() {
    return platform::ComObject<CCam>::Create();
}

HRESULT CCam::Connect(ICamSink* pCamSink) {
    return StatusOf([&] {
        const platform::SectionGuard guard(m_cs);
        if (m_spCamSink == pCamSink)
            Disconnect(pCamSink);
        TRASSDO(!m_spCamSink, return E_UNEXPECTED);
        m_spCamSink = platform::ComPtr<ICamSink>(pCamSink);
        return S_OK;
    });
}

HRESULT CCam::Disconnect(ICamSink* pCamSink) {
    return StatusOf([&] {
        const platform::SectionGuard guard(m_cs);
        if (!m_spCamSink)
            return S_FALSE;
        TRASSDO(m_spCamSink==pCamSink, return E_UNEXPECTED);
        m_spCamSink = nullptr;
        return S_OK;
    });
}

HRESULT CCam::GetName(BSTR* szName) {
    return StatusOf([&] {
        TRASSDO(szName, return E_POINTER);
        *szName = platform::Bstr(m_bstrName).Detach();
        return S_OK;
    });
}

HRESULT CCam::GetSetting(std::int32_t nSetting, SVariant* pValue) {
    if (nSetting != kCamSettingConnected)
        return E_NOTIMPL;
    if (pValue == nullptr)
        return E_POINTER;
    pValue->vt = VT_BOOL;
    pValue->boolVal = IsConnected() ? 1 : 0;
    return S_OK;
}

CCam::CSchema::CSchema()
    : m_oXmlConfig(nullptr, platform::Bstr(XmlConfig::kRootTemplate)),
      m_hr(m_oXmlConfig.Load(nullptr, CameraSchemaText())),
      m_oArg(kSchemaArg, reinterpret_cast<std::uintptr_t>(this)) {}

const CCam::CSchema* CCam::CSchema::OfThread() {
    return reinterpret_cast<const CSchema*>(
        static_cast<std::uintptr_t>(CThreadArg::Lookup(kSchemaArg, platform::CurrentThreadId())));
}

CXmlConfigTree CCam::XmlClass(const CXmlConfigTree& oXmlConfigTree) {
    std::optional<CSchema> oOwn;
    const CSchema* pSchema = CSchema::OfThread();
    if (pSchema == nullptr)
        pSchema = &oOwn.emplace();
    const XmlConfig::CXmlConfig& oXmlConfig = pSchema->m_oXmlConfig;
    const HRESULT hr = pSchema->m_hr;
    TRASSDO(SUCCEEDED(_ARE(hr)), return oXmlConfigTree);
    TRASSDO((IConfigElement*)oXmlConfig && (IConfigElement*)oXmlConfigTree, return oXmlConfigTree);
    (void)XmlConfig::CXmlConfig::Merge(oXmlConfigTree.Element(), oXmlConfig.Root(),
                                       XmlConfig::CXmlConfig::eAppend);
    return oXmlConfigTree;
}

HRESULT CCam::operator>>(IConfigElement* pElement) {
    XmlClass(CXmlConfigTree(pElement, true));
    HRESULT hr = S_OK;
    for (const auto& [szName, pText] : kFields) {
        hr = XmlConfig::SaveText(this->*pText, XmlConfig::SelectOrCreate(pElement, szName, true).Get());
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    }
    return hr;
}

HRESULT CCam::operator<<(IConfigElement* pElement) {
    HRESULT hr = S_OK;
    for (const auto& [szName, pText] : kFields) {
        platform::Bstr bstrText;
        hr = XmlConfig::LoadText(bstrText, XmlConfig::SelectOrCreate(pElement, szName, true).Get());
        // Clients and the receive loop read the name without a lock, and the table knows the camera by it.
        // Only a document that matches its items by something else than their names gives another one.
        const bool bKept = pText == &CCam::m_bstrName && !m_bstrName.IsNull();
        if (SUCCEEDED(hr) && bKept && bstrText != m_bstrName)
            hr = E_INVALIDARG;
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        if (!bKept)
            this->*pText = std::move(bstrText);
    }
    return hr;
}

void CCam::OnFrame(const std::uint8_t* pHeader, std::uint32_t nHeaderSize, const std::uint8_t* pBody,
                   std::uint32_t nBodySize) {
    // Before the lock, which somebody else may hold: the last byte has just been read.
    const SArrival oArrival = SArrival::Now();
    // When memory is short the frame is lost and the connection goes on.
    (void)StatusOf([&] {
        DeliverFrame(oArrival, pHeader, nHeaderSize, pBody, nBodySize);
        return S_OK;
    });
}

void CCam::DeliverFrame(const SArrival& oArrival, const std::uint8_t* pHeader, std::uint32_t nHeaderSize,
                        const std::uint8_t* pBody, std::uint32_t nBodySize) {
    LOG_AS("CCam::OnFrame");
    const platform::SectionGuard guard(m_cs);
    if (!m_spCamSink)
        return;
    // The sink may disconnect itself inside the call; it lives until the call is over.
    const platform::ComPtr<ICamSink> spCamSink = m_spCamSink;
    if (pHeader == nullptr || pBody == nullptr) {
        const HRESULT hr = spCamSink->OnVideoFrame(nullptr);
        TRASSDO(SUCCEEDED(_ARE(hr)), {});
        return;
    }
    CountFrame();

    const platform::ComPtr<CVideoFrame> spFrame = CVideoFrame::Create();
    HRESULT hr = spFrame ? S_OK : E_OUTOFMEMORY;
    TRASSDO(SUCCEEDED(_ARE(hr)), return);

    // Header and body, one behind the other, are one JPEG file.
    const std::uint32_t nSize = nHeaderSize + nBodySize;
    std::unique_ptr<std::uint8_t[]> hMem(new (std::nothrow) std::uint8_t[nSize]);
    TRASSDO(hMem, return);
    std::memcpy(hMem.get(), pHeader, nHeaderSize);
    std::memcpy(hMem.get() + nHeaderSize, pBody, nBodySize);

    // The block is not freed behind the call: the frame keeps it (CVideoFrame::Init).
    spFrame->Init(std::move(hMem), nSize, oArrival);
    hr = spCamSink->OnVideoFrame(spFrame.Get());
    TRASSDO(SUCCEEDED(_ARE(hr)), {});
}

void CCam::CountFrame() {
    LOG_AS("CCam::OnFrame");
    ++m_nFrames;
    const std::int64_t tNow = platform::SecondsSinceEpoch();
    const std::int64_t tPassed = tNow - m_tLast;
    // Compared as unsigned 32 bits: a clock that was set back ends the period at once.
    if (static_cast<std::uint32_t>(tPassed) < m_nFpsInterval)
        return;
    m_tLast = tNow;
    m_fFps = m_nFrames / static_cast<double>(tPassed);
    m_nFrames = 0;
    LogPrintf(LOG_SITE(), kChannelFps, u"cam %s fps: %f\n", m_bstrName, m_fFps);
}
