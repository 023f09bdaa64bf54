// Runs registration scripts (RegistrarScript.h): once to enter a module into the registry, once to take it
// out.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/resources.h"
#include "platform/status.h"

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
