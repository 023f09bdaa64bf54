// Registration scripts: what their text says, and how they are run, once to enter a module into the registry
// and once to take it out.
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
#include "platform/resources.h"
#include "platform/status.h"

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

class CRegistrar {
public:
    // A script's %KEY% becomes `value`. Keys are compared without regard to the case of A to Z; two percent
    // signs stand for one. What was put in is not looked at for percent signs, but it is part of the script:
    // apostrophes in a value are to be doubled.
    void AddReplacement(std::u16string_view key, std::u16string_view value);

    // Makes the keys and values of a script, in its order; one key with its values is one change. What is
    // there already is overwritten, and nothing else is touched. 0x8007000D, and no change, for a text that
    // is no script or has a key between percent signs that nobody added. The status of the first change that
    // fails: those before it stay.
    HRESULT StringRegister(std::u16string_view script) const;
    // Takes them out again: the values, and each key that then holds nothing any more and is not marked to
    // stay. What is not there is passed over. Statuses as above.
    HRESULT StringUnregister(std::u16string_view script) const;

    // A script of the module's resources, in UTF-8: 0x80070715 when it has none of that name.
    HRESULT ResourceUpdate(platform::ModuleHandle hModule, std::uint16_t nScript, bool bRegister) const;

private:
    [[nodiscard]] bool Replace(std::u16string_view script, std::u16string& strText) const;

    std::vector<std::pair<std::u16string, std::u16string>>
        m_aReplacements; // a key in capitals, what it becomes
};
