#include "phone/upload.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

namespace phone {
namespace {

constexpr char kAccepted = 0;
constexpr char kDenied = 1;
constexpr char kNoCredit = 2; // known to phones; no present server sends it
constexpr char kFrameDescriptor = 4;

constexpr const char* kNoAnswer = "the server sends no answer";

// A server may slow the answer to wrong passwords down.
constexpr std::chrono::seconds kAnswerLimit{30};
// A server that grants nothing for so long is given up.
constexpr std::chrono::seconds kGrantLimit{60};
// For a server to read what is under way and to close.
constexpr std::chrono::seconds kFarewellLimit{5};
constexpr std::chrono::seconds kFarewellLimitStopped{1};

std::string LittleEndian16(std::size_t value) {
    return {static_cast<char>(value & 255U), static_cast<char>((value >> 8U) & 255U)};
}

class Conversation {
public:
    Conversation(const UploadOptions& options, const PictureSequence& pictures, int stop,
                 UploadReport& report)
        : m_options(options), m_pictures(pictures), m_report(report),
          m_connection(Connection::Open(options.server, stop)) {}

    End Run() {
        const auto& options = m_options;
        m_connection.Send(OpeningHead("POST", options.server, options.login, options.login, options.password),
                          UploadRecord(options, m_pictures.Size()));
        ReadAnswer();
        const std::string_view header = m_pictures.Header();
        m_connection.Send(LittleEndian16(header.size()), header);
        return SayFarewell(SendFrames());
    }

private:
    void ReadAnswer() {
        const auto limit = Clock::now() + kAnswerLimit;
        const std::string answer = m_connection.Await(1, limit, kNoAnswer);
        if (answer.empty()) {
            throw NoAnswer(m_report, "have no camera \"" + m_options.login + "\"");
        }
        switch (answer[0]) {
        case kAccepted:
            m_report.taken = Clock::now();
            return;
        case kDenied:
            throw Ended(End::Denied, "denied: wrong password");
        case kNoCredit:
            throw Ended(End::Denied, "denied: no credit left on this account");
        case 'H':
            throw HttpRefusal(StatusLine(answer, limit));
        default:
            throw Ended(End::Failed, "the server's answer is none of this protocol: byte " +
                                         std::to_string(static_cast<unsigned char>(answer[0])));
        }
    }

    // The web server itself has answered, and not the camera: the rest of the line that has begun.
    std::string StatusLine(std::string line, Clock::time_point limit) {
        constexpr std::size_t kLongestLine = 200;
        while (line.size() < kLongestLine && line.find('\r') == std::string::npos) {
            const std::string more = m_connection.Await(kLongestLine - line.size(), limit, kNoAnswer);
            if (more.empty()) {
                break;
            }
            line += more;
        }
        return line;
    }

    void TakeGrants(std::string_view grants) {
        for (const char grant : grants) {
            m_credit += static_cast<unsigned char>(grant);
            ++m_report.grants;
        }
    }

    End SendFrames() {
        const auto interval = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(1 / m_options.framesPerSecond));
        auto lastGrant = Clock::now();
        std::optional<Clock::time_point> due; // the next frame's; set by the first grant
        while (!m_options.frames || m_report.frames < *m_options.frames) {
            const bool mayWait = m_credit == 0 || (due && Clock::now() < *due);
            const auto until = m_credit == 0 ? lastGrant + kGrantLimit : *due;
            const auto wait = m_connection.WaitToReceive(mayWait ? until : Clock::time_point{});
            if (wait == WaitResult::Stopped) {
                return End::Stopped;
            }
            if (wait == WaitResult::Ready) {
                const std::string grants = m_connection.Receive(64);
                if (grants.empty()) {
                    throw ConnectionError("the server closed the connection");
                }
                TakeGrants(grants);
                lastGrant = Clock::now();
                if (!due) {
                    due = lastGrant + m_options.startDelay;
                }
                continue;
            }
            if (m_credit == 0) {
                throw ConnectionError("the server asks for no more frames");
            }
            SendFrame();
            // A frame that had to wait for its grant is not made up for by a burst: the phone's rate is its
            // limit.
            const auto now = Clock::now();
            due = *due + interval < now ? now + interval : *due + interval;
        }
        return End::Done;
    }

    void SendFrame() {
        const std::string_view body = m_pictures.Body(static_cast<std::size_t>(m_report.frames));
        m_connection.Send(kFrameDescriptor + LittleEndian16(body.size()), body);
        --m_credit;
        ++m_report.frames;
    }

    // Closing a socket that has received more than was read resets the connection, and the server would lose
    // the frames that it has not read yet. So the phone says that it has ended and waits for the server to
    // close.
    End SayFarewell(End end) {
        m_connection.EndSending();
        const auto limit = Clock::now() + (end == End::Stopped ? kFarewellLimitStopped : kFarewellLimit);
        constexpr const char* kSilence = "the server sends no sign that it has read the last frames";
        try {
            for (std::string grants; !(grants = m_connection.Await(64, limit, kSilence)).empty();)
                TakeGrants(grants);
        } catch (const Ended& ended) {
            // No more frames are to be sent, so another connection would not help.
            if (end != End::Stopped)
                throw Ended(End::Failed,
                            ended.what() == std::string_view(kSilence)
                                ? kSilence
                                : "the server closed the connection before it had read the last frames");
        }
        return end;
    }

    const UploadOptions& m_options;
    const PictureSequence& m_pictures;
    UploadReport& m_report;
    Connection m_connection;
    std::uint64_t m_credit = 0; // frames granted and not sent
};

} // namespace

std::string UploadRecord(const UploadOptions& options, PictureSize size) {
    const double rate = std::clamp(std::round(options.framesPerSecond), 1.0, 255.0);
    std::string record{3, static_cast<char>(static_cast<unsigned char>(rate)), 5};
    record += options.login + "_" + std::to_string(size.width) + "x" + std::to_string(size.height) + "_JPEG";
    // A long login is cut: the text is for people who look at the wire, and its field ends with a zero.
    record.resize(std::min(record.size(), kRecordPrefixSize - 1));
    record.resize(kRecordPrefixSize);
    record += options.password.substr(0, kLongestPassword);
    record.resize(kRecordSize);
    return record;
}

UploadReport Upload(const UploadOptions& options, const PictureSequence& pictures, int stop) {
    UploadReport report;
    Converse(report, options.again, stop,
             [&] { return Conversation(options, pictures, stop, report).Run(); });
    return report;
}

} // namespace phone
