// The form of the preferences' document.
#pragma once

#include <string_view>

namespace host {

// The document with every value, its defaults left out, and with one camera, which stands for all.
//
// Types: "BSTR" is a text, with `password` one that stays at home, with `lookup` one of those choices;
// "number" is a whole number from `min` to `max`; "yesno" is "yes" or "no"; "set" has any of its choices,
// with spaces between; "mask" is a CellMask. `longest` is in bytes of UTF-8. Labels are those of `local`, in
// English.
std::u16string_view PreferencePattern() noexcept;

} // namespace host
