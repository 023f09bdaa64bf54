#include "phone/viewcommand.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "phone/options.h"

namespace phone {
namespace {

constexpr std::string_view kHelp =
    R"(morrowstream-phone view: watches a source of a server, as a phone does.

  --server HOST:PORT  the server
  --login NAME        a user of the server
  --password WORD     the password (empty by default)
  --source KEY        what to watch: a camera's name, clock, or file/FOLDER
  --params TEXT       size, rate and more, as in "width=176&height=144&fps=5&quality=60&rotate" (docs/viewing.md)
  --frames N          ends after N pictures; without it, runs until the stream ends or until stopped
  --out DIR           writes the pictures there, as 000001.jpg and so on
  --viewers N         N viewers at once, each with a connection of its own; --source may then be given several times, and
                      the viewers share the sources out among them

A single viewer prints a line a second. Ends with status 0 when it has its pictures, or when it was stopped by SIGINT or
SIGTERM; with 1 when it was denied, or the connection or the stream failed; with 2 for arguments that make no sense.
)";

// How many of the viewers' reasons are printed; a server that is away fails all of them alike.
constexpr std::size_t kMostReasons = 5;

std::string Rates(const ViewFigures& figures) {
    char text[96];
    std::snprintf(text, sizeof text, "%.2f pictures/s, %.0f bytes/s", figures.PicturesPerSecond(),
                  figures.BytesPerSecond());
    return text;
}

ViewReport RunOne(const ViewCommand& command, int stop) {
    ViewOptions options = command.view;
    options.source = command.sources[0];
    if (!options.folder.empty()) {
        std::error_code error;
        std::filesystem::create_directories(options.folder, error);
        if (error) {
            ViewReport report;
            report.reason = "cannot make " + options.folder.string() + ": " + error.message();
            return report;
        }
    }
    // The rate of the last second, not that since the beginning.
    ViewFigures before;
    return View(options, stop, [&](const ViewFigures& now) {
        if (now.pictures == 1) {
            before = now;
        }
        if (now.last - before.last < std::chrono::seconds(1)) {
            return;
        }
        const double seconds = std::chrono::duration<double>(now.last - before.last).count();
        char line[128];
        std::snprintf(line, sizeof line, "watching: %.1f pictures/s, %.0f bytes/s, %llu pictures",
                      static_cast<double>(now.pictures - before.pictures) / seconds,
                      static_cast<double>(now.bytes - before.bytes) / seconds,
                      static_cast<unsigned long long>(now.pictures));
        std::cout << line << std::endl;
        before = now;
    });
}

std::vector<ViewReport> RunMany(const ViewCommand& command, std::size_t viewers, int stop) {
    std::vector<ViewReport> reports(viewers);
    std::vector<std::jthread> threads;
    threads.reserve(viewers);
    for (std::size_t i = 0; i < viewers; ++i) {
        ViewOptions options = command.view;
        options.source = command.sources[i % command.sources.size()];
        try {
            threads.emplace_back([&report = reports[i], options = std::move(options), stop] {
                report = View(options, stop, {});
            });
        } catch (const std::system_error& error) {
            reports[i].reason = std::string("no thread for this viewer: ") + error.what();
        }
    }
    threads.clear(); // joins
    return reports;
}

bool IsGood(const ViewReport& report) {
    return report.end == ViewEnd::Done || report.end == ViewEnd::Stopped;
}

int Summarise(const std::vector<ViewReport>& reports) {
    std::size_t bad = 0;
    std::uint64_t pictures = 0;
    std::vector<double> rates;
    double bytes = 0;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        const ViewReport& report = reports[i];
        pictures += report.figures.pictures;
        rates.push_back(report.figures.PicturesPerSecond());
        bytes += report.figures.BytesPerSecond();
        if (!IsGood(report) && ++bad <= kMostReasons) {
            const std::string who = reports.size() == 1 ? "" : "viewer " + std::to_string(i + 1) + ": ";
            std::cerr << "morrowstream-phone: " << who << report.reason << std::endl;
        }
    }
    std::cout << "received " << pictures << " pictures";
    if (reports.size() == 1) {
        std::cout << ", " << Rates(reports[0].figures) << std::endl;
        return bad == 0 ? kExitDone : kExitFailed;
    }
    std::ranges::sort(rates);
    char line[160];
    std::snprintf(line, sizeof line,
                  ", slowest %.2f, median %.2f, fastest %.2f pictures/s, %.0f bytes/s in all", rates.front(),
                  rates[rates.size() / 2], rates.back(), bytes);
    std::cout << line << ", " << reports.size() - bad << " of " << reports.size() << " viewers to the end"
              << std::endl;
    return bad == 0 ? kExitDone : kExitFailed;
}

} // namespace

int RunView(std::span<const std::string_view> arguments, int stop) {
    const ViewCommand command = ParseView(arguments);
    if (command.help) {
        std::cout << kHelp;
        return kExitDone;
    }
    const std::size_t viewers = command.viewers != 0 ? command.viewers : command.sources.size();
    return Summarise(viewers == 1 ? std::vector{RunOne(command, stop)} : RunMany(command, viewers, stop));
}

} // namespace phone
