#include "platform/modules.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <filesystem>
#include <list>
#include <mutex>
#include <optional>
#include <system_error>
#include <variant>

#include "platform/com.h"
#include "platform/registry.h"
#include "platform/text.h"

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;
using ClassObjectExport = HRESULT (*)(const GUID&, const GUID&, void**);
using PlainExport = HRESULT (*)();

constexpr HRESULT kNotLoadable = StatusFromError(kErrorModNotFound);
constexpr HRESULT kNoExport = StatusFromError(kErrorProcNotFound);

std::string& LoaderError() {
    thread_local std::string error;
    return error;
}

void NoteLoaderError() {
    const char* const reason = ::dlerror();
    LoaderError() = reason == nullptr ? "" : reason;
}

// A module that is mapped, and the exports that all use of it needs.
class LoadedModule {
public:
    explicit LoadedModule(void* handle) noexcept : m_handle(handle) {}
    LoadedModule(LoadedModule&& other) noexcept
        : m_handle(std::exchange(other.m_handle, nullptr)), m_getClassObject(other.m_getClassObject),
          m_canUnloadNow(other.m_canUnloadNow) {}
    LoadedModule& operator=(LoadedModule&&) = delete;
    ~LoadedModule() {
        if (m_handle != nullptr)
            ::dlclose(m_handle);
    }

    // The reason of a failure is noted.
    static HRESULT Load(const std::string& path, std::optional<LoadedModule>& module) {
        // The loader takes an empty path for the program itself.
        void* const handle = path.empty() ? nullptr : ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            NoteLoaderError();
            return kNotLoadable;
        }
        module.emplace(handle);
        if (module->Find("DllGetClassObject", module->m_getClassObject) &&
            module->Find("DllCanUnloadNow", module->m_canUnloadNow))
            return S_OK;
        module.reset();
        return kNoExport;
    }

    template <class Function>
    bool Find(const char* name, Function& function) const {
        function = reinterpret_cast<Function>(::dlsym(m_handle, name));
        if (function == nullptr)
            NoteLoaderError();
        return function != nullptr;
    }
    HRESULT GetClassObject(const GUID& classId, const GUID& interfaceId, void** object) const {
        return m_getClassObject(classId, interfaceId, object);
    }
    [[nodiscard]] bool CanUnload() const { return m_canUnloadNow() == S_OK; }

private:
    void* m_handle;
    ClassObjectExport m_getClassObject = nullptr;
    PlainExport m_canUnloadNow = nullptr;
};

class ModuleTable {
    struct Entry {
        std::string path;
        LoadedModule module;
        unsigned users = 0;                              // calls into the module that are under way here
        std::optional<Clock::time_point> idleSince = {}; // when it was first found without any use
    };

public:
    // Never destroyed: objects of modules may be released while the process ends.
    static ModuleTable& Instance() {
        static ModuleTable& table = *new ModuleTable;
        return table;
    }

    // Calls `action` with the module, which is loaded if need be and stays meanwhile. Loading and unloading
    // run the module's own code under the lock, so that there is one load and one unload at a time.
    template <class Action>
    HRESULT With(const std::string& path, Action&& action) {
        Entry* entry = nullptr;
        if (const HRESULT hr = Take(path, entry); FAILED(hr))
            return hr;
        const Use use(*this, *entry);
        return action(std::as_const(entry->module));
    }

    std::size_t FreeUnused(std::chrono::milliseconds idle) noexcept {
        const std::scoped_lock guard(m_mutex);
        const Clock::time_point now = Clock::now();
        return m_entries.remove_if([&](Entry& entry) {
            if (entry.users > 0 || !entry.module.CanUnload()) {
                entry.idleSince.reset();
                return false;
            }
            if (!entry.idleSince)
                entry.idleSince = now;
            return now - *entry.idleSince >= idle;
        });
    }

    std::size_t Count() noexcept {
        const std::scoped_lock guard(m_mutex);
        return m_entries.size();
    }

private:
    class Use {
    public:
        Use(ModuleTable& table, Entry& entry) noexcept : m_table(table), m_entry(entry) {}
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        ~Use() {
            const std::scoped_lock guard(m_table.m_mutex);
            --m_entry.users;
        }

    private:
        ModuleTable& m_table;
        Entry& m_entry;
    };

    HRESULT Take(const std::string& path, Entry*& entry) {
        const std::scoped_lock guard(m_mutex);
        auto found = std::ranges::find(m_entries, path, &Entry::path);
        if (found == m_entries.end()) {
            std::optional<LoadedModule> module;
            if (const HRESULT hr = LoadedModule::Load(path, module); FAILED(hr))
                return hr;
            found = m_entries.insert(m_entries.end(), Entry{path, std::move(*module)});
        }
        ++found->users;
        found->idleSince.reset();
        entry = &*found;
        return S_OK;
    }

    std::mutex m_mutex;
    std::list<Entry> m_entries; // under m_mutex; a list, since users hold on to entries
};

// One module has one path, and never one that the loader would search for along its own: somebody else's file
// could come in its place.
std::string WholePath(const std::string& path) {
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::absolute(path, error);
    return error ? std::string{} : whole.lexically_normal().string();
}

