// The identifiers by which the component is known in the registry. Its class is kUploadServerClass of
// IUploadServer.h; docs/module.md has the keys.
#pragma once

#include "platform/com.h"

// Classes that are a source of video (IVideoSource). A host finds its sources by it.
inline constexpr GUID kVideoSourceCategory{
    0x8A3E61D4, 0x2B7F, 0x4C09, {0x9E, 0x15, 0x6D, 0xF2, 0x80, 0x4B, 0xC7, 0x3A}};

// The application that the class belongs to.
inline constexpr GUID kApplicationId{
    0xE1B04F7A, 0x6C28, 0x4D53, {0xA1, 0x7E, 0x35, 0x0C, 0x9F, 0x86, 0xD2, 0x4B}};

// The type library that the class names. None is registered, since nothing calls the component by name.
inline constexpr GUID kTypeLibrary{
    0x5C0E7B2D, 0x91A4, 0x4E36, {0x8D, 0x0F, 0x3B, 0x7A, 0x64, 0xC1, 0xE9, 0x82}};
