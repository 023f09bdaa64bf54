// Arguments for code that has no parameter for them, one dictionary of stacks for each thread.
#pragma once

#include <cstdint>

#include "platform/sync.h"

namespace NSSystem {

// A critical section with its spin count in its type. The first number is the options that it is made with;
// the only ones are 0.
template <unsigned nOptions, unsigned nSpinCount>
class CCriticalSection : public platform::CriticalSection {
    static_assert(nOptions == 0);

public:
    CCriticalSection() noexcept : platform::CriticalSection(nSpinCount) {}
};

} // namespace NSSystem

// A value under a name, for the life of this object and for the thread that made it, which is the one to
// destroy it. Of several under one name the last one counts. The name is static.
class CThreadArg {
public:
    CThreadArg(const char* szName, std::uint64_t nValue);
    CThreadArg(const CThreadArg&) = delete;
    CThreadArg& operator=(const CThreadArg&) = delete;
    ~CThreadArg();

    // The value that counts on a thread; 0 when there is none of that name.
    static std::uint64_t Lookup(const char* szName, std::uint32_t nThread);

private:
    const char* m_szName;
    std::uint32_t m_nThread;
};
