// What the system takes for sending pictures, and nothing else: the measure for the host's watchers.
//
//     bare_send WATCHERS PICTURES_A_SECOND SECONDS FILE...
//
// Says "PORT" when it listens, waits until as many readers have asked, answers each as the host answers a
// watcher, and then sends every reader one file after the other, at that rate, with one call of `send` each.
// Prints the processor time of these, in seconds, and how many were not taken whole at once.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr char kHead[] = "HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=b\r\n\r\n"
                         "--b\r\nContent-Type: image/jpeg\r\n\r\n";
constexpr char kNext[] = "\r\n--morrowstream-picture\r\nContent-Type: image/jpeg\r\n\r\n";
constexpr int kSendBuffer = 64 * 1024; // as the host's

double ProcessorSeconds() {
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) * 1e-6;
}

[[noreturn]] void Fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

int Listen() {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener, 512) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        Fail("listen");
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return listener;
}

int Take(int listener) {
    const int reader = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    const int on = 1;
    if (reader < 0 || ::setsockopt(reader, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
        ::setsockopt(reader, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer) != 0)
        Fail("accept");
    std::string request;
    char part[1024];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t got = ::recv(reader, part, sizeof part, 0);
        if (got <= 0)
            Fail("request");
        request.append(part, static_cast<std::size_t>(got));
    }
    if (::send(reader, kHead, sizeof kHead - 1, MSG_NOSIGNAL) < 0)
        Fail("answer");
    return reader;
}

} // namespace

int main(int count, char** values) {
    if (count < 5)
        return 2;
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
    const int rate = std::atoi(values[2]);
    const int rounds = rate * std::atoi(values[3]);
    std::vector<std::string> pictures;
    for (int i = 4; i < count; ++i) {
        std::ifstream file(values[i], std::ios::binary);
        pictures.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        pictures.back() += kNext;
    }
    const int listener = Listen();
    std::vector<int> readers(static_cast<std::size_t>(std::atoi(values[1])));
    for (int& reader : readers)
        reader = Take(listener);
    const double before = ProcessorSeconds();
    auto due = std::chrono::steady_clock::now();
    std::size_t partly = 0;
    for (int round = 0; round < rounds; ++round) {
        std::this_thread::sleep_until(due += std::chrono::microseconds(1'000'000 / rate));
        const std::string& picture = pictures[static_cast<std::size_t>(round) % pictures.size()];
        for (const int reader : readers)
            partly += ::send(reader, picture.data(), picture.size(), MSG_NOSIGNAL | MSG_DONTWAIT) !=
                      static_cast<ssize_t>(picture.size());
    }
    std::printf("%.3f %zu\n", ProcessorSeconds() - before, partly);
    return 0;
}
