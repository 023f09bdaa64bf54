// The memory of frame blocks, and what is kept of it between two pictures.
//
// A camera's block is freed when its next picture is there. Above the allocator's mapping threshold each such
// block would be mapped anew and page by page, and given back, which can cost a tenth of what decoding the
// picture does; from half of that on it often lies at the end of a heap, which gives it back as well, and
// that costs twice what decoding 320x240 does. So freed blocks wait in one pool for a picture of their size,
// whichever camera sends it.

#include "image/FrameBlock.h"

#include "image/kernels/Memory.h"

#include <array>
#include <atomic>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(pBytes, nSize) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(pBytes, nSize) static_cast<void>(0)
#endif

namespace {

// Below it the heap reuses memory by itself.
constexpr std::size_t kLeastPooled = std::size_t{64} << 10;
constexpr std::size_t kMostPooled = std::size_t{32} << 20; // in all

// Any thread takes and puts at any time, without a lock. What two of them do at the same moment can cost a
// block its place in the pool, never more.
class BlockPool {
public:
    BlockPool() = default;
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;
    ~BlockPool() {
        for (Slot& slot : m_aSlots)
            static_cast<void>(Evict(slot));
    }

    // A block of exactly that size with the bytes of another picture in it; null when there is none.
    std::uint8_t* Take(std::size_t nSize) noexcept {
        for (Slot& slot : m_aSlots) {
            if (slot.nSize.load(std::memory_order_relaxed) != nSize)
                continue;
            std::uint8_t* const pBytes = slot.pBytes.exchange(nullptr, std::memory_order_acquire);
            if (pBytes == nullptr)
                continue;
            const std::size_t nFound = SizeOf(pBytes);
            m_nBytes.fetch_sub(nFound, std::memory_order_relaxed);
            if (nFound == nSize)
                return pBytes;
            Put(pBytes, nFound); // the slot was filled anew in between
        }
        return nullptr;
    }

    // Takes the block over. A full pool lets go of others for it: what nobody sends any more makes room.
    void Put(std::uint8_t* pBytes, std::size_t nSize) noexcept {
        std::size_t nBytes = m_nBytes.fetch_add(nSize, std::memory_order_relaxed) + nSize;
        std::uint32_t nSlot = m_nHand.load(std::memory_order_relaxed);
        for (std::size_t i = 0; i < m_aSlots.size() && nBytes > kMostPooled; ++i)
            nBytes -= Evict(m_aSlots[nSlot++ % m_aSlots.size()]);
        m_nHand.store(nSlot, std::memory_order_relaxed);
        std::memcpy(pBytes, &nSize, sizeof nSize);
        ASAN_POISON_MEMORY_REGION(pBytes + sizeof nSize, nSize - sizeof nSize);
        for (std::size_t i = 0; i < m_aSlots.size() && nBytes <= kMostPooled; ++i) {
            Slot& slot = m_aSlots[i];
            std::uint8_t* pNone = nullptr;
            if (slot.pBytes.load(std::memory_order_relaxed) == nullptr &&
                slot.pBytes.compare_exchange_strong(pNone, pBytes, std::memory_order_release)) {
                slot.nSize.store(nSize, std::memory_order_relaxed);
                return;
            }
        }
        m_nBytes.fetch_sub(nSize, std::memory_order_relaxed);
        std::free(pBytes);
    }

private:
    struct Slot {
        std::atomic<std::uint8_t*> pBytes{nullptr};
        std::atomic<std::size_t> nSize{0}; // a hint; the block itself tells
    };

    // Of a block that is this thread's alone.
    static std::size_t SizeOf(std::uint8_t* pBytes) noexcept {
        std::size_t nSize = 0;
        std::memcpy(&nSize, pBytes, sizeof nSize);
        ASAN_UNPOISON_MEMORY_REGION(pBytes, nSize);
        return nSize;
    }

    // Gives the bytes that the pool still holds less by what was freed.
    std::size_t Evict(Slot& slot) noexcept {
        std::uint8_t* const pBytes = slot.pBytes.exchange(nullptr, std::memory_order_acquire);
        if (pBytes == nullptr)
            return 0;
        const std::size_t nSize = SizeOf(pBytes);
        m_nBytes.fetch_sub(nSize, std::memory_order_relaxed);
        std::free(pBytes);
        return nSize;
    }

    std::array<Slot, kMostPooled / kLeastPooled> m_aSlots;
    std::atomic<std::size_t> m_nBytes{0};  // never below what the slots hold
    std::atomic<std::uint32_t> m_nHand{0}; // goes round: the slot that is next to make room
};

constinit BlockPool g_oPool;

} // namespace

FrameBlock::FrameBlock(std::size_t nSize, bool bZero) noexcept {
    if (nSize >= kLeastPooled)
        m_pBytes = g_oPool.Take(nSize);
    if (m_pBytes == nullptr) {
        // calloc, so that the zeroes of a large block are the system's own fresh pages.
        m_pBytes = static_cast<std::uint8_t*>(bZero ? std::calloc(nSize, 1) : std::malloc(nSize));
        ippAdviseLargePages(m_pBytes, static_cast<std::int64_t>(nSize));
    } else if (bZero) {
        std::memset(m_pBytes, 0, nSize);
    }
    m_nSize = m_pBytes != nullptr ? nSize : 0;
}

FrameBlock FrameBlock::Allocate(std::uint32_t nImageBytes) noexcept {
    return {sizeof(BITMAPINFOHEADER) + std::size_t{nImageBytes}, true};
}

FrameBlock FrameBlock::AllocateUncleared(std::uint32_t nImageBytes) noexcept {
    return {sizeof(BITMAPINFOHEADER) + std::size_t{nImageBytes}, false};
}

void FrameBlock::Free() noexcept {
    std::uint8_t* const pBytes = std::exchange(m_pBytes, nullptr);
    const std::size_t nSize = std::exchange(m_nSize, 0);
    if (nSize >= kLeastPooled && nSize <= kMostPooled)
        g_oPool.Put(pBytes, nSize);
    else
        std::free(pBytes);
}
