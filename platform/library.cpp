#include "platform/modules.h"

#include <dlfcn.h>

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "platform/status.h"
#include "platform/text.h"

namespace platform {

class Library {
public:
    using Exports = std::map<std::string, Export, std::less<>>;

    explicit Library(void* handle) noexcept : m_handle(handle) {}
    explicit Library(Exports exports) noexcept : m_exports(std::move(exports)) {}

    [[nodiscard]] void* Handle() const noexcept { return m_handle; }

    [[nodiscard]] Export Find(std::string_view name) const {
        if (m_handle != nullptr)
            return reinterpret_cast<Export>(::dlsym(m_handle, std::string(name).c_str()));
        const auto found = m_exports.find(name);
        return found == m_exports.end() ? nullptr : found->second;
    }

private:
    void* const m_handle = nullptr; // of a shared object; null for a registered library
    const Exports m_exports;
};

namespace {

// The order of names without regard to the case of A to Z.
struct FoldedLess {
    using is_transparent = void;

    bool operator()(std::string_view a, std::string_view b) const noexcept {
        return std::ranges::lexicographical_compare(a, b, {}, ToLowerAscii, ToLowerAscii);
    }
};

// Everything that was ever loaded or registered. Never destroyed, since threads may look up exports while the
// process ends.
class LibraryTable {
public:
    static LibraryTable& Instance() {
        static LibraryTable& table = *new LibraryTable;
        return table;
    }

    void Register(std::string_view name, Library::Exports exports) {
        const std::scoped_lock guard(m_mutex);
        m_libraries.push_back(std::make_unique<Library>(std::move(exports)));
        m_registered.insert_or_assign(std::string(name), m_libraries.back().get());
    }

    void Unregister(std::string_view name) noexcept {
        const std::scoped_lock guard(m_mutex);
        if (const auto found = m_registered.find(name); found != m_registered.end())
            m_registered.erase(found);
    }

    Library* FindRegistered(std::string_view name) noexcept {
        const std::scoped_lock guard(m_mutex);
        const auto found = m_registered.find(name);
        return found == m_registered.end() ? nullptr : found->second;
    }

    // The system gives the same handle for the same shared object, by whatever path it was reached.
    Library* OfHandle(void* handle) {
        const std::scoped_lock guard(m_mutex);
        const auto found = std::ranges::find(m_libraries, handle, [](const auto& l) { return l->Handle(); });
        if (found != m_libraries.end())
            return found->get();
        m_libraries.push_back(std::make_unique<Library>(handle));
        return m_libraries.back().get();
    }

private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<Library>> m_libraries;        // under m_mutex
    std::map<std::string, Library*, FoldedLess> m_registered; // under m_mutex
};

bool IsPath(std::string_view name) noexcept {
    return name.find('/') != std::string_view::npos && name.find('\0') == std::string_view::npos;
}

} // namespace

Library* LoadLibrary(std::string_view name) noexcept try {
    LibraryTable& table = LibraryTable::Instance();
    if (Library* const registered = table.FindRegistered(name))
        return registered;
    // Outside the table's lock: the library's own start-up code may register something.
    void* const handle = IsPath(name) ? ::dlopen(std::string(name).c_str(), RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (handle == nullptr) {
        SetLastError(kErrorModNotFound);
        return nullptr;
    }
    return table.OfHandle(handle);
} catch (const std::bad_alloc&) {
    SetLastError(kErrorNotEnoughMemory);
    return nullptr;
}

Export FindExport(Library* library, std::string_view name) noexcept try {
    if (library == nullptr) {
        SetLastError(kErrorInvalidHandle);
        return nullptr;
    }
    const Export found = library->Find(name);
    if (found == nullptr)
        SetLastError(kErrorProcNotFound);
    return found;
} catch (const std::bad_alloc&) {
    SetLastError(kErrorNotEnoughMemory);
    return nullptr;
}

void RegisterLibrary(std::string_view name,
                     std::initializer_list<std::pair<std::string_view, Export>> exports) {
    LibraryTable::Instance().Register(name, {exports.begin(), exports.end()});
}

void UnregisterLibrary(std::string_view name) noexcept {
    LibraryTable::Instance().Unregister(name);
}

std::string FileNameOfModule(const void* address) {
    Dl_info info{};
    return ::dladdr(address, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : std::string();
}

} // namespace platform
