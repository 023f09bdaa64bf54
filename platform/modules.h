// Code that is loaded at run time: libraries by name, and modules.
//
// A library's name stands for a library that this process registered (a host that carries it within itself)
// or, failing that, for the shared object of that path. A name without a path that nobody registered is not
// there.
//
// Modules are shared objects that hold classes, which the registry names and which come and go.
//
// The default value of CLSID\{class}\InprocServer32 under the root of classes is a module's path. A module
// exports
//
//   HRESULT DllGetClassObject(const GUID& classId, const GUID& interfaceId, void** object)
//   HRESULT DllCanUnloadNow()         S_OK when nothing of it is in use, else S_FALSE
//   HRESULT DllRegisterServer()       enters its classes into the registry
//   HRESULT DllUnregisterServer()     takes them out again
//
// CoCreateInstance (com.h) turns to a module for a class that has no factory registered in the process. A
// module is loaded once, whatever number of its classes is in use, and stays until CoFreeUnusedLibraries
// finds it idle. Any thread may call any of these at any time, but a module may not while it is being loaded
// or unloaded.
#pragma once

#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/com.h"
#include "platform/export.h"
#include "platform/status.h"

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

// An object that makes objects of a class: of the class that the process has registered, or of the module
// that the registry names, which is loaded if need be. REGDB_E_CLASSNOTREG when there is neither; 0x8007007E
// when the module cannot be loaded, and 0x8007007F when it has not the exports, both with the loader's reason
// in the thread's LastModuleError(); else what the module answers.
MORROW_PLATFORM_API HRESULT CoGetClassObject(const GUID& classId, std::uint32_t contextMask,
                                             const GUID& interfaceId, void** object);

// Unloads the modules that say that they may go, and gives their number. A thread that has just let go of a
// module's last object may still be on its way out of the module's code, so a module must have been found
// without use by calls of this that lie `idle` apart. 0 is for a caller that knows of no such thread. Threads
// of this layer (threads.h) are no matter: they keep the code that they run.
MORROW_PLATFORM_API std::size_t CoFreeUnusedLibraries(std::chrono::milliseconds idle = std::chrono::minutes{
                                                          10}) noexcept;
// How many modules are loaded.
[[nodiscard]] MORROW_PLATFORM_API std::size_t LoadedModules() noexcept;

// The path that the registry names for a class; empty where it names none.
[[nodiscard]] MORROW_PLATFORM_API std::string ModulePathOf(const GUID& classId);
// Has the module of that path enter its classes into the registry, or take them out of it. A path that is not
// absolute is meant from the working folder. Statuses of loading as above, else what the module answers.
MORROW_PLATFORM_API HRESULT RegisterModule(const std::string& path);
MORROW_PLATFORM_API HRESULT UnregisterModule(const std::string& path);
// What the loader said when the calling thread last failed to load a module.
[[nodiscard]] MORROW_PLATFORM_API std::string LastModuleError();

// The category manager: which registered classes say that they do a certain job. A class's categories stand
// in the registry, as keys below CLSID\{class}\Implemented Categories. Registering twice does no harm.
MORROW_PLATFORM_API HRESULT RegisterClassImplCategories(const GUID& classId,
                                                        std::span<const GUID> categories);
// A category that the class does not have is passed over.
MORROW_PLATFORM_API HRESULT UnRegisterClassImplCategories(const GUID& classId,
                                                          std::span<const GUID> categories);
// The registered classes of a category, in the order of their texts. Keys that are no identifiers are passed
// over.
[[nodiscard]] MORROW_PLATFORM_API std::vector<GUID> EnumClassesOfCategory(const GUID& category);

// Keeps the shared object that `address` lies in, mapped. Nothing happens for the main program and for an
// address outside of any.
class MORROW_PLATFORM_API ModulePin {
public:
    ModulePin() noexcept = default;
    explicit ModulePin(const void* address) noexcept;
    ModulePin(ModulePin&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    ModulePin& operator=(ModulePin&& other) noexcept {
        const ModulePin old(std::move(*this));
        m_handle = std::exchange(other.m_handle, nullptr);
        return *this;
    }
    ~ModulePin();

private:
    void* m_handle = nullptr;
};

} // namespace platform
