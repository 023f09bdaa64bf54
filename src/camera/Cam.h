// One configured camera.
#pragma once

#include <cstdint>
#include <string_view>

#include "Common/Configuration/XmlConfigSDK/ThreadArg.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"
#include "camera/VMS.h"
#include "interfaces/ICam.h"
#include "interfaces/ICamSettings.h"
#include "interfaces/IConfiguration.h"
#include "interfaces/IInfo.h"
#include "platform/com.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/threads.h"

struct SArrival;

// Holds a name, a size class and a password, the one connected sink, and the source that receives the phone's
// frames. Sink and phone come and go independently: frames that arrive without a sink are read and dropped.
class CCam : public ICam, public IInfo, public ICamSettings, public CVMSSource, public IConfiguration {
public:
    // A new camera; null when memory is short.
    static platform::ComPtr<CCam> Create();

    HRESULT QueryInterface(const GUID& interfaceId, void** object) override = 0;
    std::uint32_t AddRef() override = 0;
    std::uint32_t Release() override = 0;

    // ICam. m_cs is held across the making of a frame and the sink's call, so Disconnect waits for a frame in
    // progress.
    HRESULT Connect(ICamSink* pCamSink) override;
    HRESULT Disconnect(ICamSink* pCamSink) override;

    // IInfo
    HRESULT GetName(BSTR* szName) override;

    // ICamSettings
    HRESULT GetSetting(std::int32_t nSetting, SVariant* pValue) override;
    HRESULT Reserved(std::int32_t, const SVariant*) override { return E_NOTIMPL; }

    // IConfiguration
    HRESULT GetContent(BSTR, BSTR*, BSTR*) override { return E_NOTIMPL; }
    HRESULT SetContent(BSTR, BSTR*, BSTR*) override { return E_NOTIMPL; }

    // The schema, parsed once for all cameras that are bound on this thread while the object lives: without
    // one each camera parses it for itself.
    class CSchema {
    public:
        CSchema();
        static const CSchema* OfThread();

        XmlConfig::CXmlConfig m_oXmlConfig;
        HRESULT m_hr; // of its load

    private:
        CThreadArg m_oArg;
    };

    // Adds the schema of a camera's element to the cursor's element in a configuration document: its
    // attributes, and its children besides those that are there. If that fails, the failure is logged and the
    // element stays as it was.
    static CXmlConfigTree XmlClass(const CXmlConfigTree& oXmlConfigTree);
    // Writes the fields into a new element, or reads them from one, in the order below. A failure is reported
    // and returned at once; fields before it have their new values. A camera that has a name keeps it:
    // E_INVALIDARG for an element with another one. A new one has it from its key in the table.
    void SetKey(std::u16string_view key) { m_bstrName = platform::Bstr(key); }
    HRESULT operator>>(IConfigElement* pElement);
    HRESULT operator<<(IConfigElement* pElement);

    // Read from the document before anybody else has the camera. The name stays from then on, and any thread
    // may read it. The others change with a document and are read by connections, under the server's lock.
    platform::Bstr m_bstrName;
    // "320x240" or "160x120": tells the phone what to send. The pipeline does not look at it.
    platform::Bstr m_bstrType;
    platform::Bstr m_bstrPassword;

protected:
    CCam() : CVMSSource(*static_cast<ICam*>(this)), m_tLast(platform::SecondsSinceEpoch()) {}
    // Closes a socket that is still held before anything else goes: without a connection no receive loop can
    // call OnFrame.
    ~CCam() { CloseConnection(); }

    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<ICam, IInfo, ICamSettings, IConfiguration>(this, interfaceId, object);
    }

    // CVMSSource
    void OnFrame(const std::uint8_t* pHeader, std::uint32_t nHeaderSize, const std::uint8_t* pBody,
                 std::uint32_t nBodySize) override;

private:
    void DeliverFrame(const SArrival& oArrival, const std::uint8_t* pHeader, std::uint32_t nHeaderSize,
                      const std::uint8_t* pBody, std::uint32_t nBodySize);
    void CountFrame();

    platform::CriticalSection m_cs; // guards all that follows, and the making of a frame
    platform::ComPtr<ICamSink> m_spCamSink;
    std::uint32_t m_nFrames = 0;      // since the last rate report
    std::uint32_t m_nFpsInterval = 5; // seconds between reports
    double m_fFps = 0;                // the last measured rate, for the trace alone
    std::int64_t m_tLast;             // of the last report, seconds
};
