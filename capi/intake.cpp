#include "capi/intake.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "capi/server.h"
#include "kit/connection/phone_connection.h"
#include "platform/socket.h"
#include "platform/text.h"

namespace capi {

// What a phone asks for.
struct PhoneRequest {
    bool upload = false;
    std::string path; // for the component, without the first "/"
    std::string name; // of the camera or the source, decoded
};

namespace {

constexpr std::size_t kMostWaiting = 1024;
constexpr std::size_t kLongestHead = 16 * 1024;
// What may have been read behind the head: far more than any phone sends before it is answered.
constexpr std::size_t kMostAhead = 1024 * 1024;
// How long a viewing phone may take nothing at all.
constexpr std::chrono::seconds kStall{10};
constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kStreamPath = "/mobile/video/";
constexpr std::string_view kRefused =
    "HTTP/1.0 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"Morrowstream\"\r\n\r\n";
constexpr std::string_view kUnknown = "HTTP/1.0 404 Not Found\r\n\r\n";

thread_local std::optional<kit::RequestIdentity> t_identity;

// Nothing for a damaged escape, or one of the zero byte.
std::optional<std::string> Unescape(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        const int byte =
            text[0] == '%' ? platform::HexByte(text.substr(1)) : static_cast<unsigned char>(text[0]);
        if (byte <= 0)
            return std::nullopt;
        text.remove_prefix(text[0] == '%' ? 3 : 1);
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

// Nothing for the head of a request that is no phone's. The component takes an upload's name as it stands, so
// its escapes are undone here; it undoes a viewer's itself.
std::optional<PhoneRequest> ReadRequest(std::string_view head) {
    const std::string_view line = head.substr(0, head.find('\r'));
    const std::size_t from = line.find(' ');
    const std::size_t to = line.rfind(" HTTP/1.");
    if (from == std::string_view::npos || to == std::string_view::npos || to <= from)
        return std::nullopt;
    PhoneRequest request;
    request.upload = line.substr(0, from) == "POST";
    const std::string_view target = line.substr(from + 1, to - from - 1);
    if ((!request.upload && line.substr(0, from) != "GET") || !target.starts_with(kStreamPath))
        return std::nullopt;
    std::string_view name = target.substr(kStreamPath.size());
    name = name.substr(0, name.find_first_of(request.upload ? "?" : "/?"));
    while (name.ends_with('/'))
        name.remove_suffix(1);
    auto decoded = Unescape(name);
    if (!decoded || decoded->empty() || !platform::Utf8ToWideStrict(*decoded))
        return std::nullopt;
    request.name = *std::move(decoded);
    request.path =
        request.upload ? std::string(kStreamPath.substr(1)) + request.name : std::string(target.substr(1));
    return request;
}

// The login and password of HTTP Basic (RFC 7617); both empty without them.
kit::RequestIdentity ReadCredentials(std::string_view head) {
    constexpr std::string_view kField = "authorization:";
    constexpr std::string_view kScheme = "basic ";
    while (!head.empty()) {
        std::string_view line = head.substr(0, head.find("\r\n"));
        head.remove_prefix(std::min(head.size(), line.size() + 2));
        if (!platform::EqualsIgnoringCase(line.substr(0, kField.size()), kField))
            continue;
        line.remove_prefix(kField.size());
        line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
        const auto text = platform::EqualsIgnoringCase(line.substr(0, kScheme.size()), kScheme)
                              ? platform::DecodeBase64(line.substr(kScheme.size()))
                              : std::nullopt;
        const std::size_t colon = text ? text->find(':') : std::string::npos;
        // A zero would end a text of the callback before its end.
        if (colon == std::string::npos || text->find('\0') != std::string::npos ||
            !platform::Utf8ToWideStrict(*text))
            break;
        return {text->substr(0, colon), text->substr(colon + 1), ""};
    }
    return {};
}

// Says the last words of a connection that is turned away.
void Answer(int descriptor, std::string_view text) {
    (void)::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    (void)::shutdown(descriptor, SHUT_WR);
}

} // namespace

struct Intake::Waiting {
    platform::Descriptor socket;
    std::string bytes;
    std::size_t headSize = 0; // 0: the head is not whole
    PhoneRequest request;     // once it is
    morrow_taken_callback taken;
    void* payload;
    Clock::time_point deadline;

