// Times what a configuration editor waits for: reading and setting a document with many cameras, and the
// start of a server object that finds them in its file. And what others wait for meanwhile: how long the
// server's lock is held at a time, which is how long a phone that signs in may wait.
//
//     settings_bench [CAMERAS]        1000 cameras by default
//
// The settings are written to the folder for temporary files. On a disk the file is synced with the lock
// held; TMPDIR=/dev/shm leaves that out.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "interfaces/ICam.h"
#include "interfaces/IVideoSource.h"
#include "platform/options.h"
#include "support/ComponentClasses.h"
#include "support/FakeWebHost.h"
#include "support/Settings.h"

namespace {

using platform::Bstr;
using platform::ComPtr;

constexpr int kRuns = 7;

void Require(bool holds, const char* what) {
    if (!holds)
        throw std::runtime_error(std::string(what) + " failed");
}

// The least of some runs, which is the one that others disturbed least, and the greatest.
void Measure(const char* what, const std::function<void()>& work) {
    double least = 1e9;
    double most = 0;
    for (int run = 0; run < kRuns; ++run) {
        const auto start = std::chrono::steady_clock::now();
        work();
        const double taken =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        least = std::min(least, taken);
        most = std::max(most, taken);
    }
    std::printf("%-44s %9.1f ms  (to %.1f)\n", what, least, most);
}

// Asks for the server's lock again and again, on a thread of its own.
class Waits {
public:
    explicit Waits(ComPtr<IVideoSource> source)
        : m_source(std::move(source)), m_thread([this](const std::stop_token& stop) { Run(stop); }) {}

    // The longest wait since the last call, in milliseconds.
    double TakeLongest() { return m_longest.exchange(0); }

private:
    void Run(const std::stop_token& stop) {
        const Bstr nobody(u"nobody");
        while (!stop.stop_requested()) {
            ComPtr<ICam> cam;
            const auto start = std::chrono::steady_clock::now();
            (void)m_source->ConnectToCam(nobody.Get(), cam.Receive());
            const double waited =
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
            if (waited > m_longest)
                m_longest = waited;
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }

    const ComPtr<IVideoSource> m_source;
    std::atomic<double> m_longest{0};
    std::jthread m_thread;
};

// The same of the longest wait in a run: what the scheduler took from either thread is in it.
void MeasureWaits(const char* what, const ComPtr<IVideoSource>& source, const std::function<void()>& work) {
    Waits waits(source);
    double least = 1e9;
    double most = 0;
    for (int run = 0; run < kRuns; ++run) {
        (void)waits.TakeLongest();
        work();
        const double longest = waits.TakeLongest();
        least = std::min(least, longest);
        most = std::max(most, longest);
    }
    std::printf("%-44s %9.1f ms  (to %.1f)\n", what, least, most);
}

Bstr Document(int cameras, const std::u16string& password) {
    std::u16string items;
    for (int n = 0; n < cameras; ++n)
        items +=
            support::CameraItem(u"camera " + platform::FromUtf8(std::to_string(n)), u"320x240", password);
    return Bstr(u"<config><cams KeyXPath='Name/text()'>" + items + u"</cams></config>");
}

Bstr Call(const ComPtr<IConfiguration>& configuration, bool set, const Bstr& document) {
    BSTR body = Bstr(document).Detach();
    BSTR head = Bstr(u"set\ncontent-type: text/xml\n").Detach();
    const Bstr path(u"config");
    Require(SUCCEEDED(set ? configuration->SetContent(path.Get(), &body, &head)
                          : configuration->GetContent(path.Get(), &body, &head)),
            "a call for the settings");
    SysFreeString(head);
    return Bstr::Adopt(body);
}

ComPtr<IConfiguration> CreateServer() {
    ComPtr<IConfiguration> configuration;
    Require(SUCCEEDED(platform::CoCreateInstance(kUploadServerClass, nullptr, platform::kContextAll,
                                                 IConfiguration::iid, configuration.ReceiveVoid())),
            "creating the server");
    return configuration;
}

void MeasureAll(int cameras) {
    support::ForgetSettings();
    support::WebHostClass host;
    Require(SUCCEEDED(support::RegisterComponentClasses()), "registering the component");
    ComPtr<IConfiguration> configuration = CreateServer();
    const Bstr documents[] = {Document(cameras, u"one"), Document(cameras, u"two")};
    const Bstr none(u"<config><cams KeyXPath='Name/text()'/></config>");

    std::printf("%d cameras\n", cameras);
    Bstr whole;
    Measure("set: all new", [&] {
        (void)Call(configuration, true, none);
        whole = Call(configuration, true, documents[0]);
    });
    unsigned turn = 0;
    Measure("set: all with another password",
            [&] { (void)Call(configuration, true, documents[++turn % 2]); });
    whole = Call(configuration, false, nullptr);
    Measure("set: nothing changed, the whole document", [&] { (void)Call(configuration, true, whole); });
    Measure("set: one more camera, then one less", [&] {
        std::u16string more(whole.View());
        more.insert(more.find(u"</cams>"), support::CameraItem(u"new", u"320x240", u""));
        (void)Call(configuration, true, Bstr(more));
        (void)Call(configuration, true, whole);
    });
    {
        std::u16string more(whole.View());
        more.insert(more.find(u"</cams>"), support::CameraItem(u"new", u"320x240", u""));
        const Bstr oneMore(more);
        const auto source = configuration.Query<IVideoSource>();
        MeasureWaits("  longest hold of the lock meanwhile", source, [&] {
            (void)Call(configuration, true, oneMore);
            (void)Call(configuration, true, whole);
        });
    }
    Measure("get", [&] { (void)Call(configuration, false, nullptr); });
    Measure("start from the file", [&] {
        configuration = nullptr;
        host.script.handler = nullptr;
        configuration = CreateServer();
    });
    std::error_code error;
    std::printf("file: %ju bytes\n",
                static_cast<std::uintmax_t>(std::filesystem::file_size(support::SettingsFile(), error)));

    // The parts of it.
    Measure("parse the document", [&] { XmlConfig::CXmlConfig(nullptr, whole); });
    XmlConfig::CXmlConfig parsed(nullptr, whole);
    Measure("document to text", [&] { (void)parsed.GetXml(); });
    Measure("write and sync the file",
            [&] { (void)parsed.Save(Bstr(platform::FromUtf8(support::SettingsFolder() + "/copy.xml"))); });
    host.script.handler = nullptr;
}

int Run(std::span<const std::string_view> arguments) {
    int cameras = 1000;
    const auto take = [&](std::string_view text) {
        cameras = platform::ParseNumber("CAMERAS", text, 1, 1'000'000);
    };
    if (platform::ReadOptions(arguments, {}, take))
        MeasureAll(cameras);
    else
        std::puts("settings_bench [CAMERAS]");
    return platform::kExitDone;
}

} // namespace

int main(int count, char** values) {
    return platform::RunProgram("settings_bench", count, values, Run);
}
