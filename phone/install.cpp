#include "phone/commands.h"

#include <charconv>
#include <fstream>

namespace phone {
namespace {

constexpr std::string_view kHelp =
    R"(morrowstream-phone install: fetches the archive that a phone installs.

  --kind upload|view  what it makes of the phone: a camera of the server, or a screen for its sources
  --server HOST:PORT  the server
  --login NAME        a camera of the server, or for "view" any user; the archive holds both
  --password WORD     its password (empty by default); "-" takes it from standard input
  --password-file F   takes it from the first line of the file F
  --link ADDRESS      instead of these four: the address that the live page's code shows, http://HOST:PORT/get/TOKEN
  --name TEXT         the midlet's name on the phone (Sendora, Viewlander)
  --out FILE          where the archive goes (NAME.jar)

Ends with status 0 when the archive is there; with 1 when it was denied or did not come; with 2 for arguments that make
no sense.
)";

// The archives have some ten thousand bytes.
constexpr std::size_t kLargestReply = 16 * 1024 * 1024;
// A server builds an archive for each request and gives its tool ten seconds.
constexpr std::chrono::seconds kReplyLimit{30};
constexpr std::string_view kScheme = "http://";

// Splits the address of a link.
void ReadLink(std::string_view link, InstallCommand& command) {
    const std::size_t slash = link.find('/', kScheme.size());
    if (!link.starts_with(kScheme) || slash == std::string_view::npos || link.substr(slash).size() < 2)
        throw platform::UsageError("--link takes http://HOST:PORT/get/TOKEN, not \"" + std::string(link) +
                                   "\"");
    std::string host(link.substr(kScheme.size(), slash - kScheme.size()));
    if (host.find(':') == std::string::npos)
        host += ":80";
    command.server = ParseServer(host);
    std::string_view path = link.substr(slash);
    if (path.ends_with('/'))
        path.remove_suffix(1);
    for (const unsigned char c : path) {
        if (c <= 0x20 || c >= 0x7F)
            throw platform::UsageError("--link takes the address as it is, without blanks");
    }
    command.resource = std::string(path) + "/Sendora.jar";
}

// The component takes the name as it stands in the query, so what would end it there cannot be told.
void CheckName(std::string_view name) {
    for (const unsigned char c : name) {
        if (c <= 0x20 || c == 0x7F || c == '&' || c == '#' || c == '%')
            throw platform::UsageError("--name takes a name without blanks and the signs & # %");
    }
}

std::string Ask(const InstallCommand& command) {
    std::string head = "GET " + command.resource + " HTTP/1.1\r\nHost: " + command.server.Text() +
                       "\r\nAccept: */*\r\nConnection: close\r\n";
    if (!command.login.empty())
        head += Credentials(command.login, command.password);
    return head + "\r\n";
}

std::string ReadAll(Connection& connection) {
    std::string reply;
    const auto due = Clock::now() + kReplyLimit;
    for (;;) {
        const std::string piece = connection.Await(64 * 1024, due, "the server did not answer in time");
        if (piece.empty())
            return reply;
        reply += piece;
        if (reply.size() > kLargestReply)
            throw ConnectionError("the server sends more than an archive has");
    }
}

// The body of an answer that is whole. A line of text that came with a refusal is told.
std::string ArchiveOf(const std::string& reply) {
    const std::size_t end = reply.find("\r\n\r\n");
    if (end == std::string::npos)
        throw ConnectionError("the server sent no answer");
    const std::string head = reply.substr(0, end + 2);
    std::string body = reply.substr(end + 4);
    if (!head.starts_with("HTTP/1.1 200") && !head.starts_with("HTTP/1.0 200"))
        throw HttpRefusal(head);
    const std::size_t at = head.find("\r\nContent-Length: ");
    std::size_t size = 0;
    const char* const first = at == std::string::npos ? nullptr : head.data() + at + 18;
    if (first == nullptr || std::from_chars(first, head.data() + head.size(), size).ec != std::errc() ||
        size != body.size())
        throw ConnectionError("the archive did not come whole");
    if (!body.starts_with("PK\x03\x04"))
        throw ConnectionError("what came is no archive");
    return body;
}

// Under another name first, so that nobody finds half an archive.
void Write(const std::filesystem::path& file, const std::string& bytes) {
    std::filesystem::path part = file;
    part += ".part";
    std::ofstream stream(part, std::ios::binary);
    stream << bytes;
    stream.close();
    std::error_code error;
    if (stream)
        std::filesystem::rename(part, file, error);
    if (!stream || error) {
        std::error_code ignored;
        std::filesystem::remove(part, ignored);
        throw std::runtime_error("cannot write " + file.string());
    }
}

} // namespace

std::optional<InstallCommand> ParseInstall(Arguments arguments) {
    InstallCommand command;
    std::optional<bool> view;
    std::string link;
    std::string name;
    const auto options =
        OptionsOf(command.server, command.login, command.password,
                  {{"--kind", platform::OneOf<bool>({{"upload", false}, {"view", true}}, view)},
                   {"--link", platform::Text(link)},
                   {"--name", platform::Text(name)},
                   {"--out", platform::Text(command.file)}});
    if (!platform::ReadOptions(arguments, options))
        return std::nullopt;
    const bool self = !command.server.host.empty() || !command.login.empty();
    if (link.empty() ? !view || command.server.host.empty() || command.login.empty()
                     : self || view.value_or(false))
        throw platform::UsageError("--kind, --server and --login are needed, or --link alone");
    const std::string midlet = view.value_or(false) ? "Viewlander" : "Sendora";
    CheckName(name);
    if (name.empty())
        name = midlet;
    if (link.empty())
        command.resource = "/mobile/" + midlet + ".jar?JarName=" + name;
    else
        ReadLink(link, command);
    if (command.file.empty())
        command.file = name.find('/') == std::string::npos ? name + ".jar" : midlet + ".jar";
    return command;
}

int RunInstall(Arguments arguments, int stop) {
    const auto command = ParseInstall(arguments);
    if (!command)
        return PrintHelp(kHelp);
    Connection connection = Connection::Open(command->server, stop);
    connection.Send(Ask(*command));
    const std::string archive = ArchiveOf(ReadAll(connection));
    Write(command->file, archive);
    std::cout << "saved " << command->file.string() << " (" << archive.size() << " bytes)" << std::endl;
    return platform::kExitDone;
}

} // namespace phone