// Calls `action` with an object of the module that makes objects of the class.
template <class Action>
HRESULT WithClassObject(const GUID& classId, const GUID& interfaceId, Action&& action) try {
    const std::string path = ModulePathOf(classId);
    if (path.empty())
        return REGDB_E_CLASSNOTREG;
    return ModuleTable::Instance().With(WholePath(path), [&](const LoadedModule& module) {
        void* object = nullptr;
        const HRESULT hr = module.GetClassObject(classId, interfaceId, &object);
        return FAILED(hr) ? hr : action(object);
    });
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

HRESULT CallPlain(const std::string& path, const char* name) try {
    return ModuleTable::Instance().With(WholePath(path), [&](const LoadedModule& module) {
        PlainExport function = nullptr;
        return module.Find(name, function) ? function() : kNoExport;
    });
} catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
}

// Every class runs within the process: E_INVALIDARG for an empty mask, REGDB_E_CLASSNOTREG for one that
// leaves this out and so asks for a class that is not there.
constexpr HRESULT CheckContext(std::uint32_t contextMask) noexcept {
    if (contextMask == 0)
        return E_INVALIDARG;
    return (contextMask & kContextInProcess) == 0 ? REGDB_E_CLASSNOTREG : S_OK;
}

std::u16string CategoriesKey(std::u16string_view classText) {
    std::u16string key = u"CLSID\\";
    key += classText;
    return key += u"\\Implemented Categories";
}

std::u16string CategoryKey(std::u16string_view classText, const GUID& category) {
    return CategoriesKey(classText) + u'\\' + GuidText(category);
}

} // namespace

HRESULT CoGetClassObject(const GUID& classId, std::uint32_t contextMask, const GUID& interfaceId,
                         void** object) {
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    if (const HRESULT hr = CheckContext(contextMask); FAILED(hr))
        return hr;
    if (const ComPtr<IClassFactory> factory = RegisteredFactory(classId))
        return factory->QueryInterface(interfaceId, object);
    return WithClassObject(classId, interfaceId, [&](void* made) {
        *object = made;
        return S_OK;
    });
}

HRESULT CoCreateInstance(const GUID& classId, IUnknown* outer, std::uint32_t contextMask,
                         const GUID& interfaceId, void** object) {
    if (object == nullptr)
        return E_POINTER;
    *object = nullptr;
    if (const HRESULT hr = CheckContext(contextMask); FAILED(hr))
        return hr;
    if (const ComPtr<IClassFactory> factory = RegisteredFactory(classId))
        return factory->CreateInstance(outer, interfaceId, object);
    if (classId == kInterfaceTableClass)
        return GetInterfaceTable(outer, interfaceId, object);
    // The module stays while the object is made; from then on the object keeps it.
    return WithClassObject(classId, IClassFactory::iid, [&](void* made) {
        const auto factory = ComPtr<IClassFactory>::Adopt(static_cast<IClassFactory*>(made));
        return factory->CreateInstance(outer, interfaceId, object);
    });
}

std::size_t CoFreeUnusedLibraries(std::chrono::milliseconds idle) noexcept {
    return ModuleTable::Instance().FreeUnused(idle);
}

std::size_t LoadedModules() noexcept {
    return ModuleTable::Instance().Count();
}

std::string ModulePathOf(const GUID& classId) {
    const auto value = QueryRegistryValue(RegistryRoot::ClassesRoot,
                                          u"CLSID\\" + GuidText(classId) + u"\\InprocServer32", u"");
    const auto* const path = value ? std::get_if<std::u16string>(&*value) : nullptr;
    return path == nullptr ? std::string{} : ToUtf8(*path);
}

HRESULT RegisterModule(const std::string& path) {
    return CallPlain(path, "DllRegisterServer");
}

HRESULT UnregisterModule(const std::string& path) {
    return CallPlain(path, "DllUnregisterServer");
}

std::string LastModuleError() {
    return LoaderError();
}

HRESULT RegisterClassImplCategories(const GUID& classId, std::span<const GUID> categories) {
    for (const GUID& category : categories) {
        const HRESULT hr =
            SetRegistryValues(RegistryRoot::ClassesRoot, CategoryKey(GuidText(classId), category), {});
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

HRESULT UnRegisterClassImplCategories(const GUID& classId, std::span<const GUID> categories) {
    for (const GUID& category : categories) {
        const HRESULT hr =
            DeleteRegistryKey(RegistryRoot::ClassesRoot, CategoryKey(GuidText(classId), category));
        if (FAILED(hr))
            return hr;
    }
    return S_OK;
}

std::vector<GUID> EnumClassesOfCategory(const GUID& category) {
    std::vector<GUID> classes;
    for (const std::u16string& name : RegistrySubkeys(RegistryRoot::ClassesRoot, u"CLSID")) {
        const std::optional<GUID> classId = ParseGuid(name);
        if (classId && RegistryKeyExists(RegistryRoot::ClassesRoot, CategoryKey(name, category)))
            classes.push_back(*classId);
    }
    return classes;
}

ModulePin::ModulePin(const void* address) noexcept {
    Dl_info info{};
    void* found = nullptr;
    if (::dladdr1(address, &info, &found, RTLD_DL_LINKMAP) == 0 || found == nullptr)
        return;
    // By the name under which it was loaded, which the loader compares before it looks for a file: another
    // file may have taken its place meanwhile. The main program has none.
    const char* const name = static_cast<const link_map*>(found)->l_name;
    if (*name != '\0')
        m_handle = ::dlopen(name, RTLD_NOW | RTLD_NOLOAD);
}

ModulePin::~ModulePin() {
    if (m_handle != nullptr)
        ::dlclose(m_handle);
}

} // namespace platform
