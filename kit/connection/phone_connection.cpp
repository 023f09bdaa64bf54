#include "kit/connection/phone_connection.h"

#include <string>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "platform/text.h"

namespace kit {
namespace {

// Kernel buffer towards a viewing phone, whose pictures have some kilobytes.
constexpr int kViewerSendBuffer = 16 * 1024;

template <class Value>
void SetOption(int fd, int level, int option, const Value& value) noexcept {
    (void)::setsockopt(fd, level, option, &value, sizeof value);
}

} // namespace

bool IsRightRecord(std::string_view record, std::string_view password) {
    const std::string stored = platform::ToNarrow(platform::FromUtf8(password), platform::kCodePageThread);
    const std::string_view field = record.substr(kRecordPasswordOffset);
    return platform::EqualInConstantTime(field.substr(0, field.find('\0')), stored.c_str());
}

void WatchPeer(int fd) noexcept {
    SetOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, 20);
    SetOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    SetOption(fd, IPPROTO_TCP, TCP_KEEPCNT, 4);
}

void BoundSends(int fd, std::chrono::milliseconds stall) noexcept {
    SetOption(fd, SOL_SOCKET, SO_SNDBUF, kViewerSendBuffer);
    SetOption(fd, SOL_SOCKET, SO_SNDTIMEO, timeval{stall.count() / 1000, stall.count() % 1000 * 1000});
    SetOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, static_cast<unsigned>(stall.count()));
}

} // namespace kit
