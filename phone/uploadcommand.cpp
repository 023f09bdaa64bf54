#include "phone/uploadcommand.h"

#include <iostream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "phone/options.h"

namespace phone {
namespace {

constexpr std::string_view kHelp =
    R"(morrowstream-phone upload: sends the pictures of a folder to a camera, as a phone does.

  --server HOST:PORT  the server
  --login NAME        the phone's login, which is the camera's name as well
  --password WORD     the password (empty by default)
  --pictures DIR      the *.jpg files to send, in the order of their names, over and over
  --fps N             pictures a second, as far as the server asks for so many (10)
  --frames N          ends after N pictures; without it, runs until stopped
  --split N           length of the first part of a picture, which is sent once for all (607)
  --phones N          N phones at once, each with a connection of its own; their logins are NAME0001, NAME0002, ...

Ends with status 0 when all pictures were sent and read by the server, or when it was stopped by SIGINT or SIGTERM;
with 1 when it was denied or the connection failed; with 2 for arguments that make no sense.
)";

// How many of the phones' reasons are printed; a server that is away fails all of them alike.
constexpr std::size_t kMostReasons = 5;

std::vector<UploadReport> RunMany(const UploadCommand& command, const PictureSequence& pictures, int stop) {
    std::vector<UploadReport> reports(command.phones);
    std::vector<std::jthread> threads;
    threads.reserve(command.phones);
    const std::chrono::duration<double> interval(1 / command.upload.framesPerSecond);
    for (unsigned i = 0; i < command.phones; ++i) {
        UploadOptions options = command.upload;
        options.login = NumberedLogin(command.upload.login, i + 1);
        // Spread over one interval, as phones that know nothing of each other are.
        options.startDelay = std::chrono::duration_cast<Clock::duration>(interval * i / command.phones);
        try {
            threads.emplace_back([&report = reports[i], options = std::move(options), &pictures, stop] {
                report = Upload(options, pictures, stop);
            });
        } catch (const std::system_error& error) {
            reports[i].reason = std::string("no thread for this phone: ") + error.what();
        }
    }
    threads.clear(); // joins
    return reports;
}

int Summarise(const std::vector<UploadReport>& reports, const UploadCommand& command) {
    std::uint64_t frames = 0;
    std::uint64_t grants = 0;
    std::size_t bad = 0;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        const UploadReport& report = reports[i];
        frames += report.frames;
        grants += report.grants;
        if (report.end == UploadEnd::AllSent || report.end == UploadEnd::Stopped) {
            continue;
        }
        if (++bad <= kMostReasons) {
            const std::string who =
                command.phones == 0
                    ? ""
                    : NumberedLogin(command.upload.login, static_cast<unsigned>(i) + 1) + ": ";
            std::cerr << "morrowstream-phone: " << who << report.reason << '\n';
        }
    }
    std::cout << "sent " << frames << " frames, " << grants << " grants";
    if (command.phones != 0) {
        std::cout << ", " << reports.size() - bad << " of " << reports.size() << " phones to the end";
    }
    std::cout << std::endl;
    return bad == 0 ? kExitDone : kExitFailed;
}

} // namespace

int RunUpload(std::span<const std::string_view> arguments, int stop) {
    const UploadCommand command = ParseUpload(arguments);
    if (command.help) {
        std::cout << kHelp;
        return kExitDone;
    }
    const PictureSequence pictures = PictureSequence::Load(command.pictures, command.split);
    if (!pictures.Note().empty()) {
        std::cerr << "morrowstream-phone: note: " << pictures.Note() << std::endl;
    }
    return Summarise(command.phones == 0 ? std::vector{Upload(command.upload, pictures, stop)}
                                         : RunMany(command, pictures, stop),
                     command);
}

} // namespace phone
