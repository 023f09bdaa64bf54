// What a phone's page and the host tell each other.
//
// Texts are JSON objects with a "type". From the page:
//   {"type":"state","state":"running"|"paused"|"stopped","facing":"user"|"environment",
//    "width":640,"height":480,"rate":10,"torch":true|false|null}
//                                       first, and at each change: what it really does
//   {"type":"ping","at":N}              every five seconds
// and, binary, one picture: its number in four bytes, the highest first, and the JPEG.
//
// From the host:
//   {"type":"ready","camera":"yard"}    pictures may come: the component has asked for them
//   {"type":"ack","number":N}           the component has that picture; "dropped":true where it went nowhere
//   {"type":"watched","watched":false}  nobody looks: one picture a second will do
//   {"type":"pong","at":N}
//   {"type":"control",...}              what an administrator wants: "torch", "facing", "width" and "height",
//                                       "rate"
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "host/feed/camera_feed.h"

namespace host {

// The longest text of a page.
inline constexpr std::size_t kMostPageTextBytes = 1024;

struct PagePing {
    double at = 0; // the page's own clock, for itself
};
using PageMessage = std::variant<PhoneState, PagePing>;
// Nothing for a text that no page of this host sends.
std::optional<PageMessage> ReadPageMessage(std::string_view text);

struct PagePicture {
    std::uint32_t number = 0;
    std::string_view jpeg; // within the message
};
// Nothing for one that is empty, or too long for the phones' protocol.
std::optional<PagePicture> ReadPagePicture(std::string_view message);

std::string ReadyMessage(std::string_view camera);
std::string AckMessage(std::uint32_t number, bool dropped);
std::string WatchedMessage(bool watched);
std::string PongMessage(const PagePing& ping);

// The message for a page that does what a body of JSON asks for; nothing for a body that asks for nothing,
// for more than there is, or for what no phone's page offers.
std::optional<std::string> ControlMessage(std::string_view body);

} // namespace host
