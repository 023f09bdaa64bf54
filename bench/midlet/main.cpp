// Times the build of a personal midlet archive against what cannot be had for less: the start of a process
// that puts one file into an archive. Each round measures all three, one after the other, on the same bytes.
//
//     midlet_bench [--rounds N] [--json FILE]        200 rounds by default

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "Common/Utils/LocalizeEx.h"
#include "midlet/MakeJar.h"
#include "midlet/Manifest.h"
#include "platform/files.h"
#include "platform/options.h"
#include "platform/resources.h"

namespace {

constexpr std::uint16_t kArchiveTool = 209;

struct Options {
    int rounds = 200;
    std::string json;
};

constexpr const char* kUsage = "midlet_bench [--rounds N] [--json FILE]";

void Require(bool holds, const char* what) {
    if (!holds)
        throw std::runtime_error(std::string(what) + " failed");
}

std::string Resource(const char16_t* type, std::uint16_t number) {
    const auto found = platform::FindResource(ThisModule(), type, number);
    Require(found.has_value(), "finding a resource");
    return std::string(found->Text());
}

// A process of its own, waited for without a step between two looks.
void RunBare(const std::string& folder, std::vector<std::string> arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    pid_t id = 0;
    const int error = ::posix_spawnp(&id, pointers[0], &actions, nullptr, pointers.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    Require(error == 0 && ::waitpid(id, &status, 0) == id && status == 0, "a process");
}

// Milliseconds.
template <class Work>
double Time(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> times) {
    std::ranges::sort(times);
    return times[times.size() / 2];
}

enum EWork { kBuild, kTool, kZip, kWorks };

class Round {
public:
    Round() : m_folder(platform::TemporaryFolder() + "bench/"), m_template(Resource(u"JAR", kUploadMidlet)) {
        Require(SUCCEEDED(platform::CreateFolder(m_folder)) &&
                    SUCCEEDED(platform::CreateFolder(m_folder + "META-INF")) &&
                    SUCCEEDED(platform::WriteWholeFile(
                        m_folder + "META-INF/manifest.mf",
                        BuildManifest({"Sendora", "yard", "demo", "h:80", "320x240"}), 0600)) &&
                    SUCCEEDED(
                        platform::WriteWholeFile(m_folder + "zip.exe", Resource(u"EXE", kArchiveTool), 0700)),
                "writing what the tool works on");
    }

    [[nodiscard]] std::array<double, kWorks> Run() const {
        const QueryMap params{{u"JarName", u"Sendora"}, {u"login", u"yard"}, {u"password", u"demo"}};
        std::array<double, kWorks> times{};
        times[kBuild] = Time([&] {
            Require(MakeJar(kUploadMidlet, params, u"h:80", "320x240").value_or("").starts_with("PK"),
                    "a build");
        });
        times[kTool] = RunOn("one.jar", {m_folder + "zip.exe"});
        times[kZip] = RunOn("two.jar", {"zip", "-q", "-X"});
        return times;
    }

private:
    // A process that puts the manifest into a fresh template.
    [[nodiscard]] double RunOn(const std::string& archive, std::vector<std::string> arguments) const {
        Require(SUCCEEDED(platform::WriteWholeFile(m_folder + archive, m_template, 0600)),
                "writing a template");
        arguments.insert(arguments.end(), {archive, "META-INF/manifest.mf"});
        return Time([&] { RunBare(m_folder, arguments); });
    }

    const std::string m_folder;
    const std::string m_template;
};

void Measure(const Options& options) {
    const Round round;
    (void)round.Run(); // what is read for the first time
    std::array<std::vector<double>, kWorks> times;
    for (int n = 0; n < options.rounds; ++n) {
        const auto taken = round.Run();
        for (std::size_t work = 0; work < kWorks; ++work)
            times[work].push_back(taken[work]);
    }
    const double build = Median(times[kBuild]);
    const double tool = Median(times[kTool]);
    const double zip = Median(times[kZip]);
    std::printf("archive: build %.2f ms, its tool alone %.2f ms, one bare zip %.2f ms  (medians of %d)\n",
                build, tool, zip, options.rounds);
    if (options.json.empty())
        return;
    const nlohmann::ordered_json figures{
        {"rounds", options.rounds}, {"build_ms", build}, {"tool_ms", tool}, {"zip_ms", zip}};
    Require(SUCCEEDED(platform::WriteWholeFile(options.json, figures.dump() + "\n")),
            "writing the file of figures");
}

int Run(std::span<const std::string_view> arguments) {
    Options options;
    const platform::Option table[] = {
        {"--rounds", platform::NumberFrom(1, 1'000'000, options.rounds)},
        {"--json", platform::Text(options.json)},
    };
    if (platform::ReadOptions(arguments, table))
        Measure(options);
    else
        std::puts(kUsage);
    return platform::kExitDone;
}

} // namespace

int main(int count, char** values) {
    return platform::RunProgram("midlet_bench", count, values, Run);
}