    // How many bytes are wanted before the connection can be handed over. Throws Failure for no phone's.
    std::size_t Missing() {
        if (headSize == 0) {
            const std::size_t end = bytes.find(kBlankLine);
            if (std::min(end, bytes.size()) > kLongestHead)
                throw Failure(MORROW_NOT_FOUND, "the head is longer than any of a phone");
            if (end == std::string::npos)
                return 2048;
            headSize = end + kBlankLine.size();
            auto read = ReadRequest(std::string_view(bytes).substr(0, headSize));
            if (!read)
                throw Failure(MORROW_NOT_FOUND, "this is no request of a phone");
            request = *std::move(read);
        }
        const std::size_t wanted = headSize + (request.upload ? kit::kAuthRecordBytes : 0);
        return wanted - std::min(wanted, bytes.size());
    }
    void Tell(int outcome) {
        socket.Close();
        if (taken == nullptr)
            return;
        const CallbackScope scope;
        taken(outcome, request.name.c_str(), payload);
    }
};

Intake::Intake(Parts parts) : m_parts(std::move(parts)), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_wake)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    // Signals are for the threads of the program.
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    (void)::pthread_sigmask(SIG_SETMASK, &all, &former);
    const platform::AtScopeEnd restore([&] { (void)::pthread_sigmask(SIG_SETMASK, &former, nullptr); });
    m_thread = std::thread([this] { Run(); });
}

Intake::~Intake() {
    {
        const std::lock_guard guard(m_mutex);
        m_stop = true;
    }
    (void)::eventfd_write(m_wake.Get(), 1);
    m_thread.join();
}

void Intake::Take(int descriptor, std::string bytes, morrow_taken_callback taken, void* payload) {
    int type = 0;
    socklen_t length = sizeof type;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_STREAM)
        throw Failure(MORROW_INVALID, "this is no descriptor of a stream socket");
    Waiting waiting{platform::Descriptor(),     std::move(bytes), 0, {}, taken, payload,
                    Clock::now() + m_parts.wait};
    (void)waiting.Missing(); // or a failure
    const std::lock_guard guard(m_mutex);
    if (m_count >= kMostWaiting)
        throw Failure(MORROW_TOO_MANY, "1024 connections wait already");
    m_new.push_back(std::move(waiting));
    m_new.back().socket = platform::Descriptor(descriptor);
    ++m_count;
    (void)::eventfd_write(m_wake.Get(), 1);
}

std::optional<kit::RequestIdentity> Intake::Identity() {
    return t_identity ? t_identity : kit::RequestIdentity{};
}

