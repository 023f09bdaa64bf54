#include "platform/registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/files.h"
#include "platform/registry_file.h"
#include "platform/scope.h"

namespace platform {

namespace {

// More is no registry of ours.
constexpr std::size_t kLargestFile = std::size_t{4} << 20;

class RegistryStore {
public:
    // Never destroyed, as threads may ask while the process ends.
    static RegistryStore& Get() {
        static auto& store = *new RegistryStore;
        return store;
    }

    std::string SetPath(std::string path) {
        {
            const std::lock_guard guard(m_mutex);
            m_path = std::move(path);
        }
        std::string wrong;
        (void)Read(Path(), &wrong);
        return wrong;
    }

    RegistryContent Read() { return Read(Path(), nullptr); }

    // Applies a change and writes the file, unless the change returns anything but S_OK. One change at a
    // time: within the process by the mutex, between processes by a lock on the file's folder, which leaves
    // no file behind.
    template <class Change>
    HRESULT Write(Change change) {
        const std::lock_guard guard(m_mutex);
        if (m_path.empty())
            return Fail(kErrorFileNotFound);
        const std::size_t slash = m_path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : m_path.substr(0, slash + 1);
        const Descriptor lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!lock)
            return Fail(ErrorFromErrno(errno));
        while (::flock(lock.Get(), LOCK_EX) != 0) {
            if (errno != EINTR)
                return Fail(ErrorFromErrno(errno));
        }
        std::string wrong;
        RegistryContent content = Read(m_path, &wrong);
        const HRESULT changed = change(content);
        if (changed != S_OK)
            return changed;
        if (!wrong.empty()) {
            const auto damaged = ReadWholeFile(m_path);
            if (!damaged)
                return StatusFromError(LastError());
            if (const HRESULT kept = ReplaceFile(m_path + ".damaged", *damaged); FAILED(kept))
                return kept;
        }
        const HRESULT written = ReplaceFile(m_path, FormatRegistry(content));
        return FAILED(written) ? written : S_OK;
    }

private:
    static HRESULT Fail(std::uint32_t error) noexcept {
        SetLastError(error);
        return StatusFromError(error);
    }

    std::string Path() {
        const std::lock_guard guard(m_mutex);
        return m_path;
    }

    static RegistryContent Read(const std::string& path, std::string* wrong) {
        struct stat info {};
        if (path.empty() || (::stat(path.c_str(), &info) != 0 && errno == ENOENT))
            return {};
        std::string reason;
        std::optional<RegistryContent> content;
        if (const auto text = ReadWholeFile(path, kLargestFile))
            content = ParseRegistry(*text, &reason);
        else
            reason = ": cannot be read, or is larger than 4 MiB";
        if (!content && wrong != nullptr)
            *wrong = path + reason;
        return content.value_or(RegistryContent{});
    }

    std::mutex m_mutex;
    std::string m_path; // guarded by m_mutex
};

const RegistryValue* FindValue(const RegistryContent& content, RegistryRoot root, std::u16string_view key,
                               std::u16string_view name) {
    const auto& keys = content.Keys(root);
    const auto found = keys.find(key);
    if (found == keys.end())
        return nullptr;
    const auto value = found->second.find(name);
    return value == found->second.end() ? nullptr : &value->second;
}

} // namespace

std::string SetRegistryFile(std::string path) {
    return RegistryStore::Get().SetPath(std::move(path));
}

std::optional<RegistryValue> QueryRegistryValue(RegistryRoot root, std::u16string_view key,
                                                std::u16string_view name) {
    const RegistryContent content = RegistryStore::Get().Read();
    const RegistryValue* const value = FindValue(content, root, key, name);
    return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::size_t> QueryRegistryBytes(RegistryRoot root, std::u16string_view key,
                                              std::u16string_view name, std::span<std::uint8_t> bytes) {
    const auto value = QueryRegistryValue(root, key, name);
    if (!value)
        return std::nullopt;
    const void* data = std::get_if<std::uint32_t>(&*value);
    std::size_t size = sizeof(std::uint32_t);
    if (const auto* const text = std::get_if<std::u16string>(&*value)) {
        data = text->c_str();
        size = (text->size() + 1) * sizeof(char16_t);
    }
    if (size > bytes.size())
        return std::nullopt;
    std::memcpy(bytes.data(), data, size);
    return size;
}

bool RegistryKeyExists(RegistryRoot root, std::u16string_view key) {
    return RegistryStore::Get().Read().Keys(root).contains(key);
}

std::vector<std::u16string> RegistrySubkeys(RegistryRoot root, std::u16string_view key) {
    const RegistryContent content = RegistryStore::Get().Read();
    std::vector<std::u16string> names;
    content.ForEachBelow(root, key, [&](const std::u16string& path) {
        const std::u16string_view rest = std::u16string_view(path).substr(key.empty() ? 0 : key.size() + 1);
        if (rest.find(u'\\') == std::u16string_view::npos)
            names.emplace_back(rest);
    });
    return names;
}

HRESULT SetRegistryValues(RegistryRoot root, std::u16string_view key,
                          std::span<const NamedRegistryValue> values) {
    return RegistryStore::Get().Write([&](RegistryContent& content) {
        auto* const entry = content.MakeKey(root, key);
        if (entry == nullptr)
            return E_INVALIDARG;
        for (const auto& [name, value] : values) {
            const auto* const text = std::get_if<std::u16string>(&value);
            if (!IsRegistryText(name) || (text != nullptr && !IsRegistryText(*text)))
                return E_INVALIDARG;
            entry->insert_or_assign(std::u16string(name), value);
        }
        return S_OK;
    });
}

HRESULT DeleteRegistryValue(RegistryRoot root, std::u16string_view key, std::u16string_view name) {
    return RegistryStore::Get().Write([&](RegistryContent& content) {
        auto& keys = content.Keys(root);
        const auto found = keys.find(key);
        if (found == keys.end())
            return S_FALSE;
        const auto value = found->second.find(name);
        if (value == found->second.end())
            return S_FALSE;
        found->second.erase(value);
        return S_OK;
    });
}

HRESULT DeleteEmptyRegistryKey(RegistryRoot root, std::u16string_view key) {
    return RegistryStore::Get().Write([&](RegistryContent& content) {
        auto& keys = content.Keys(root);
        const auto found = keys.find(key);
        bool empty = found != keys.end() && found->second.empty();
        content.ForEachBelow(root, key, [&](const std::u16string&) { empty = false; });
        if (!empty)
            return S_FALSE;
        keys.erase(found);
        return S_OK;
    });
}

HRESULT DeleteRegistryKey(RegistryRoot root, std::u16string_view key) {
    return RegistryStore::Get().Write([&](RegistryContent& content) {
        auto& keys = content.Keys(root);
        if (!keys.contains(key))
            return S_FALSE;
        std::vector<std::u16string> below;
        content.ForEachBelow(root, key, [&](const std::u16string& path) { below.push_back(path); });
        for (const std::u16string& path : below)
            keys.erase(path);
        keys.erase(keys.find(key));
        return S_OK;
    });
}

} // namespace platform
