// A settings file of the test's own, and cameras that come by a set of the settings.
#pragma once

#include <unistd.h>

#include <string>
#include <string_view>

#include "interfaces/IConfiguration.h"
#include "interfaces/IUploadServer.h"
#include "platform/files.h"
#include "platform/text.h"
#include "support/temp_folder.h"

namespace support {

// The folder that the component keeps its settings in; one for a process, since the component asks once.
inline const std::string& SettingsFolder() {
    static const TempFolder folder;
    static const std::string path = [] {
        platform::SetCommonDataFolder(folder.Path().string());
        return folder.Path().string() + "/Norvane/Tessaron/Servers";
    }();
    (void)platform::CreateFolder(path);
    return path;
}

inline std::string SettingsFile() {
    return SettingsFolder() + "/Morrowstream.xml";
}

// For the start of a test: the next server object has no cameras.
inline void ForgetSettings() {
    ::unlink(SettingsFile().c_str());
}

// An item of the configuration document. The texts stand in it as they are.
inline std::u16string CameraItem(std::u16string_view name, std::u16string_view type,
                                 std::u16string_view password) {
    std::u16string xml = u"<item>";
    const std::pair<std::u16string_view, std::u16string_view> fields[] = {
        {u"Name", name}, {u"Type", type}, {u"Password", password}};
    for (const auto& [field, text] : fields) {
        xml.append(u"<").append(field).append(u" type='BSTR'>").append(text);
        xml.append(u"</").append(field).append(u">");
    }
    return xml + u"</item>";
}

// What a get or a set of the settings gives back.
struct Answer {
    HRESULT status;
    platform::Bstr body, head;
};
inline Answer Ask(IConfiguration& configuration, bool set, const platform::Bstr& path,
                  const platform::Bstr& body, const platform::Bstr& head) {
    Answer answer{S_OK, body, head};
    BSTR content = answer.body.Detach();
    BSTR contentHead = answer.head.Detach();
    answer.status = set ? configuration.SetContent(path.Get(), &content, &contentHead)
                        : configuration.GetContent(path.Get(), &content, &contentHead);
    answer.body = platform::Bstr::Adopt(content);
    answer.head = platform::Bstr::Adopt(contentHead);
    return answer;
}
inline Answer Get(IConfiguration& configuration, std::u16string_view path) {
    return Ask(configuration, false, platform::Bstr(path), platform::Bstr(), platform::Bstr());
}
inline Answer Set(IConfiguration& configuration, const platform::Bstr& body) {
    return Ask(configuration, true, platform::Bstr(u"config"), body,
               platform::Bstr(u"set\nContent-Type: text/xml\n"));
}

// Adds a camera to those that are there, as an editor of the settings does. The status of the set.
inline HRESULT AddCamera(IUploadServer* server, std::u16string_view name, std::u16string_view type,
                         std::u16string_view password) {
    platform::ComPtr<IConfiguration> configuration;
    (void)server->QueryInterface(IConfiguration::iid, configuration.ReceiveVoid());
    std::u16string xml(Get(*configuration.Get(), u"config").body.View());
    const std::u16string item = CameraItem(name, type, password);
    const std::size_t end = xml.find(u"</cams>");
    if (end != std::u16string::npos)
        xml.insert(end, item);
    else
        xml = u"<config><cams KeyXPath='Name/text()'>" + item + u"</cams></config>";
    return Set(*configuration.Get(), platform::Bstr(xml)).status;
}

} // namespace support
