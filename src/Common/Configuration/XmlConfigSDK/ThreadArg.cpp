#include "Common/Configuration/XmlConfigSDK/ThreadArg.h"

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/threads.h"
#include "runtime/trace/Trace.h"

namespace {

using CKeys = std::map<std::string, std::vector<std::uint64_t>, std::less<>>;

// The arguments of all threads.
struct SStore {
    NSSystem::CCriticalSection<0, 4000> oLock;
    std::map<std::uint32_t, CKeys> oThreads; // guarded by oLock
};

// The process's reference to the store, which is made on first use. It is copied by one thread at a time
// while others wait in a loop that yields the processor. Nothing of it is destroyed: a thread may come here
// while the process ends.
class CSharedStore {
public:
    constexpr CSharedStore() noexcept {}
    CSharedStore(const CSharedStore&) = delete;
    CSharedStore& operator=(const CSharedStore&) = delete;
    ~CSharedStore() {}

    [[nodiscard]] std::shared_ptr<SStore> Get() {
        const CTurn turn(m_bTaken);
        if (!m_spStore)
            m_spStore = std::make_shared<SStore>();
        return m_spStore;
    }
    [[nodiscard]] std::shared_ptr<SStore> LetGo() {
        const CTurn turn(m_bTaken);
        return std::move(m_spStore);
    }

private:
    class CTurn {
    public:
        explicit CTurn(std::atomic_flag& bTaken) noexcept : m_bTaken(bTaken) {
            while (m_bTaken.test_and_set(std::memory_order_acquire))
                std::this_thread::yield();
        }
        CTurn(const CTurn&) = delete;
        CTurn& operator=(const CTurn&) = delete;
        ~CTurn() { m_bTaken.clear(std::memory_order_release); }

    private:
        std::atomic_flag& m_bTaken;
    };

    std::atomic_flag m_bTaken;
    union {
        std::shared_ptr<SStore> m_spStore{};
    };
};
constinit CSharedStore g_oStore;

// Holds the lock, and with it the store: who waits here while the process ends has something that lives.
class CLockedStore {
public:
    CLockedStore() : m_spStore(g_oStore.Get()), m_guard(m_spStore->oLock) {}
    explicit CLockedStore(std::shared_ptr<SStore> spStore)
        : m_spStore(std::move(spStore)), m_guard(m_spStore->oLock) {}
    [[nodiscard]] std::map<std::uint32_t, CKeys>& Threads() const noexcept { return m_spStore->oThreads; }

private:
    std::shared_ptr<SStore> m_spStore; // released behind the lock
    platform::SectionGuard m_guard;
};

// Empties the store under its lock when the process ends.
const struct SEmptyAtEnd {
    SEmptyAtEnd() = default;
    SEmptyAtEnd(const SEmptyAtEnd&) = delete;
    SEmptyAtEnd& operator=(const SEmptyAtEnd&) = delete;
    ~SEmptyAtEnd() {
        if (auto spStore = g_oStore.LetGo())
            CLockedStore(std::move(spStore)).Threads().clear();
    }
} g_oEmptyAtEnd;

// The map of one thread within the store.
class CMapHandle {
public:
    CMapHandle(const CLockedStore& oStore, std::uint32_t nThread) noexcept
        : m_oThreads(oStore.Threads()), m_nThread(nThread) {}
    [[nodiscard]] CKeys& Keys() const { return m_oThreads[m_nThread]; }
    [[nodiscard]] bool RemoveObject() const { return m_oThreads.erase(m_nThread) == 1; }
    [[nodiscard]] const CMapHandle* operator->() const noexcept { return this; }

private:
    std::map<std::uint32_t, CKeys>& m_oThreads;
    std::uint32_t m_nThread;
};

} // namespace

CThreadArg::CThreadArg(const char* szName, std::uint64_t nValue)
    : m_szName(szName), m_nThread(platform::CurrentThreadId()) {
    const CLockedStore oStore;
    CMapHandle(oStore, m_nThread).Keys()[m_szName].push_back(nValue);
}

CThreadArg::~CThreadArg() {
    const CLockedStore oStore;
    const CMapHandle aMap(oStore, m_nThread);
    CKeys& keys = aMap.Keys();
    if (const auto it = keys.find(m_szName); it != keys.end()) {
        it->second.pop_back();
        if (!it->second.empty())
            return;
    }
    ATLVERIFY(1 == keys.erase(m_szName));
    if (keys.empty()) {
        ATLVERIFY(aMap->RemoveObject());
    }
}

std::uint64_t CThreadArg::Lookup(const char* szName, std::uint32_t nThread) {
    const CLockedStore oStore;
    const auto itKeys = oStore.Threads().find(nThread);
    if (itKeys == oStore.Threads().end())
        return 0;
    const auto it = itKeys->second.find(std::string_view(szName));
    return it == itKeys->second.end() ? 0 : it->second.back();
}
