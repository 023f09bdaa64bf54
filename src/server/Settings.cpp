// The object's lasting state, the host address and the cameras: its document and its file.

#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"
#include "Common/Configuration/config/LocalStrings.h"
#include "platform/folders.h"
#include "runtime/trace/Trace.h"
#include "server/HTTPHeader.h"
#include "server/UploadServer.h"

using XmlConfig::CXmlConfig;

namespace {

platform::Bstr RootTemplate() {
    return platform::Bstr(XmlConfig::kRootTemplate);
}

// Null where there is no common folder: nothing can be read or written then. The folders below it are the
// host's to make, and so is what becomes of a damaged file.
platform::Bstr GetSettingsPath(std::u16string_view extension) {
    static const std::string strFolder = platform::KnownFolder(platform::kFolderCommonData);
    if (strFolder.empty())
        return nullptr;
    static const std::u16string strStart =
        platform::FromUtf8(strFolder) + uR"(\Norvane\Tessaron\Servers\Morrowstream.)";
    return platform::Bstr(std::u16string(strStart).append(extension));
}

} // namespace

HRESULT CUploadServer::Load() {
    const platform::SectionGuard guard(m_oLock);
    CXmlConfig oXmlConfig(nullptr, RootTemplate());
    const HRESULT hr = oXmlConfig.Load(GetSettingsPath(u"xml"), RootTemplate());
    TRASSDO(SUCCEEDED(hr), return hr);
    return XmlClass(oXmlConfig, false);
}

HRESULT CUploadServer::Save() {
    const platform::SectionGuard guard(m_oLock);
    CXmlConfig oXmlConfig(nullptr, RootTemplate());
    XmlClass(oXmlConfig, true);
    const HRESULT hr = oXmlConfig.Save(GetSettingsPath(u"xml"));
    TRASSDO(SUCCEEDED(hr), {});
    return hr;
}

// Trouble inside the binding shows only in what the objects hold afterwards. Whatever it is, a subscriber
// that heard cameras go hears of those that are there then.
HRESULT CUploadServer::XmlClass(CXmlConfig& oXmlConfig, bool bStore) {
    const platform::SectionGuard guard(m_oLock);
    if (bStore) {
        (void)oXmlConfig.Load(nullptr, RootTemplate());
        BindSettings(oXmlConfig.Root(), true);
        return S_OK;
    }
    // The sink may unsubscribe from inside its call.
    if (const platform::ComPtr<IVideoSourceSink> spSink = m_spVideoSourceSink)
        ForEachName([&](BSTR name) { spSink->OnCamRemoved(name); });
    CamTable oBefore = m_oCams;
    (void)StatusOf([&] {
        BindSettings(oXmlConfig.Root(), false);
        return S_OK;
    });
    // The loop's own reference would otherwise keep a camera that is gone, and its connection, alive.
    for (const auto& [name, spCam] : oBefore) {
        const auto it = m_oCams.find(name);
        if (it == m_oCams.end() || it->second.Get() != spCam.Get())
            spCam->CloseConnection();
    }
    if (const platform::ComPtr<IVideoSourceSink> spSink = m_spVideoSourceSink)
        ForEachName([&](BSTR name) { spSink->OnCamAdded(name); });
    return S_OK;
}

void CUploadServer::BindSettings(IConfigElement* pRoot, bool bStore) {
    platform::Bstr bstrHost(m_strHost);
    platform::Bstr bstrHostLabel(u"//local/@host");
    platform::Bstr bstrCamsLabel(u"//local/@cams");
    platform::Bstr bstrAddCamLabel(u"//local/@addcam");
    platform::Bstr bstrKeyXPath(u"Name/text()");
    platform::Bstr bstrAdd(u"../cams");

    const CXmlConfigTree oTree(pRoot, bStore);
    WriteLocalStrings(oTree);
    oTree.Bind({u"host", bstrHost}).Attr({u"displayname", &bstrHostLabel}).End();
    // Before the cameras, which may be many or fail.
    m_strHost = bstrHost.View();
    CTag oCams(u"cams", m_oCams);
    oCams.aAttributes = {{u"KeyXPath", &bstrKeyXPath}};
    oTree.Bind(oCams).Attr({u"displayname", &bstrCamsLabel}).End();
    const CXmlConfigTree oAddCam = oTree.Descend({u"addcam"}).Attr({u"add", &bstrAdd});
    const CXmlConfigTree oItem = oAddCam.Descend({u"item"});
    // Only a store has use for the schema: a load would put it into a document that is about to be dropped.
    if (oItem.Element() != nullptr && bStore)
        CCam::XmlClass(oItem);
    oItem.End().Attr({u"displayname", &bstrAddCamLabel}).End();
}

HRESULT CUploadServer::GetSetConfig(bool bSet, BSTR* body, BSTR* head) {
    CXmlConfig oXmlConfig(nullptr, RootTemplate());
    HRESULT hr = S_OK;
    if (bSet) {
        CHTTPHeader oHTTPHeader;
        // Whether the head is whole does not matter, only what it says of the content.
        (void)oHTTPHeader.Parse(platform::ToNarrow(platform::ViewOf(*head), platform::kCodePageThread));
        TRASSDO(oHTTPHeader.GetParam("content-type")=="text/xml", return E_UNEXPECTED);
        // A text that is no document leaves the root template, which changes nothing.
        hr = oXmlConfig.Load(nullptr, platform::Bstr::CopyOf(*body));
        XmlClass(oXmlConfig, false);
        (void)Save(); // reported there; the change stays in memory
    }
    XmlClass(oXmlConfig, true);
    platform::Bstr bstrXml = oXmlConfig.GetXml();
    if (bstrXml.IsNull())
        return E_FAIL;
    StoreContent(std::move(bstrXml), platform::Bstr(kTextHead), body, head);
    return hr;
}
