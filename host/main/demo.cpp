#include "host/main/demo.h"

#include <array>
#include <charconv>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/start_error.h"
#include "host/log/console.h"
#include "host/users/password.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace host {
namespace {

constexpr std::chrono::milliseconds kWatchInterval{100};
constexpr std::chrono::seconds kRestartAfter{1};
constexpr std::chrono::milliseconds kEndWithin{5000};

constexpr std::string_view kKnownPassword = "demo";
constexpr std::array<std::pair<std::string_view, std::string_view>, 3> kCameras{
    {{"yard", "320x240"}, {"gate", "160x120"}, {kDemoFreeCamera, "320x240"}}};

// Which of the cameras the viewing phone watches.
constexpr std::string_view kWatched = "yard";

std::string PasswordFile(const DemoPasswords& folder, std::string_view camera) {
    return folder + "/" + std::string(camera);
}

// Its first line; empty without one that a phone can have.
std::string ReadPassword(const DemoPasswords& folder, std::string_view camera) {
    const std::string content = platform::ReadWholeFile(PasswordFile(folder, camera)).value_or("");
    const std::string password = content.substr(0, content.find('\n'));
    return CheckPassword(password, UserKind::Phone).empty() ? password : std::string();
}

// The number in "sent 120 frames, ..."; nothing when the line does not begin with `before`.
std::optional<std::uint64_t> ReadCount(std::string_view line, std::string_view before) {
    std::uint64_t count = 0;
    if (!line.starts_with(before) ||
        std::from_chars(line.data() + before.size(), line.data() + line.size(), count).ec != std::errc{})
        return std::nullopt;
    return count;
}

} // namespace

std::vector<CameraEntry> DemoCameras(const DemoPasswords& folder) {
    std::vector<CameraEntry> cameras;
    for (const auto& [name, type] : kCameras) {
        std::string password(kKnownPassword);
        if (!folder.empty())
            password = ReadPassword(folder, name);
        if (password.empty()) {
            password = RandomPassword();
            const std::string file = PasswordFile(folder, name);
            if (FAILED(platform::CreateFolder(folder)) ||
                FAILED(platform::ReplaceFile(file, password + "\n", 0600)))
                throw StartError("cannot write " + file + ": " + platform::DescribeLastError());
        }
        cameras.push_back({std::string(name), std::string(type), std::move(password)});
    }
    return cameras;
}

std::vector<CameraEntry> FormerDemoCameras(const DemoPasswords& folder) {
    std::vector<CameraEntry> cameras = DemoCameras({});
    for (const auto& [name, type] : kCameras) {
        if (std::string password = ReadPassword(folder, name); !password.empty())
            cameras.push_back({std::string(name), std::string(type), std::move(password)});
    }
    return cameras;
}

void ForgetDemoPasswords(const DemoPasswords& folder) {
    for (const auto& [name, type] : kCameras)
        (void)platform::RemoveFile(PasswordFile(folder, name));
    (void)platform::RemoveFolder(folder);
}

void AddDemoUsers(UserStore& users, const std::vector<CameraEntry>& cameras) {
    for (const CameraEntry& camera : cameras) {
        const auto found = users.Users().find(camera.name);
        if (found != users.Users().end() && !found->second.demo)
            throw StartError("the demo needs the login \"" + camera.name +
                             "\", which is one of your users: use another data folder for it");
        if (found == users.Users().end() || !VerifyPassword(camera.password, found->second.hash))
            users.Set(camera.name, {UserKind::Phone, true, HashPassword(camera.password)});
    }
    users.Save();
}

bool RemoveDemoUsers(UserStore& users) {
    std::vector<std::string> demo;
    for (const auto& [login, user] : users.Users()) {
        if (user.demo)
            demo.push_back(login);
    }
    for (const std::string& login : demo)
        users.Remove(login);
    if (!demo.empty())
        users.Save();
    return !demo.empty();
}

DemoPhones::DemoPhones(std::string program, const std::string& pictures, const DemoPasswords& passwords,
                       std::string server)
    : m_program(std::move(program)), m_server(std::move(server)) {
    if (::access(m_program.c_str(), X_OK) != 0)
        throw StartError("the demo needs " + m_program + ", which is not there");
    // What is no secret may stand in the system's list of processes.
    const auto add = [&](std::vector<std::string> arguments, std::string_view login, std::string sender) {
        const bool known = passwords.empty();
        arguments.insert(arguments.end(),
                         {"--login", std::string(login), known ? "--password" : "--password-file",
                          known ? std::string(kKnownPassword) : PasswordFile(passwords, login)});
        m_phones.push_back(Phone{.arguments = std::move(arguments), .result = {std::move(sender)}});
    };
    for (const auto& [login, fps] : {std::pair{"yard", "10"}, std::pair{"gate", "5"}}) {
        const std::string folder = pictures + "/" + login;
        std::error_code error;
        if (!std::filesystem::is_directory(folder, error))
            throw StartError("the demo needs the pictures in " + folder + " (--pictures DIR)");
        add({"upload", "--pictures", folder, "--fps", fps}, login, login);
    }
    add({"view", "--source", std::string(kWatched), "--params", "width=176&height=144&fps=5"}, kWatched, {});
    m_supervisor = std::thread([this] { Supervise(); });
}

