#include "phone/commands.h"

namespace phone {
namespace {

constexpr std::string_view kHelp =
    R"(morrowstream-phone upload: sends the pictures of a folder to a camera, as a phone does.

  --server HOST:PORT  the server
  --login NAME        the phone's login, which is the camera's name as well
  --password WORD     the password (empty by default); "-" takes it from standard input
  --password-file F   takes it from the first line of the file F
  --pictures DIR      the *.jpg files to send, in the order of their names, over and over
  --fps N             pictures a second, as far as the server asks for so many (10)
  --frames N          ends after N pictures; without it, runs until stopped
  --split N           length of the first part of a picture, which is sent once for all (607)
  --phones N          N phones at once, each with a connection of its own; their logins are NAME0001, NAME0002, ...
  --no-reconnect      ends when the connection is lost

A phone that the server has taken once comes back when its connection is lost: at once, and after waits of up to a minute when
two connections in a row lasted less than ten seconds. Ends with status 0 when all pictures were sent and read by the
server, or when it was stopped by SIGINT or SIGTERM; with 1 when it was denied or the connection failed; with 2 for
arguments that make no sense.
)";

std::vector<UploadReport> Run(const UploadCommand& command, const PictureSequence& pictures, int stop) {
    if (command.phones == 0) {
        UploadOptions options = command.upload;
        options.again.lost = TellLoss;
        return {Upload(options, pictures, stop)};
    }
    const std::chrono::duration<double> interval(1 / command.upload.framesPerSecond);
    return RunSideBySide<UploadReport>(command.phones, [&](std::size_t i) {
        UploadOptions options = command.upload;
        options.login = NumberedLogin(command.upload.login, static_cast<unsigned>(i) + 1);
        // Spread over one interval, as phones that know nothing of each other are.
        options.startDelay =
            std::chrono::duration_cast<Clock::duration>(interval * static_cast<double>(i) / command.phones);
        return Upload(options, pictures, stop);
    });
}

int Summarise(const std::vector<UploadReport>& reports, const UploadCommand& command) {
    const std::size_t bad = CountBad(reports, [&](std::size_t i) {
        return command.phones == 0 ? ""
                                   : NumberedLogin(command.upload.login, static_cast<unsigned>(i) + 1) + ": ";
    });
    std::uint64_t frames = 0;
    std::uint64_t grants = 0;
    std::uint64_t losses = 0;
    for (const UploadReport& report : reports) {
        frames += report.frames;
        losses += report.losses;
        grants += report.grants;
    }
    std::cout << "sent " << frames << " frames, " << grants << " grants";
    if (losses != 0)
        std::cout << ", " << losses << " connections lost";
    return EndLine(bad, reports.size(), command.phones != 0 ? "phones" : "");
}

} // namespace

std::optional<UploadCommand> ParseUpload(Arguments arguments) {
    UploadCommand command;
    UploadOptions& upload = command.upload;
    upload.again.enabled = true;
    const auto options =
        OptionsOf(upload.server, upload.login, upload.password,
                  {{"--pictures", platform::Text(command.pictures)},
                   {"--fps", platform::NumberFrom(0.01, 1000.0, upload.framesPerSecond)},
                   {"--frames", platform::NumberFrom(std::uint64_t{1}, UINT64_MAX, upload.frames)},
                   {"--split", platform::NumberFrom(std::size_t{0}, kLargestPart, command.split)},
                   {"--phones", platform::NumberFrom(1U, kMostPhones, command.phones)},
                   NoReconnect(upload.again)});
    if (!platform::ReadOptions(arguments, options))
        return std::nullopt;
    if (upload.server.host.empty() || upload.login.empty() || command.pictures.empty())
        throw platform::UsageError("--server, --login and --pictures are needed");
    if (upload.password.size() > kLongestPassword)
        throw platform::UsageError("a password has at most " + std::to_string(kLongestPassword) + " bytes");
    return command;
}

int RunUpload(Arguments arguments, int stop) {
    const auto command = ParseUpload(arguments);
    if (!command)
        return PrintHelp(kHelp);
    const PictureSequence pictures = PictureSequence::Load(command->pictures, command->split);
    if (!pictures.Note().empty())
        std::cerr << "morrowstream-phone: note: " << pictures.Note() << std::endl;
    return Summarise(Run(*command, pictures, stop), *command);
}

} // namespace phone
