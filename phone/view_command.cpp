#include "phone/commands.h"

#include <cstdio>

namespace phone {
namespace {

constexpr std::string_view kHelp =
    R"(morrowstream-phone view: watches a source of a server, as a phone does.

  --server HOST:PORT  the server
  --login NAME        a user of the server
  --password WORD     the password (empty by default); "-" takes it from standard input
  --password-file F   takes it from the first line of the file F
  --source KEY        what to watch: a camera's name, clock, or file/FOLDER
  --params TEXT       size, rate and more, as in "width=176&height=144&fps=5&quality=60&rotate" (docs/viewing.md)
  --frames N          ends after N pictures; without it, runs until the stream ends or until stopped
  --out DIR           writes the pictures there, as 000001.jpg and so on
  --viewers N         N viewers at once, each with a connection of its own; --source may then be given several times, and
                      the viewers share the sources out among them
  --no-reconnect      ends when the connection is lost

A viewer that the server has taken once comes back when its connection is lost: at once, and after waits of up to a minute when
two connections in a row lasted less than ten seconds. A single viewer prints a line a second. Ends with status 0 when it has its pictures, or when it was stopped by SIGINT or
SIGTERM; with 1 when it was denied, or the connection or the stream failed; with 2 for arguments that make no sense.
)";

std::string Rates(const ViewFigures& figures) {
    char text[96];
    std::snprintf(text, sizeof text, "%.2f pictures/s, %.0f bytes/s", figures.PicturesPerSecond(),
                  figures.BytesPerSecond());
    return text;
}

ViewReport RunOne(const ViewCommand& command, int stop) {
    ViewOptions options = command.view;
    options.source = command.sources[0];
    options.again.lost = TellLoss;
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

std::vector<ViewReport> Run(const ViewCommand& command, int stop) {
    const std::size_t viewers = command.viewers != 0 ? command.viewers : command.sources.size();
    if (viewers == 1)
        return {RunOne(command, stop)};
    return RunSideBySide<ViewReport>(viewers, [&](std::size_t i) {
        ViewOptions options = command.view;
        options.source = command.sources[i % command.sources.size()];
        return View(options, stop, {});
    });
}

int Summarise(const std::vector<ViewReport>& reports) {
    const std::size_t bad = CountBad(reports, [&](std::size_t i) {
        return reports.size() == 1 ? "" : "viewer " + std::to_string(i + 1) + ": ";
    });
    std::uint64_t pictures = 0;
    std::vector<double> rates;
    double bytes = 0;
    for (const ViewReport& report : reports) {
        pictures += report.figures.pictures;
        rates.push_back(report.figures.PicturesPerSecond());
        bytes += report.figures.BytesPerSecond();
    }
    std::cout << "received " << pictures << " pictures, ";
    if (reports.size() == 1) {
        std::cout << Rates(reports[0].figures);
        return EndLine(bad, 1, "");
    }
    std::ranges::sort(rates);
    char line[160];
    std::snprintf(line, sizeof line,
                  "slowest %.2f, median %.2f, fastest %.2f pictures/s, %.0f bytes/s in all", rates.front(),
                  rates[rates.size() / 2], rates.back(), bytes);
    std::cout << line;
    return EndLine(bad, reports.size(), "viewers");
}

} // namespace

std::optional<ViewCommand> ParseView(Arguments arguments) {
    ViewCommand command;
    ViewOptions& view = command.view;
    view.again.enabled = true;
    const auto options = OptionsOf(
        view.server, view.login, view.password,
        {{"--source", [&](std::string_view, std::string_view value) { command.sources.emplace_back(value); }},
         {"--params", platform::Text(view.parameters)},
         {"--frames", platform::NumberFrom(std::uint64_t{1}, UINT64_MAX, view.frames)},
         {"--out", platform::Text(view.folder)},
         {"--viewers", platform::NumberFrom(1U, kMostPhones, command.viewers)},
         NoReconnect(view.again)});
    if (!platform::ReadOptions(arguments, options))
        return std::nullopt;
    if (view.server.host.empty() || view.login.empty() || command.sources.empty())
        throw platform::UsageError("--server, --login and --source are needed");
    // They go into the head of a request as they are.
    const auto plain = [](unsigned char c) { return c > 0x20 && c < 0x7F && c != '#'; };
    if (!std::ranges::all_of(view.parameters, plain))
        throw platform::UsageError(
            "--params takes a text like \"width=176&height=144&fps=5\", without blanks");
    if (!view.folder.empty() && (command.viewers != 0 || command.sources.size() > 1))
        throw platform::UsageError("--out takes the pictures of one viewer");
    return command;
}

int RunView(Arguments arguments, int stop) {
    const auto command = ParseView(arguments);
    if (!command)
        return PrintHelp(kHelp);
    return Summarise(Run(*command, stop));
}

} // namespace phone
