// Loading a library by name and looking up its exports.
//
// A name stands for a library that this process registered (a host that carries it within itself) or, failing
// that, for the shared object of that path. A name without a path that nobody registered is not there.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "platform/export.h"

namespace platform {

using Export = void (*)();

class Library; // opaque

// Null, with the last error set, when there is no such library. Loading again gives the same library;
// libraries stay loaded until the process ends.
MORROW_PLATFORM_API Library* LoadLibrary(std::string_view name) noexcept;
// Null, with the last error set, when the library has no such export.
MORROW_PLATFORM_API Export FindExport(Library* library, std::string_view name) noexcept;

// Makes `name` loadable with the exports given, replacing an earlier registration; names compare without
// regard to the case of A to Z. An empty list makes a library without exports.
MORROW_PLATFORM_API void RegisterLibrary(std::string_view name,
                                         std::initializer_list<std::pair<std::string_view, Export>> exports);
// The name is not there any more for later loads; what was loaded stays usable.
MORROW_PLATFORM_API void UnregisterLibrary(std::string_view name) noexcept;

// The file of the program or library that something stands in, as an address of this process, for example a
// module handle; in UTF-8. Empty for memory that is of no file.
MORROW_PLATFORM_API std::string FileNameOfModule(const void* address);

} // namespace platform
