// The text of the requests by which a viewer asks its host for pictures.
#pragma once

#include <cstdint>
#include <span>
#include <string>

// One request line, three header lines and a blank one, each with a line feed alone at its end:
//
//   GET video?original HTTP/1.1
//   peer-info: 127.0.0.1:0
//   User-Agent: Morrowstream
//   QV-Auth: <the credentials block in base64; nothing for an empty one>
std::u16string MakeRequestText(std::span<const std::uint8_t> credentials);
