// What the calls of the C interface have in common: statuses, the text of the last error, what may be called
// inside a callback, and texts and structs that come from outside.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "capi/handles.h"
#include "capi/morrowstream.h"

namespace capi {

// Ends a call with a status and a text for people.
struct Failure : std::runtime_error {
    Failure(morrow_status why, const std::string& text) : std::runtime_error(text), status(why) {}
    const morrow_status status;
};

// Keeps the text for this thread and gives the status back.
int Fail(morrow_status status, const char* text) noexcept;

bool InCallback() noexcept;
// Marks the calling thread as inside a callback.
class CallbackScope {
public:
    CallbackScope() noexcept;
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;
    ~CallbackScope();

private:
    const bool m_former;
};

// The body of a call: no exception leaves it. `body` returns nothing.
template <class Body>
int CallAnywhere(Body body) noexcept {
    try {
        body();
        return MORROW_OK;
    } catch (const Failure& failure) {
        return Fail(failure.status, failure.what());
    } catch (const std::bad_alloc&) {
        return Fail(MORROW_NO_MEMORY, "memory is short");
    } catch (const std::exception& error) {
        return Fail(MORROW_FAILED, error.what());
    }
}

// The same for a call that callbacks may not make.
template <class Body>
int Call(Body body) noexcept {
    return InCallback() ? Fail(MORROW_IN_CALLBACK, "this may not be called inside a callback")
                        : CallAnywhere(std::move(body));
}

// What a handle turned out to have. Throws Failure where that is nothing.
template <class T>
std::shared_ptr<T> Known(std::shared_ptr<T> object) {
    if (!object)
        throw Failure(MORROW_BAD_HANDLE, std::string("this is no handle of a ") + T::kName);
    return object;
}
// The object of a handle. Throws Failure.
template <class T>
std::shared_ptr<T> Lookup(std::uint64_t handle) {
    return Known(HandleTable::Get().Find<T>(handle));
}
// The same; the handle is dead afterwards.
template <class T>
std::shared_ptr<T> Retire(std::uint64_t handle) {
    return Known(HandleTable::Get().Take<T>(handle));
}

// A new handle. Throws Failure.
template <class T>
std::uint64_t NewHandle(std::shared_ptr<T> object) {
    const std::uint64_t handle = HandleTable::Get().Add(std::move(object));
    if (handle == 0)
        throw Failure(MORROW_TOO_MANY, "there are too many handles");
    return handle;
}

// The same for an object that also stands in a table of the server, which may refuse it: then the handle goes
// again.
template <class T, class Table>
std::uint64_t Enter(const std::shared_ptr<T>& object, const std::shared_ptr<Table>& table) {
    object->place = table;
    object->handle = NewHandle(object);
    try {
        table->Add(object);
    } catch (...) {
        (void)HandleTable::Get().Take<T>(object->handle);
        throw;
    }
    return object->handle;
}

// An argument that must not be null; what it leads to is zeroed. Throws Failure.
template <class T>
T& Out(T* place) {
    if (place == nullptr)
        throw Failure(MORROW_INVALID, "there is no place for a result");
    return *place = T{};
}

// A text from outside, in valid UTF-8. Throws Failure; `what` names it.
std::string TextOf(const char* text, const char* what);
// Memory that morrow_free gives back. Throws std::bad_alloc.
void* CopyOf(const void* bytes, std::size_t size);
// With a zero behind it.
char* CopyOf(const std::string& text);

// A struct whose first field is its size, as the caller's header has it. What the caller does not know is 0;
// what only the caller knows must be. Throws Failure.
template <class T>
T ReadStruct(const T* given) {
    if (given == nullptr || given->size < sizeof given->size)
        throw Failure(MORROW_INVALID, "a struct is missing, or its size is not set");
    T known{};
    const std::size_t common = std::min(given->size, sizeof known);
    std::memcpy(&known, given, common);
    const auto* const rest = reinterpret_cast<const unsigned char*>(given);
    if (given->size > 4096 ||
        std::any_of(rest + common, rest + given->size, [](unsigned char c) { return c != 0; }))
        throw Failure(MORROW_INVALID, "a struct asks for something that this library does not know");
    return known;
}

// The same for a struct that goes out: the caller gets the fields that it has room for. Throws Failure.
template <class T>
void WriteStruct(T* place, T value) {
    if (place == nullptr || place->size < sizeof place->size || place->size > 4096)
        throw Failure(MORROW_INVALID, "a struct is missing, or its size is not set");
    value.size = place->size;
    if (place->size > sizeof value)
        std::memset(reinterpret_cast<unsigned char*>(place) + sizeof value, 0, place->size - sizeof value);
    std::memcpy(place, &value, std::min(place->size, sizeof value));
}

// A callback that can be ended. Several threads may call it at a time.
template <class Function>
class Callback {
public:
    Callback(Function function, void* payload) : m_function(function), m_payload(payload) {}

    // Does nothing once it is ended.
    template <class... Arguments>
    void operator()(Arguments... arguments) const {
        const std::shared_lock guard(m_mutex);
        if (!m_open.load(std::memory_order_relaxed))
            return;
        const CallbackScope scope;
        m_function(arguments..., m_payload);
    }
    // Waits for the calls that are at work; none comes afterwards.
    void End() noexcept {
        m_open.store(false, std::memory_order_relaxed); // whoever comes from here on leaves at once
        const std::unique_lock guard(m_mutex);
    }

private:
    const Function m_function;
    void* const m_payload;
    std::atomic<bool> m_open{true};
    mutable std::shared_mutex m_mutex; // shared by the calls at work
};

} // namespace capi
