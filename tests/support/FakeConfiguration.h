// Settings without a component: keeps the document that it is given, in the component's own form.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "interfaces/IConfiguration.h"
#include "platform/text.h"
#include "support/Fake.h"

namespace support {

inline std::u16string CameraItem(std::u16string_view name, std::u16string_view password) {
    return uR"x(<item displayname="Name/text()" removable="true"><Name type="BSTR" check_value="!=''" )x"
           uR"x(unique="../../item/Name" displayname="//local/@name">)x" +
           std::u16string(name) +
           uR"x(</Name><Type type="BSTR" lookup="item" displayname="//local/@type">160x120<item type="BSTR">)x"
           uR"x(320x240</item><item type="BSTR">160x120</item></Type><Password type="BSTR" )x"
           uR"x(displayname="//local/@password" password="" restriction="(SelectOne('text()').xml=='') || )x"
           uR"x((SelectOne('../Name/text()').xml!='')" onerror="//local/@passworderror">)x" +
           std::u16string(password) + u"</Password></item>";
}

// A document with those items under `cams`.
inline std::u16string SettingsText(std::u16string_view items) {
    return uR"x(<config xmlns:xpt="http://www.example.org/Kelp/xpt"><local hidden="true" name="Name" )x"
           uR"x(type="Type" login="User" password="Password" passworderror="Unable to use password )x"
           uR"x(without user name" addcam="Add camera" cams="Cameras" host="Host"/><host type="BSTR" )x"
           uR"x(displayname="//local/@host">10.0.0.1:80</host><cams KeyXPath="Name/text()" )x"
           uR"x(displayname="//local/@cams">)x" +
           std::u16string(items) + uR"x(</cams><addcam add="../cams" displayname="//local/@addcam">)x" +
           CameraItem(u"?", u"") + u"</addcam></config>";
}

class FakeConfiguration : public Fake<IConfiguration> {
public:
    std::u16string m_text = SettingsText({});
    HRESULT m_result = S_OK;       // of a set
    std::function<void()> m_onSet; // called within one
    platform::Bstr m_path, m_head; // of the last set

    HRESULT GetContent(BSTR path, BSTR* body, BSTR* head) override {
        return platform::ViewOf(path) == u"config" ? Answer(body, head) : E_ELEMENT_NOT_FOUND;
    }
    HRESULT SetContent(BSTR path, BSTR* body, BSTR* head) override {
        const HRESULT result = m_result;
        m_path = platform::Bstr::CopyOf(path);
        m_head = platform::Bstr::CopyOf(*head);
        if (SUCCEEDED(result))
            m_text = platform::ViewOf(*body);
        if (m_onSet)
            m_onSet();
        return FAILED(result) ? result : Answer(body, head);
    }

protected:
    ~FakeConfiguration() = default;

private:
    HRESULT Answer(BSTR* body, BSTR* head) const {
        SysFreeString(std::exchange(*body, platform::Bstr(m_text).Detach()));
        SysFreeString(std::exchange(*head, platform::Bstr(u"HTTP/1.0 200 OK\r\n").Detach()));
        return S_OK;
    }
};
using FakeConfigurationObject = platform::ComObject<FakeConfiguration>;

} // namespace support
