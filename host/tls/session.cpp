#include "host/tls/session.h"

#include <algorithm>
#include <climits>

#include <openssl/err.h>
#include <poll.h>

#include "host/tls/openssl.h"

namespace host {

struct TlsSession::Inside {
    SslPtr ssl;
};

TlsSession::TlsSession(const TlsContext& context, int fd) : m_inside(std::make_unique<Inside>()) {
    m_inside->ssl.reset(CheckTls(SSL_new(context.m_inside->context.get()), "no memory"));
    CheckTls(SSL_set_fd(m_inside->ssl.get(), fd) == 1, "no memory");
    SSL_set_accept_state(m_inside->ssl.get());
}

TlsSession::~TlsSession() = default;

ssize_t TlsSession::Outcome(int result) noexcept {
    if (result > 0)
        return result;
    const int error = SSL_get_error(m_inside->ssl.get(), result);
    ERR_clear_error(); // the queue is the thread's, and the next connection's as well
    switch (error) {
    case SSL_ERROR_WANT_READ:
        m_awaits = POLLIN;
        return kAgain;
    case SSL_ERROR_WANT_WRITE:
        m_awaits = POLLOUT;
        return kAgain;
    case SSL_ERROR_ZERO_RETURN:
        return 0;
    default:
        m_broken = true;
        return kBroken;
    }
}

ssize_t TlsSession::Shake() noexcept {
    return m_broken ? kBroken : Outcome(SSL_do_handshake(m_inside->ssl.get()));
}

ssize_t TlsSession::Read(char* bytes, std::size_t size) noexcept {
    if (m_broken)
        return kBroken;
    return Outcome(
        SSL_read(m_inside->ssl.get(), bytes, static_cast<int>(std::min<std::size_t>(size, INT_MAX))));
}

ssize_t TlsSession::Write(std::string_view bytes) noexcept {
    if (m_broken)
        return kBroken;
    return Outcome(SSL_write(m_inside->ssl.get(), bytes.data(),
                             static_cast<int>(std::min<std::size_t>(bytes.size(), INT_MAX))));
}

void TlsSession::SayEnd() noexcept {
    if (!m_broken)
        (void)Outcome(SSL_shutdown(m_inside->ssl.get()));
}

std::uint64_t TlsSession::SentToSocket() const noexcept {
    return BIO_number_written(SSL_get_wbio(m_inside->ssl.get()));
}

} // namespace host
