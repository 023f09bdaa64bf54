#include "capi/calls.h"

#include <cstdlib>

#include "platform/text.h"

namespace capi {
namespace {

thread_local bool t_inCallback = false;

std::string& LastText() {
    thread_local std::string text;
    return text;
}

} // namespace

int Fail(morrow_status status, const char* text) noexcept {
    try {
        LastText() = text;
    } catch (const std::bad_alloc&) {
        LastText().clear();
    }
    return status;
}

bool InCallback() noexcept {
    return t_inCallback;
}

CallbackScope::CallbackScope() noexcept : m_former(std::exchange(t_inCallback, true)) {}

CallbackScope::~CallbackScope() {
    t_inCallback = m_former;
}

std::string TextOf(const char* text, const char* what) {
    if (text == nullptr || !platform::Utf8ToWideStrict(text))
        throw Failure(MORROW_INVALID, std::string(what) + " is no UTF-8 text");
    return text;
}

void* CopyOf(const void* bytes, std::size_t size) {
    void* const copy = std::malloc(std::max<std::size_t>(size, 1));
    if (copy == nullptr)
        throw std::bad_alloc();
    if (size > 0)
        std::memcpy(copy, bytes, size);
    return copy;
}

char* CopyOf(const std::string& text) {
    return static_cast<char*>(CopyOf(text.c_str(), text.size() + 1));
}

} // namespace capi

uint32_t morrow_version(void) {
    return MORROW_VERSION_MAJOR << 16 | MORROW_VERSION_MINOR << 8 | MORROW_VERSION_PATCH;
}

const char* morrow_last_error(void) {
    return capi::LastText().c_str();
}

void morrow_free(void* memory) {
    std::free(memory);
}
