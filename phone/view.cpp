#include "phone/view.h"

#include <array>
#include <cstdio>
#include <fstream>

#include "phone/packet.h"

namespace phone {
namespace {

// A server may slow the answer to wrong passwords down, and the slowest stream has a picture in ten seconds.
constexpr std::chrono::seconds kSilenceLimit{30};
constexpr std::size_t kLongestHead = 8192;
constexpr std::size_t kReadSize = 65536;

class Conversation {
public:
    Conversation(const ViewOptions& options, int stop, ViewReport& report)
        : m_options(options), m_report(report), m_figures(report.figures),
          m_connection(Connection::Open(options.server, stop)) {}

    End Run(const std::function<void(const ViewFigures&)>& progress) {
        const auto& options = m_options;
        m_connection.Send(OpeningHead("GET", options.server, options.source, options.login, options.password,
                                      options.parameters),
                          {});
        m_reader.Feed(ReadHead());
        for (;;) {
            while (const auto packet = m_reader.Next()) {
                Take(*packet);
                if (progress) {
                    progress(m_figures);
                }
                if (packet->last || (options.frames && m_figures.pictures >= *options.frames)) {
                    return End::Done;
                }
            }
            const std::string bytes = Await();
            if (bytes.empty()) {
                throw ConnectionError(
                    m_reader.IsInside()       ? "the server closed the connection in the middle of a picture"
                    : m_figures.pictures == 0 ? "the server closed the connection before the first picture"
                                              : "the server closed the connection");
            }
            m_figures.bytes += bytes.size();
            m_reader.Feed(bytes);
        }
    }

private:
    // The next bytes of the server; empty when it has closed.
    std::string Await() {
        return m_connection.Await(kReadSize, Clock::now() + kSilenceLimit, "the server sends nothing");
    }

    // Reads the HTTP head and gives what stands behind it already.
    std::string ReadHead() {
        constexpr std::string_view kEnd = "\r\n\r\n";
        std::string head;
        std::size_t end = std::string::npos;
        while ((end = head.find(kEnd)) == std::string::npos) {
            const std::string more = head.size() < kLongestHead ? Await() : std::string();
            if (more.empty() && head.empty()) {
                throw NoAnswer(m_report,
                               "have no source \"" + m_options.source + "\", or not take these parameters");
            }
            if (more.empty()) {
                throw Ended(End::Failed, "the server's answer is no HTTP");
            }
            head += more;
        }
        if (!head.starts_with("HTTP/1.0 200 ") && !head.starts_with("HTTP/1.1 200 ")) {
            throw HttpRefusal(head);
        }
        m_report.taken = Clock::now();
        std::string rest = head.substr(end + kEnd.size());
        m_figures.bytes += rest.size();
        return rest;
    }

    void Take(const Packet& packet) {
        m_figures.last = Clock::now();
        if (m_figures.pictures++ == 0) {
            m_figures.first = m_figures.last;
        }
        if (m_options.folder.empty()) {
            return;
        }
        std::array<char, 32> name{};
        // Counted over all connections: each counts its own packets from 1.
        std::snprintf(name.data(), name.size(), "%06llu.jpg",
                      static_cast<unsigned long long>(m_figures.pictures));
        const auto path = m_options.folder / name.data();
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(packet.jpeg.data(), static_cast<std::streamsize>(packet.jpeg.size()));
        file.close();
        if (!file) {
            throw Ended(End::Failed, "cannot write " + path.string());
        }
    }

    const ViewOptions& m_options;
    ViewReport& m_report;
    ViewFigures& m_figures;
    Connection m_connection;
    PacketReader m_reader;
};

double PerSecond(const ViewFigures& figures, double amount) {
    const double seconds = std::chrono::duration<double>(figures.last - figures.first).count();
    return figures.pictures > 1 && seconds > 0 ? amount / seconds : 0;
}

} // namespace

double ViewFigures::PicturesPerSecond() const {
    return PerSecond(*this, static_cast<double>(pictures - 1));
}

double ViewFigures::BytesPerSecond() const {
    // The first picture is the beginning of the time that is measured.
    return PerSecond(*this, static_cast<double>(bytes) * static_cast<double>(pictures - 1) /
                                static_cast<double>(pictures));
}

ViewReport View(const ViewOptions& options, int stop,
                const std::function<void(const ViewFigures&)>& progress) {
    ViewReport report;
    Converse(report, options.again, stop, [&] { return Conversation(options, stop, report).Run(progress); });
    return report;
}

} // namespace phone
