#include "platform/socket.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "platform/scope.h"
#include "platform/status.h"

namespace platform {

namespace {

// How many handles can be open at a time. The table is fixed, so that a handle is checked and its use counted
// by one atomic word without a lock; pages of the table that were never in use take no memory.
constexpr std::uint32_t kSlots = 65536;
constexpr std::uint32_t kNoSlot = kSlots;

// The state of a slot in one word: the generation in the upper half, below it "open" and the number of
// operations under way. A handle is good while its generation and "open" stand in the word.
//
//   free or never used   not open, 0 users
//   open                 open, n users
//   closing              not open, n > 0 users: descriptor still in their hands, new ones are refused
//
// Memory order. The descriptor is a plain field, written by AdoptSocket before it publishes the open word
// (release). A user enters by a compare-exchange (acquire) on that word or on a later one of the same release
// sequence, which every change of the word continues, so it sees the descriptor. It leaves with a decrement
// (acquire-release): the last one, which closes the descriptor and frees the slot, comes after everything
// that the others did with it.
constexpr std::uint64_t kUserMask = 0x7FFFFFFF;
constexpr std::uint64_t kOpen = 0x80000000;
constexpr unsigned kGenerationShift = 32;

// One slot a cache line: neighbours are in use by different connections. All zero at first, so that the table
// is not stored in the library's file either.
struct alignas(64) Slot {
    // Gives what is left of the bytes that were read ahead; 0 when nothing is.
    int TakeAhead(void* buffer, std::size_t size) noexcept {
        std::size_t from = aheadTaken.load(std::memory_order_relaxed);
        std::size_t count = 0;
        do {
            count = std::min({aheadSize - from, size, std::size_t{INT_MAX}});
            if (count == 0)
                return 0;
        } while (!aheadTaken.compare_exchange_weak(from, from + count, std::memory_order_relaxed));
        std::memcpy(buffer, ahead + from, count);
        return static_cast<int>(count);
    }

