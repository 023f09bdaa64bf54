#include "Common/Configuration/XmlConfigSDK/ThreadArg.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/threads.h"
#include "runtime/trace/Trace.h"

namespace {

using CKeys = std::map<std::string, std::vector<std::uint64_t>, std::less<>>;

// The arguments of all threads. Made on first use, by one thread while others wait; empties itself when the
// process ends.
class CStore {
public:
    // The map of one thread within the store.
    class CMapHandle {
    public:
        CMapHandle(CStore& oStore, std::uint32_t nThread) noexcept : m_oStore(oStore), m_nThread(nThread) {}
        [[nodiscard]] CKeys& Keys() const { return m_oStore.m_oThreads[m_nThread]; }
        [[nodiscard]] bool RemoveObject() const { return m_oStore.m_oThreads.erase(m_nThread) == 1; }
        [[nodiscard]] const CMapHandle* operator->() const noexcept { return this; }

    private:
        CStore& m_oStore;
        std::uint32_t m_nThread;
    };

    static CStore& Instance() {
        static CStore oStore;
        return oStore;
    }

    ~CStore() {
        const platform::SectionGuard guard(m_oLock);
        m_oThreads.clear();
    }

    platform::CriticalSection& Lock() noexcept { return m_oLock; }
    [[nodiscard]] const CKeys* Find(std::uint32_t nThread) const {
        const auto it = m_oThreads.find(nThread);
        return it == m_oThreads.end() ? nullptr : &it->second;
    }

private:
    NSSystem::CCriticalSection<0, 4000> m_oLock;
    std::map<std::uint32_t, CKeys> m_oThreads; // guarded by m_oLock
};

} // namespace

CThreadArg::CThreadArg(const char* szName, std::uint64_t nValue)
    : m_szName(szName), m_nThread(platform::CurrentThreadId()) {
    CStore& oStore = CStore::Instance();
    const platform::SectionGuard guard(oStore.Lock());
    CStore::CMapHandle(oStore, m_nThread).Keys()[m_szName].push_back(nValue);
}

CThreadArg::~CThreadArg() {
    CStore& oStore = CStore::Instance();
    const platform::SectionGuard guard(oStore.Lock());
    const CStore::CMapHandle aMap(oStore, m_nThread);
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
    CStore& oStore = CStore::Instance();
    const platform::SectionGuard guard(oStore.Lock());
    const CKeys* const pKeys = oStore.Find(nThread);
    if (pKeys == nullptr)
        return 0;
    const auto it = pKeys->find(std::string_view(szName));
    return it == pKeys->end() ? 0 : it->second.back();
}