void Intake::Run() {
    // A phone's name and password are UTF-8, whatever language the server speaks.
    (void)platform::SetThreadCodePage(platform::kCodePageUtf8);
    for (;;) {
        {
            const std::lock_guard guard(m_mutex);
            std::ranges::move(m_new, std::back_inserter(m_waiting));
            m_new.clear();
            m_count = m_waiting.size();
            if (m_stop)
                break;
        }
        ReadAll();
        EndLate(Clock::now());
        std::vector<pollfd> polled{{m_wake.Get(), POLLIN, 0}};
        auto until = Clock::time_point::max();
        for (const Waiting& waiting : m_waiting) {
            polled.push_back({waiting.socket.Get(), POLLIN, 0});
            until = std::min(until, waiting.deadline);
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        const int wait =
            m_waiting.empty() ? -1 : static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
        (void)::poll(polled.data(), polled.size(), wait);
        eventfd_t ignored = 0;
        (void)::eventfd_read(m_wake.Get(), &ignored);
    }
    for (Waiting& waiting : m_waiting)
        waiting.Tell(MORROW_CLOSED);
}

void Intake::ReadAll() {
    std::erase_if(m_waiting, [this](Waiting& waiting) { return Advance(waiting); });
}

void Intake::EndLate(Clock::time_point now) {
    std::erase_if(m_waiting, [now](Waiting& waiting) {
        if (now < waiting.deadline)
            return false;
        waiting.Tell(MORROW_TIMEOUT);
        return true;
    });
}

bool Intake::Advance(Waiting& waiting) {
    int outcome = MORROW_CLOSED;
    try {
        while (const std::size_t missing = waiting.Missing()) {
            std::array<char, 2048> buffer{};
            const ssize_t count =
                ::recv(waiting.socket.Get(), buffer.data(), std::min(buffer.size(), missing), MSG_DONTWAIT);
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                return false;
            if (count <= 0) {
                waiting.Tell(MORROW_CLOSED);
                return true;
            }
            waiting.bytes.append(buffer.data(), static_cast<std::size_t>(count));
        }
        outcome = HandOver(waiting);
    } catch (const Failure& failure) {
        Answer(waiting.socket.Get(), kUnknown);
        outcome = failure.status;
    } catch (const std::exception&) { // memory is short: this connection ends, and no other
    }
    waiting.Tell(outcome);
    return true;
}

int Intake::HandOver(Waiting& waiting) {
    kit::WatchPeer(waiting.socket.Get());
    return waiting.request.upload ? HandUpload(waiting) : HandViewer(waiting);
}

// A wrong record for a camera that receives is denied here: the component would end the running upload first.
int Intake::HandUpload(Waiting& waiting) {
    const std::string_view record =
        std::string_view(waiting.bytes).substr(waiting.headSize, kit::kAuthRecordBytes);
    const auto password = m_parts.settings.PasswordOf(waiting.request.name);
    if (password && m_parts.cameras.IsConnected(waiting.request.name) &&
        !kit::IsRightRecord(record, *password)) {
        Answer(waiting.socket.Get(), {&kit::kRecordDenied, 1});
        return MORROW_DENIED;
    }
    t_identity.reset();
    return Process(waiting, waiting.request.path, MORROW_UPLOADING);
}

int Intake::HandViewer(Waiting& waiting) {
    kit::RequestIdentity who = ReadCredentials(std::string_view(waiting.bytes).substr(0, waiting.headSize));
    int may = 0;
    if (m_parts.mayWatch != nullptr) {
        const CallbackScope scope;
        may = m_parts.mayWatch(who.login.c_str(), who.password.c_str(), waiting.request.name.c_str(),
                               m_parts.watchPayload);
    }
    if (may == 0 || !m_parts.sources.Open(waiting.request.name)) {
        Answer(waiting.socket.Get(), may == 0 ? kRefused : kUnknown);
        return MORROW_DENIED;
    }
    kit::BoundSends(waiting.socket.Get(), kStall);
    who.token = m_parts.watchers.TokenOf(who.login);
    t_identity = std::move(who);
    return Process(waiting, waiting.request.path, MORROW_WATCHING);
}

int Intake::Process(Waiting& waiting, const std::string& path, int outcome) {
    const auto handler = m_parts.handlers->HandlerOf(platform::FromUtf8(path));
    if (!handler)
        return MORROW_CLOSED;
    const platform::Bstr head(platform::ToWide(waiting.bytes.substr(0, waiting.headSize)));
    const std::string_view ahead = std::string_view(waiting.bytes).substr(waiting.headSize);
    const SOCKET handle = platform::AdoptSocket(waiting.socket.Release(), ahead.data(), ahead.size());
    if (handle == INVALID_SOCKET)
        return MORROW_CLOSED;
    const HRESULT hr = handler->Process(platform::FromUtf8(path).c_str(), handle, head.Get());
    if (SUCCEEDED(hr))
        return outcome;
    (void)platform::closesocket(handle); // harmless when the component has closed it
    return hr == E_ACCESSDENIED ? MORROW_DENIED : MORROW_CLOSED;
}

} // namespace capi

using namespace capi;

int morrow_take(morrow_server server, int descriptor, const void* bytes, size_t size,
                morrow_taken_callback taken, void* payload) {
    return Call([&] {
        if ((bytes == nullptr && size > 0) || size > kLongestHead + kMostAhead)
            throw Failure(MORROW_INVALID, "there are no such bytes, or too many");
        const ServerUse use(server);
        use->intake->Take(descriptor, std::string(static_cast<const char*>(bytes), size), taken, payload);
    });
}
