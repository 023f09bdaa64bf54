// The cookies in which browsers keep the numbers of sessions.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/http/request.h"

namespace host {

// One kind of them. Under TLS it has another name than in clear, and each is read on its own way only: what
// was heard in clear is good for nothing under TLS.
struct SessionCookie {
    std::uint16_t port = 0; // of this server: browsers share cookies among the ports of a name
    std::string_view secureName{};
    std::string_view clearName{};
    std::chrono::seconds longest{0};

    // The number; empty without one, or with several.
    [[nodiscard]] std::string_view In(const Request& request) const;
    [[nodiscard]] bool IsIn(const Request& request) const; // whatever it holds
    // The line that sets it; with an empty number, that removes it.
    [[nodiscard]] std::string Line(const Request& request, std::string_view id) const;

private:
    [[nodiscard]] std::string Name(bool secure) const;
};

// Of a user who has signed in, and of a phone that is a camera.
SessionCookie UserCookie(std::uint16_t port);
SessionCookie PhoneCookie(std::uint16_t port);

} // namespace host
