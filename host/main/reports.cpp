#include "host/main/reports.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <unistd.h>

#include "host/log/console.h"
#include "host/site/links/qr_code.h"

namespace host {
namespace {

// More cameras than that are told in one line.
constexpr std::size_t kMostStatusLines = 8;

bool SaysOnTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

// Other machines come by https alone, unless everything is served in clear.
std::string UrlOf(const std::string& authority, bool tls) {
    const auto endpoint = Endpoint::Parse(authority);
    return (tls && !(endpoint && endpoint->IsLoopback()) ? "https://" : "http://") + authority;
}

void SayPlaces(const WelcomeParts& parts, const std::vector<std::string>& places) {
    Console& console = Console::Get();
    const bool tls = parts.certificates != nullptr;
    console.Say("Open " + UrlOf(places.front(), tls) + "/");
    for (std::size_t i = 1; i < places.size(); ++i)
        console.Say("  or " + UrlOf(places[i], tls) + "/ from other computers and phones");
    if (!tls || parts.listening.IsLoopback())
        return;
    if (parts.options.certificate.key.empty())
        console.Say("  Browsers warn until they trust this server's authority, which " +
                    UrlOf(places.back(), tls) + "/trust tells about. Its fingerprint:");
    else
        console.Say("  The fingerprint of the certificate:");
    console.Say("  " + parts.certificates->GetAuthority().fingerprint);
}

void SayUsers(const WelcomeParts& parts) {
    Console& console = Console::Get();
    for (const std::string& login : parts.oddLogins)
        console.Say("The user \"" + Printable(login) +
                    "\" is kept, but no phone can sign in with this name: " + CheckLogin(login));
    const std::string file = parts.data.File("admin-password");
    if (parts.options.IsOpenDemo()) {
        const auto password = parts.data.FirstAdminPassword();
        // What goes to a terminal is read by who has started the demo, and what goes elsewhere is kept.
        console.Say(!password          ? "Sign in as an administrator whom you have given a password"
                    : SaysOnTerminal() ? "Sign in as \"admin\" with the password " + *password
                                       : "Sign in as \"admin\"; the password stands in " + file);
    } else if (parts.adminMade) {
        console.Say("The administrator is \"admin\"; its password stands in " + file);
    }
}

// In the demo the camera that no simulated phone takes.
std::string FreeCamera(const WelcomeParts& parts) {
    for (const FeedPtr& feed : parts.feeds.List()) {
        const bool taken = parts.options.demo && feed->Name() != kDemoFreeCamera;
        if (!taken && parts.authenticator.CameraPassword(feed->Name()))
            return feed->Name();
    }
    return {};
}

void SayLink(const WelcomeParts& parts) {
    // Whoever knows the address can be the camera, and a quiet host's lines go into the system's log.
    if (parts.options.verbosity == Verbosity::Quiet)
        return;
    const std::string camera = FreeCamera(parts);
    const auto address =
        camera.empty() ? std::nullopt
                       : parts.links.MakeAddress(camera, parts.authority.empty() ? parts.listening.Text()
                                                                                 : parts.authority);
    if (!address)
        return;
    Console& console = Console::Get();
    console.Say("A phone becomes the camera " + Printable(camera) + " with " + *address);
    console.Say("  (good once, for " + std::to_string(LinkTable::kLifetime.count()) +
                " minutes; more of them on the live page, behind a button of each camera)");
    if (parts.authority.empty())
        console.Say("  Only this computer can open it. For phones, listen for others: --listen 0.0.0.0:8080");
    const auto code = SaysOnTerminal() ? QrCode::Of(*address) : std::nullopt;
    for (const std::string& line : code ? code->TerminalLines() : std::vector<std::string>())
        console.Say(line);
}

std::string StatusLine(const CameraFigures& camera) {
    std::array<char, 128> figures{};
    std::snprintf(figures.data(), figures.size(), "  %-12s  %5.1f fps  %dx%d  %llu frames",
                  camera.connected ? "connected" : "disconnected", camera.fps, camera.width, camera.height,
                  static_cast<unsigned long long>(camera.frames));
    std::string line = Printable(camera.name);
    line.resize(std::max<std::size_t>(line.size(), 8), ' ');
    line += figures.data();
    if (camera.failed > 0)
        line += "  " + std::to_string(camera.failed) + " failed";
    return line;
}

} // namespace

void SayWelcome(const WelcomeParts& parts) {
    const std::vector<std::string> places = AuthoritiesToOpen(parts.listening);
    SayPlaces(parts, places);
    Console::Get().Say("Data folder: " + parts.data.Path());
    SayUsers(parts);
    if (parts.feeds.List().empty())
        Console::Get().Say("There is no camera yet: add one at " +
                           UrlOf(places.front(), parts.certificates != nullptr) + "/settings");
    SayLink(parts);
}

void SayStatus(const std::vector<CameraFigures>& cameras) {
    if (cameras.size() <= kMostStatusLines) {
        for (const CameraFigures& camera : cameras)
            Console::Get().Say(StatusLine(camera));
        return;
    }
    const auto connected = std::ranges::count_if(cameras, &CameraFigures::connected);
    const auto sum = [&](auto figure) {
        auto total = cameras.front().*figure;
        for (std::size_t i = 1; i < cameras.size(); ++i)
            total += cameras[i].*figure;
        return total;
    };
    std::array<char, 128> line{};
    std::snprintf(line.data(), line.size(), "%zu cameras  %td connected  %.1f fps  %llu frames  %llu failed",
                  cameras.size(), connected, sum(&CameraFigures::fps),
                  static_cast<unsigned long long>(sum(&CameraFigures::frames)),
                  static_cast<unsigned long long>(sum(&CameraFigures::failed)));
    Console::Get().Say(line.data());
}

bool SaySummary(const std::vector<CameraFigures>& cameras, const DemoResults& results) {
    bool good = true;
    for (const CameraFigures& camera : cameras) {
        std::string line = Printable(camera.name) + ": " + std::to_string(camera.frames) +
                           " frames received, " + std::to_string(camera.failed) + " failed";
        const auto result = std::ranges::find(results.uploads, camera.name, &DemoPhoneResult::login);
        if (result != results.uploads.end()) {
            const bool all =
                result->complete && result->sent > 0 && camera.frames >= result->sent && camera.failed == 0;
            line += ", " + std::to_string(result->sent) + " sent by its demo phone: ";
            line += all ? "all arrived" : "PICTURES ARE MISSING";
            good = good && all;
        }
        Console::Get().Say(line);
    }
    if (!results.viewer.empty()) {
        const bool seen = results.viewed > 0;
        Console::Get().Say(results.viewer + ": " + std::to_string(results.viewed) +
                           " pictures watched by a demo phone" + (seen ? "" : ": IT SAW NOTHING"));
        good = good && seen;
    }
    return good;
}

} // namespace host
