// The server object: the one thing of this component that a host sees.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "camera/Cam.h"
#include "interfaces/IConfiguration.h"
#include "interfaces/IInfo.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/IVideoSource.h"
#include "interfaces/IWebHandler.h"
#include "interfaces/IWebServer.h"
#include "midlet/MakeJar.h"
#include "platform/com.h"
#include "platform/sync.h"
#include "platform/text.h"

// A video source whose cameras are phones. At most one lives in a process; CComObjectSingletonFactory makes
// it.
//
// Any thread may come into any operation. m_oLock is re-entrant, since a sink that is called with it held may
// call back, and nests inside the creation lock, never around it.
class CUploadServer : public IUploadServer,
                      public IVideoSource,
                      public IInfo,
                      public IConfiguration,
                      public IWebHandler {
public:
    HRESULT QueryInterface(const GUID& interfaceId, void** object) override = 0;
    std::uint32_t AddRef() override = 0;
    std::uint32_t Release() override = 0;

    // The object and its cameras (UploadServer.cpp)
    HRESULT FinalConstruct();
    HRESULT Subscribe(IVideoSourceSink* pVideoSourceSink) override;
    HRESULT Unsubscribe(IVideoSourceSink* pVideoSourceSink) override;
    HRESULT ConnectToCam(BSTR bstrName, ICam** ppCam) override;
    HRESULT NoOperation(BSTR) override { return S_OK; }
    HRESULT RemoveCam(BSTR bstrName) override;
    HRESULT GetName(BSTR* szName) override;

    // Intake of connections (Intake.cpp)
    HRESULT OnConnection(BSTR bstrName, SOCKET hSocket, std::int32_t bUpload, std::int32_t nAuthSize,
                         const std::uint8_t* pAuth) override;

    // Web handler (WebHandler.cpp)
    HRESULT IsStreamPath(const char16_t* szPath, std::int32_t* bStream) override;
    HRESULT GetHandlerProcessId(std::uint32_t* nProcessId) override;
    HRESULT Process(const char16_t* szPath, SOCKET hSocket, BSTR head) override;

    // Content (Content.cpp)
    HRESULT Request(const char16_t* szPath, BSTR* body, BSTR* head) override;
    HRESULT GetContent(BSTR path, BSTR* body, BSTR* head) override;
    HRESULT SetContent(BSTR path, BSTR* body, BSTR* head) override;

protected:
    CUploadServer() = default;
    ~CUploadServer();

    // IWebHandler is not among them: the host has it by its registration alone.
    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<IUploadServer, IVideoSource, IInfo, IConfiguration>(this, interfaceId,
                                                                                        object);
    }

private:
    // Ordered by UTF-16 code units; upper and lower case differ, and no lookup folds or trims.
    using CamTable = std::map<std::u16string, platform::ComPtr<CCam>, std::less<>>;

    // Both set hSocket to 0 when the connection has found its owner, or is closed.
    HRESULT StartUpload(std::u16string_view name, SOCKET& hSocket);
    HRESULT StartViewing(std::u16string_view name, SOCKET& hSocket, std::int32_t nAuthSize,
                         const std::uint8_t* pAuth);
    HRESULT FindWebServer();
    // Calls with a fresh copy of each camera's name, in table order.
    template <class Call>
    void ForEachName(Call call);

    // Content.cpp. `bSet` says whether the body is to be taken over first.
    HRESULT GetSetContent(bool bSet, BSTR path, BSTR* body, BSTR* head);
    static void StoreContent(platform::Bstr content, platform::Bstr contentHead, BSTR* body, BSTR* head);

    // Settings.cpp. The file is read when the object is made, and written after each set.
    struct SSettings;
    HRESULT Load();
    HRESULT Save();
    // Exchanges settings and document; S_OK always. A load that ends by an exception changes nothing.
    HRESULT XmlClass(XmlConfig::CXmlConfig& oXmlConfig, bool bStore);
    void BindSettings(IConfigElement* pRoot, bool bStore);
    [[nodiscard]] SSettings CopySettings() const;
    void Restore(SSettings& oSettings) noexcept;
    void TakeBack(SSettings& oBefore) noexcept;
    HRESULT GetSetConfig(bool bSet, BSTR* body, BSTR* head);

    // The head of every answer that is text.
    static constexpr char16_t kTextHead[] = u"HTTP/1.0 200 OK\r\ncontent-type: text/xml\r\n";
    // MobilePage.cpp
    static HRESULT GetStyleSheet(BSTR* body, BSTR* head);
    static HRESULT GetMobilePage(BSTR* body, BSTR* head);

    // Archives.cpp
    HRESULT GetMidletArchive(std::uint16_t nResource, std::u16string_view query, BSTR* body, BSTR* head);
    std::optional<std::string> TypeForUpload(std::u16string_view login, std::u16string_view password);
    std::optional<std::string> MakeJar(std::uint16_t nResource, const QueryMap& params, const char* szFormat);

    // Members go in the reverse of this order: the registration first, the subscriber last.
    platform::ComPtr<IVideoSourceSink> m_spVideoSourceSink; // changed under m_oLock
    CamTable m_oCams;                                       // guarded by m_oLock
    std::u16string m_strHost; // host and port that phones connect to; guarded by m_oLock
    platform::CriticalSection m_oLock;
    platform::OnceComPtr<IWebServer> m_spWebServer;       // set by the first viewing connection that finds it
    platform::ComPtr<IWebHandlerHost> m_spWebHandlerHost; // set once, before anybody else has the object
};

template <class Call>
void CUploadServer::ForEachName(Call call) {
    // The names are taken first: a sink may change the table from inside its call.
    std::vector<platform::Bstr> aNames;
    aNames.reserve(m_oCams.size());
    for (const auto& entry : m_oCams)
        aNames.emplace_back(entry.first);
    for (const auto& name : aNames)
        call(name.Get());
}
