#include "host/preferences/document.h"

namespace host {
namespace {

// The labels of the page in other languages stand in host/page/shared/words.js, by their names here.
constexpr std::u16string_view kPattern = uR"xml(<preferences>
<local hidden="true" lang="en"
 recording="Recording" keepDays="Days to keep" keepMegabytes="Megabytes at most" freePercent="Percent of the disk to leave free"
 freeMegabytes="Megabytes to leave free" phonesWatchAll="Phones may watch all cameras"
 notices="Notices" noticeKinds="Tell of" webhookAddress="Webhook: address" webhookSecret="Webhook: secret"
 mqttServer="MQTT: server" mqttPort="MQTT: port" mqttTls="MQTT: TLS" mqttUser="MQTT: user" mqttPassword="MQTT: password"
 mqttTopic="MQTT: topics begin with" mqttSnapshots="MQTT: pictures with events" mqttDiscovery="MQTT: tell Home Assistant"
 mqttDiscoveryTopic="MQTT: Home Assistant's topics begin with"
 eventCameraConnected="A phone connects"
 eventCameraLost="A camera is lost"
 eventMotionBegan="Motion begins"
 eventMotionEnded="Motion ends"
 eventRecordingPaused="Recording pauses"
 eventRecordingResumed="Recording goes on"
 eventRecordingTrouble="Trouble with recordings"
 eventSignInRefused="A sign-in is refused"
 eventSettingsChanged="Settings change"
 eventUsersChanged="Users change"
 eventServerStarted="The server starts"
 camerasRecorded="Recording and motion" record="Record" recordOff="Off" recordAlways="Always" recordMotion="On motion"
 lookForMotion="Look for motion" sensitivity="Sensitivity" mask="Where motion does not count" />
<recording displayname="//local/@recording">
 <days type="number" min="0" max="3650" displayname="//local/@keepDays"/>
 <megabytes type="number" min="0" max="1000000000" displayname="//local/@keepMegabytes"/>
 <freePercent type="number" min="0" max="90" displayname="//local/@freePercent"/>
 <freeMegabytes type="number" min="0" max="1000000000" displayname="//local/@freeMegabytes"/>
</recording>
<viewing>
 <phonesWatchAll type="yesno" displayname="//local/@phonesWatchAll"/>
</viewing>
<notices displayname="//local/@notices">
 <kinds type="set" lookup="item" displayname="//local/@noticeKinds">
  <item type="BSTR" displayname="//local/@eventCameraConnected">camera-connected</item>
  <item type="BSTR" displayname="//local/@eventCameraLost">camera-lost</item>
  <item type="BSTR" displayname="//local/@eventMotionBegan">motion-began</item>
  <item type="BSTR" displayname="//local/@eventMotionEnded">motion-ended</item>
  <item type="BSTR" displayname="//local/@eventRecordingPaused">recording-paused</item>
  <item type="BSTR" displayname="//local/@eventRecordingResumed">recording-resumed</item>
  <item type="BSTR" displayname="//local/@eventRecordingTrouble">recording-trouble</item>
  <item type="BSTR" displayname="//local/@eventSignInRefused">sign-in-refused</item>
  <item type="BSTR" displayname="//local/@eventSettingsChanged">settings-changed</item>
  <item type="BSTR" displayname="//local/@eventUsersChanged">users-changed</item>
  <item type="BSTR" displayname="//local/@eventServerStarted">server-started</item>
 </kinds>
 <webhook>
  <address type="BSTR" longest="2000" displayname="//local/@webhookAddress"/>
  <secret type="BSTR" longest="256" password="" sealed="true" displayname="//local/@webhookSecret"/>
 </webhook>
 <mqtt>
  <server type="BSTR" longest="255" displayname="//local/@mqttServer"/>
  <port type="number" min="1" max="65535" displayname="//local/@mqttPort"/>
  <tls type="yesno" displayname="//local/@mqttTls"/>
  <user type="BSTR" longest="256" displayname="//local/@mqttUser"/>
  <password type="BSTR" longest="256" password="" sealed="true" displayname="//local/@mqttPassword"/>
  <topic type="BSTR" longest="200" displayname="//local/@mqttTopic"/>
  <snapshots type="yesno" displayname="//local/@mqttSnapshots"/>
  <discovery type="yesno" displayname="//local/@mqttDiscovery"/>
  <discoveryTopic type="BSTR" longest="200" displayname="//local/@mqttDiscoveryTopic"/>
 </mqtt>
</notices>
<cameras KeyXPath="name/text()" displayname="//local/@camerasRecorded">
 <item displayname="name/text()">
  <name type="BSTR" hidden="true"/>
  <record type="BSTR" lookup="item" displayname="//local/@record">
   <item type="BSTR" displayname="//local/@recordOff">off</item>
   <item type="BSTR" displayname="//local/@recordAlways">always</item>
   <item type="BSTR" displayname="//local/@recordMotion">motion</item>
  </record>
  <days type="number" min="0" max="3650" displayname="//local/@keepDays"/>
  <megabytes type="number" min="0" max="1000000000" displayname="//local/@keepMegabytes"/>
  <motion type="yesno" displayname="//local/@lookForMotion"/>
  <sensitivity type="number" min="1" max="10" displayname="//local/@sensitivity"/>
  <mask type="mask" displayname="//local/@mask"/>
 </item>
</cameras>
</preferences>)xml";

} // namespace

std::u16string_view PreferencePattern() noexcept {
    return kPattern;
}

} // namespace host
