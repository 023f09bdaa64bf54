// The registry: named values under keys, under two roots, kept in one text file.
//
// The file is meant to be read, and changed, by a person:
//
//     [HKEY_LOCAL_MACHINE\SOFTWARE\Norvane\Tessaron]
//     "lang"=25
//     "sublang"=1
//
// A line is a key in brackets, a value, a comment that starts with ";" or "#", or empty. The name of a value
// stands in double quotes, or is @ for the key's default value. A number is decimal, or "dword:" and
// hexadecimal digits; a text stands in double quotes, with \\ \" \r and \n. The encoding is UTF-8.
//
// Names of keys and values compare without regard to the case of A to Z. Every operation reads the file anew,
// so what another process wrote is seen. A change replaces the file as a whole, while other processes wait.
// Any thread may call any of these at any time.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/export.h"
#include "platform/status.h"

namespace platform {

enum class RegistryRoot { LocalMachine, ClassesRoot };

// Numbers have 32 bits.
using RegistryValue = std::variant<std::uint32_t, std::u16string>;
using NamedRegistryValue = std::pair<std::u16string_view, RegistryValue>;

// The file of this process's registry. Until one is named there are no keys, and changes fail with
// kErrorFileNotFound. The file need not be there. The result is empty, or a line that says what is wrong with
// the file; a damaged file counts as empty, and the next change keeps it aside, with ".damaged" behind its
// name.
MORROW_PLATFORM_API std::string SetRegistryFile(std::string path);

// A key is a path with single backslashes; an empty name is the key's default value.
[[nodiscard]] MORROW_PLATFORM_API std::optional<RegistryValue>
QueryRegistryValue(RegistryRoot root, std::u16string_view key, std::u16string_view name);
// The bytes of a value whatever its type: a number in the order of the machine, a text with its terminator.
// Copies them and gives their count; nothing when the value is not there or is longer than `bytes`, which is
// then unchanged.
[[nodiscard]] MORROW_PLATFORM_API std::optional<std::size_t>
QueryRegistryBytes(RegistryRoot root, std::u16string_view key, std::u16string_view name,
                   std::span<std::uint8_t> bytes);
[[nodiscard]] MORROW_PLATFORM_API bool RegistryKeyExists(RegistryRoot root, std::u16string_view key);
// The names of the keys directly below a key, in the order of their folded names.
[[nodiscard]] MORROW_PLATFORM_API std::vector<std::u16string> RegistrySubkeys(RegistryRoot root,
                                                                              std::u16string_view key);

// Sets all of the values in one change; makes the key, with those above it, if it is not there. An empty list
// only makes the key.
MORROW_PLATFORM_API HRESULT SetRegistryValues(RegistryRoot root, std::u16string_view key,
                                              std::span<const NamedRegistryValue> values);
// S_FALSE: there was none.
MORROW_PLATFORM_API HRESULT DeleteRegistryValue(RegistryRoot root, std::u16string_view key,
                                                std::u16string_view name);
// The key with all that is below it. S_FALSE: there was none.
MORROW_PLATFORM_API HRESULT DeleteRegistryKey(RegistryRoot root, std::u16string_view key);
// The key, unless it has values or keys below it: S_FALSE then, or when there was none.
MORROW_PLATFORM_API HRESULT DeleteEmptyRegistryKey(RegistryRoot root, std::u16string_view key);

} // namespace platform