DemoResults DemoPhones::Stop() {
    m_stop.Signal();
    if (m_supervisor.joinable())
        m_supervisor.join();
    DemoResults results{{}, std::string(kWatched), m_viewed};
    for (const Phone& phone : m_phones) {
        if (!phone.result.login.empty())
            results.uploads.push_back(phone.result);
    }
    return results;
}

std::string DemoPhones::Watching() const {
    const std::lock_guard guard(m_mutex);
    return m_watching.empty() ? "" : std::string(kWatched) + "      on a viewing phone: " + m_watching;
}

void DemoPhones::Supervise() {
    do {
        for (Phone& phone : m_phones) {
            ReadOutput(phone);
            if (phone.process && Collect(phone)) {
                Console::Get().Log("demo",
                                   "a phone has ended (" + phone.arguments[0] + "); starting it again");
                phone.startAt = Clock::now() + kRestartAfter;
            }
            if (!phone.process && Clock::now() >= phone.startAt)
                Start(phone);
        }
    } while (WaitFor({.stop = &m_stop}, Clock::now() + kWatchInterval) != Waited::Stopped);
    EndAll();
}

void DemoPhones::Start(Phone& phone) {
    phone.startAt = Clock::now() + kRestartAfter; // in case that it cannot be started
    std::vector<std::string> arguments{m_program};
    arguments.insert(arguments.end(), phone.arguments.begin(), phone.arguments.end());
    arguments.insert(arguments.end(), {"--server", m_server, "--no-reconnect"});
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return;
    Descriptor reading(ends[0]);
    const Descriptor writing(ends[1]);
    ::fcntl(reading.Get(), F_SETFL, O_NONBLOCK);
    phone.process = platform::Process::Start(
        arguments,
        platform::ProcessSetup{.output = writing.Get(), .keepsErrors = true, .endsWithStarter = true});
    if (!phone.process)
        return;
    phone.output = std::move(reading);
    phone.unread.clear();
    phone.told = false;
}

void DemoPhones::ReadOutput(Phone& phone) {
    std::array<char, 4096> bytes{};
    ssize_t got = 0;
    while (phone.output && (got = ::read(phone.output.Get(), bytes.data(), bytes.size())) > 0)
        phone.unread.append(bytes.data(), static_cast<std::size_t>(got));
    for (std::size_t end = 0; (end = phone.unread.find('\n')) != std::string::npos;) {
        Hear(phone, std::string_view(phone.unread).substr(0, end));
        phone.unread.erase(0, end + 1);
    }
}

void DemoPhones::Hear(Phone& phone, std::string_view line) {
    constexpr std::string_view kWatching = "watching: ";
    if (const auto sent = ReadCount(line, "sent ")) {
        phone.result.sent += *sent;
        phone.told = true;
    } else if (const auto received = ReadCount(line, "received ")) {
        m_viewed += *received;
        phone.told = true;
    } else if (line.starts_with(kWatching)) {
        const std::lock_guard guard(m_mutex);
        m_watching = line.substr(kWatching.size());
    }
}

bool DemoPhones::Collect(Phone& phone) {
    if (!phone.process->Wait(0))
        return false;
    Finish(phone);
    return true;
}

void DemoPhones::Finish(Phone& phone) {
    phone.process.reset();
    // The child is gone: what it said last lies in the pipe.
    ReadOutput(phone);
    phone.output.Close();
    phone.result.complete = phone.result.complete && phone.told;
}

void DemoPhones::EndAll() {
    for (const Phone& phone : m_phones) {
        if (phone.process)
            phone.process->AskToEnd();
    }
    const auto deadline = Clock::now() + kEndWithin;
    for (Phone& phone : m_phones) {
        while (phone.process && !Collect(phone)) {
            if (Clock::now() > deadline)
                Finish(phone);
            else
                (void)WaitFor({}, Clock::now() + std::chrono::milliseconds(5));
        }
    }
}

} // namespace host