    std::atomic<std::uint64_t> state{0};
    int descriptor = 0;
    std::uint32_t nextFree = 0; // under g_freeMutex
    // Plain like the descriptor, and freed with it; null for most connections.
    std::uint8_t* ahead = nullptr;
    std::size_t aheadSize = 0;
    std::atomic<std::size_t> aheadTaken{0};
};

// None of this has a destructor: detached threads may be in here while the process ends.
constinit std::array<Slot, kSlots> g_slots;
constinit std::mutex g_freeMutex;
constinit std::uint32_t g_firstFree = kNoSlot; // under g_freeMutex
constinit std::uint32_t g_everUsed = 0;        // under g_freeMutex: slots from here on are untouched
constinit std::atomic<std::uint32_t> g_openCount{0};

std::uint64_t GenerationOf(std::uint64_t word) noexcept {
    return word >> kGenerationShift;
}

std::uint32_t TakeSlot() noexcept {
    const std::scoped_lock guard(g_freeMutex);
    if (g_firstFree != kNoSlot) {
        const std::uint32_t index = g_firstFree;
        g_firstFree = g_slots[index].nextFree;
        return index;
    }
    return g_everUsed < kSlots ? g_everUsed++ : kNoSlot;
}

void GiveSlotBack(std::uint32_t index) noexcept {
    const std::scoped_lock guard(g_freeMutex);
    g_slots[index].nextFree = g_firstFree;
    g_firstFree = index;
}

// One operation on a handle, or the refusal of a stale one.
class Use {
public:
    // `bitsToKeep` leaves kOpen out for the operation that closes.
    explicit Use(SOCKET socket, std::uint64_t bitsToKeep = ~std::uint64_t{0}) noexcept {
        const std::uint64_t index = socket & 0xFFFFFFFF;
        if (index >= kSlots)
            return;
        Slot& slot = g_slots[index];
        std::uint64_t word = slot.state.load(std::memory_order_relaxed);
        do {
            if (GenerationOf(word) != GenerationOf(socket) || (word & kOpen) == 0)
                return;
        } while (!slot.state.compare_exchange_weak(word, (word + 1) & bitsToKeep, std::memory_order_acq_rel,
                                                   std::memory_order_relaxed));
        m_slot = &slot;
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() {
        if (m_slot == nullptr)
            return;
        const std::uint64_t before = m_slot->state.fetch_sub(1, std::memory_order_acq_rel);
        if ((before & (kOpen | kUserMask)) != 1)
            return;
        ::close(m_slot->descriptor);
        delete[] std::exchange(m_slot->ahead, nullptr);
        GiveSlotBack(static_cast<std::uint32_t>(m_slot - g_slots.data()));
    }

    [[nodiscard]] bool IsValid() const noexcept { return m_slot != nullptr; }
    [[nodiscard]] int Descriptor() const noexcept { return m_slot->descriptor; }
    [[nodiscard]] Slot& Get() const noexcept { return *m_slot; }
    // Another thread has closed the handle meanwhile.
    [[nodiscard]] bool WasClosed() const noexcept {
        return (m_slot->state.load(std::memory_order_acquire) & kOpen) == 0;
    }

private:
    Slot* m_slot = nullptr;
};

int Fail(std::uint32_t error) noexcept {
    SetLastError(error);
    return kSocketError;
}

// The end of a failed transfer. A close on another thread shows as an end of file or a broken pipe, but it is
// the reason to report.
int FailTransfer(const Use& use, int value) noexcept {
    if (use.WasClosed())
        return Fail(kSocketInterrupted);
    // Descriptors are blocking: "try again" means that whoever made the socket gave it a time limit.
    return Fail(value == EAGAIN ? kSocketTimedOut : SocketErrorFromErrno(value));
}

// What is wrong with the arguments of a transfer, or kErrorSuccess.
std::uint32_t CheckArguments(const Use& use, const void* buffer, int size, int flags) noexcept {
    if (!use.IsValid())
        return kSocketNotASocket;
    if (size < 0 || flags != 0)
        return kSocketInvalid;
    return buffer == nullptr && size > 0 ? kSocketFault : kErrorSuccess;
}

bool PrepareDescriptor(int descriptor) noexcept {
    int type = 0;
    socklen_t length = sizeof type;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length) != 0)
        return false;
    if (type != SOCK_STREAM) {
        errno = EINVAL;
        return false;
    }
    const int status = ::fcntl(descriptor, F_GETFL);
    return status >= 0 && ::fcntl(descriptor, F_SETFL, status & ~O_NONBLOCK) == 0 &&
           ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

} // namespace

SOCKET AdoptSocket(int descriptor, const void* ahead, std::size_t size) noexcept {
    platform::Descriptor owner(descriptor);
    if (!PrepareDescriptor(descriptor)) {
        SetLastError(SocketErrorFromErrno(errno));
        return INVALID_SOCKET;
    }
    std::unique_ptr<std::uint8_t[]> copy(size > 0 ? new (std::nothrow) std::uint8_t[size] : nullptr);
    if (size > 0 && copy == nullptr) {
        SetLastError(kSocketNoBuffers);
        return INVALID_SOCKET;
    }
    const std::uint32_t index = TakeSlot();
    if (index == kNoSlot) {
        SetLastError(kSocketTooMany);
        return INVALID_SOCKET;
    }
    Slot& slot = g_slots[index];
    // Generation 0 is left out, so that no handle is 0. An old handle could be taken for a new one only after
    // 2^32 connections through the same slot.
    std::uint64_t generation = (GenerationOf(slot.state.load(std::memory_order_relaxed)) + 1) & 0xFFFFFFFF;
    if (generation == 0)
        generation = 1;
    slot.descriptor = owner.Release();
    if (size > 0)
        std::memcpy(copy.get(), ahead, size);
    slot.ahead = copy.release();
    slot.aheadSize = size;
    slot.aheadTaken.store(0, std::memory_order_relaxed);
    g_openCount.fetch_add(1, std::memory_order_relaxed);
    slot.state.store(generation << kGenerationShift | kOpen, std::memory_order_release);
    return (generation << kGenerationShift) | index;
}

int recv(SOCKET socket, void* buffer, int size, int flags) noexcept {
    const Use use(socket);
    if (const std::uint32_t error = CheckArguments(use, buffer, size, flags); error != kErrorSuccess)
        return Fail(error);
    if (size == 0)
        return 0; // the system would wait for data here
    if (const int taken = use.Get().TakeAhead(buffer, static_cast<std::size_t>(size)); taken > 0)
        return taken;
    ssize_t count = 0;
    do
        count = ::recv(use.Descriptor(), buffer, static_cast<std::size_t>(size), 0);
    while (count < 0 && errno == EINTR);
    if (count < 0)
        return FailTransfer(use, errno);
    if (count == 0 && use.WasClosed())
        return Fail(kSocketInterrupted);
    return static_cast<int>(count);
}

int send(SOCKET socket, const void* bytes, int size, int flags) noexcept {
    const Use use(socket);
    if (const std::uint32_t error = CheckArguments(use, bytes, size, flags); error != kErrorSuccess)
        return Fail(error);
    const char* const begin = static_cast<const char*>(bytes);
    int sent = 0;
    while (sent < size) {
        const ssize_t count =
            ::send(use.Descriptor(), begin + sent, static_cast<std::size_t>(size - sent), MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<int>(count);
        } else if (errno != EINTR) {
            if (sent > 0)
                break;
            return FailTransfer(use, errno);
        }
    }
    return sent;
}

int closesocket(SOCKET socket) noexcept {
    const Use use(socket, ~kOpen);
    if (!use.IsValid())
        return Fail(kSocketNotASocket);
    g_openCount.fetch_sub(1, std::memory_order_relaxed);
    // Wakes those who wait in recv or send. It can fail only where nobody waits: on a socket that is not
    // connected any more.
    (void)::shutdown(use.Descriptor(), SHUT_RDWR);
    return 0;
}

std::uint32_t LastSocketError() noexcept {
    return LastError();
}

std::uint32_t OpenSocketCount() noexcept {
    return g_openCount.load(std::memory_order_relaxed);
}

} // namespace platform
