// /tiles: the one connection of the page, a WebSocket with the state of all cameras and their pictures.
//
// To the page, text: the state (report.h), at once, on every change and as a heartbeat. To the page, binary:
// one picture behind a header of 20 bytes: u8 1, u8 0, u16 0, u32 camera number, u32 sequence number, u64
// time of arrival in Unix milliseconds; all little-endian. From the page, text: see TileBoard.
#pragma once

#include "host/base/wait.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

// Takes the socket and returns when the page has left or the server stops. The request asks for a WebSocket.
void ServeTiles(Descriptor socket, const Request& request, const Services& services);

} // namespace host
