// The records that cross the connection of an uploading phone, byte for byte.
//
// Packed, little-endian, without magic, version or checksum: a record is known by its place in the
// conversation.
//
//   phone                              server
//   SAuthRequest             ------>
//                            <------   SAuthResponce
//   size, header bytes       ------>
//                            <------   SFrameRequest: 10 frames, please
//   SFrameResponce, body     ------>   (again and again; another request whenever fewer than
//                                       5 are outstanding)
//
// The header bytes followed by a frame's body are one complete JPEG file.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

static_assert(std::endian::native == std::endian::little, "the records are read in place");

#pragma pack(push, 1)

// Phone to server, once.
struct SAuthRequest {
    std::uint8_t abPrefix[67]; // the phone's aims and its login; the server does not look at them
    // The camera's password. Ends at its terminator or, without one, at the field's end, so a stored password
    // of more than 64 bytes never matches.
    char szPassword[64];
};

// Server to phone, once.
struct SAuthResponce {
    static constexpr std::uint8_t erSuccess = 0;
    static constexpr std::uint8_t erDenied = 1;

    std::uint8_t nResponce;
};

// Phone to server, once, after erSuccess: the size of the header bytes that follow it.
using StreamHeaderSize = std::uint16_t;

// Server to phone: how many further frames it asks for.
struct SFrameRequest {
    std::uint8_t nCount;
};

// Phone to server, before each frame's body.
struct SFrameResponce {
    static constexpr unsigned ehtFrameDescriptor = 4; // must be set; the other bits have no meaning here

    std::uint8_t nDescriptor;
    std::uint16_t nSize; // of the body that follows, bytes
};

#pragma pack(pop)

static_assert(sizeof(SAuthRequest) == 131 && offsetof(SAuthRequest, szPassword) == 67);
static_assert(sizeof(SAuthResponce) == 1 && sizeof(SFrameRequest) == 1);
static_assert(sizeof(SFrameResponce) == 3 && offsetof(SFrameResponce, nSize) == 1);

// A request goes out while fewer frames than this are outstanding ...
inline constexpr std::uint32_t kFrameLowWater = 5;
// ... and asks for this many.
inline constexpr std::uint8_t kFrameGrant = 10;
