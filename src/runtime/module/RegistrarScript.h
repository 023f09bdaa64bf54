// The text of a registration script, and what it says.
//
//     HKCR
//     {
//         NoRemove CLSID
//         {
//             ForceRemove '{...}' = s 'Name of the class'
//             {
//                 InprocServer32 = s '/usr/lib/x.so' { val ThreadingModel = s 'Both' }
//             }
//         }
//     }
//
// Words are apart by blanks and line ends. A text between apostrophes is one word, in which two apostrophes
// stand for one, and never one of the words with a meaning:
//
//     HKCR HKEY_CLASSES_ROOT HKLM HKEY_LOCAL_MACHINE    a root, with a block of keys
//     NAME [= value] [{ ... }]     a key, its default value, what is in it
//     NoRemove NAME ...            stays when the script is undone
//     ForceRemove NAME ...         is emptied before it is made, and goes with all in it
//     delete NAME                  is removed, and does not come back when the script is undone
//     val NAME = value             a value of the key around it
//     s TEXT, d NUMBER             a value: text, or 32 bits in decimal or as 0x...
//
// These words and roots may be written in either case. Values of bytes and of several texts (b, m) are
// refused, since the registry has none.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/registry.h"

struct SRegistrarKey {
    enum class EMark { Plain, NoRemove, ForceRemove, Delete };

    EMark eMark = EMark::Plain;
    std::u16string strName;
    std::vector<std::pair<std::u16string, platform::RegistryValue>> aValues; // the default one has no name
    std::vector<SRegistrarKey> aKeys;
};

struct SRegistrarRoot {
    platform::RegistryRoot eRoot{};
    std::vector<SRegistrarKey> aKeys;
};

// Nothing for a text that is no script, or that nests keys more than kRegistrarDepth deep.
std::optional<std::vector<SRegistrarRoot>> ParseRegistrarScript(std::u16string_view script);

// Far above what a registry has, far below what the stack of a thread holds.
inline constexpr unsigned kRegistrarDepth = 32;
