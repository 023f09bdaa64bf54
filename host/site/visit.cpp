#include "host/site/visit.h"

#include <poll.h>
#include <sys/socket.h>

#include "host/http/head.h"

namespace host {
namespace {

// Behind an answer that closes, what the peer still sends is read for a moment: closing over unread bytes
// would reset the connection and could take the answer with it.
constexpr std::chrono::milliseconds kLinger{500};

} // namespace

bool Visit::ReadBody() {
    if (request.expectsContinue && !SendBytes("HTTP/1.1 100 Continue\r\n\r\n"))
        return false;
    const auto deadline = Clock::now() + m_limits.bodyDeadline;
    const HeadResult read = host::ReadBody(m_socket.Get(), request.bodySize, &body, m_stop, deadline);
    if (read == HeadResult::Timeout)
        SendLast(Answer::Text(408, "The request did not come in time."));
    return read == HeadResult::Complete;
}

void Visit::Send(const Answer& answer) {
    if (!request.keepAlive || request.hasBody || request.method == "POST")
        return SendLast(answer);
    m_goesOn = SendBytes(Serialize(answer, {.keepAlive = true, .headOnly = IsHead()}));
}

void Visit::SendLast(const Answer& answer) {
    if (SendBytes(Serialize(answer, {.headOnly = IsHead()})))
        Linger();
}

bool Visit::SendUntilArrived(const Answer& answer) {
    if (SendBytes(Serialize(answer, {.headOnly = IsHead()})) &&
        m_arrival.Await(m_stop, m_limits.writeStall)) {
        Linger();
        return true;
    }
    // What the system has not sent yet is thrown away, and the peer is told so.
    const linger hard{1, 0};
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    m_socket.Close();
    return false;
}

Descriptor Visit::Take() {
    return std::move(m_socket);
}

int Visit::Last() {
    return m_socket.Get();
}

bool Visit::SendBytes(std::string_view bytes) {
    m_arrival.Sent(bytes.size());
    return SendAll(m_socket.Get(), bytes, m_stop, m_limits.writeStall) == SendResult::Sent;
}

void Visit::Linger() {
    ::shutdown(m_socket.Get(), SHUT_WR);
    const auto deadline = Clock::now() + kLinger;
    std::string left(4096, '\0');
    while (WaitFor({.socket = m_socket.Get(), .socketEvents = POLLIN, .stop = &m_stop}, deadline) ==
           Waited::Ready) {
        if (::recv(m_socket.Get(), left.data(), left.size(), MSG_DONTWAIT) <= 0)
            return;
    }
}

} // namespace host
