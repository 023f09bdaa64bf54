// The configuration document, as a set of the settings takes it: as text, and as bytes in a text's place.

#include "support/Settings.h"
#include "fuzz/Fuzz.h"
#include "interfaces/IConfiguration.h"
#include "platform/files.h"
#include "platform/text.h"
#include "support/ComponentClasses.h"
#include "support/FakeWebHost.h"

namespace {

using platform::Bstr;
using platform::ComPtr;

ComPtr<IConfiguration> CreateServer() {
    // No folder: every save fails at once, and nothing is left behind.
    platform::SetCommonDataFolder("/dev/null/settings");
    static support::WebHostClass host;
    Require(support::RegisterComponentClasses() == S_OK);
    ComPtr<IConfiguration> configuration;
    Require(platform::CoCreateInstance(kUploadServerClass, nullptr, platform::kContextAll,
                                       IConfiguration::iid, configuration.ReceiveVoid()) == S_OK);
    return configuration;
}

support::Answer Call(IConfiguration& configuration, bool set, const Bstr& document) {
    support::Answer answer =
        support::Ask(configuration, set, Bstr(u"config"), document, Bstr(u"set\ncontent-type: text/xml\n"));
    Require(answer.status != E_UNEXPECTED && answer.status != E_OUTOFMEMORY);
    return answer;
}

Bstr Get(IConfiguration& configuration) {
    const support::Answer answer = Call(configuration, false, nullptr);
    Require(answer.status == S_OK);
    return answer.body;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const ComPtr<IConfiguration> configuration = CreateServer();
    // Cameras of one run may not be seen by the next.
    (void)Call(*configuration, true,
               Bstr(u"<config><host type='BSTR'/><cams KeyXPath='Name/text()'/></config>"));

    const Bstr before = Get(*configuration);
    const std::string_view bytes = AsText(data, size);
    const bool isText = size % 2 == 0;
    const support::Answer answer =
        Call(*configuration, true, isText ? Bstr(platform::FromUtf8(bytes)) : Bstr::FromBytes(bytes));
    // A set that was broken off changes nothing. Any other tells what is there; that is a document, which is
    // taken in its turn and changes nothing.
    const Bstr after = Get(*configuration);
    Require(after == (answer.status == E_FAIL ? before : answer.body));
    Require(Call(*configuration, true, after).body == after);
    return 0;
}
