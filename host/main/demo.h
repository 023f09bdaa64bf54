// The demo: three cameras, their users, a simulated phone for two of them, and one that watches the first.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/base/wait.h"
#include "host/users/cameras.h"
#include "host/users/user_store.h"
#include "platform/process.h"

namespace host {

// The camera that no simulated phone takes.
inline constexpr std::string_view kDemoFreeCamera = "spare";

// Where the cameras of a demo that other machines reach have their passwords: a file for each, of its name,
// mode 0600. Empty: a demo of this machine alone, whose passwords everybody knows.
using DemoPasswords = std::string;

// Makes the passwords that are missing, at random. Throws StartError where they cannot be kept.
std::vector<CameraEntry> DemoCameras(const DemoPasswords& folder);
// The cameras as demos of both kinds may have left them in the settings.
std::vector<CameraEntry> FormerDemoCameras(const DemoPasswords& folder);
void ForgetDemoPasswords(const DemoPasswords& folder);
// Throws StartError when somebody else's user has the name of one of them.
void AddDemoUsers(UserStore& users, const std::vector<CameraEntry>& cameras);
// True when there were some.
bool RemoveDemoUsers(UserStore& users);

struct DemoPhoneResult {
    std::string login;
    std::uint64_t sent = 0; // pictures, by the phone's own count
    bool complete = true;   // each run of the phone told its count
};

struct DemoResults {
    std::vector<DemoPhoneResult> uploads;
    std::string viewer; // what the viewing phone watches; empty without one
    std::uint64_t viewed = 0;
};

// Runs the phones as child processes, starts one again that ends, and ends them all with the object or with
// Stop. A child also ends when this process is killed.
class DemoPhones {
public:
    // `program` is morrowstream-phone; `pictures` has a folder for each phone. Throws StartError when one of
    // them is missing.
    DemoPhones(std::string program, const std::string& pictures, const DemoPasswords& passwords,
               std::string server);
    DemoPhones(const DemoPhones&) = delete;
    DemoPhones& operator=(const DemoPhones&) = delete;
    ~DemoPhones() { (void)Stop(); }

    // Asks the phones to end and waits for that; kills those that take longer than five seconds.
    DemoResults Stop();
    // The viewing phone's rate, as a line for the console; empty before its first second.
    [[nodiscard]] std::string Watching() const;

private:
    struct Phone {
        std::vector<std::string> arguments{}; // behind the program's name
        DemoPhoneResult result{};
        std::optional<platform::Process> process{};
        Descriptor output{};
        std::string unread{}; // of its output, the line that has begun
        bool told = false;    // its count, in this run
        Clock::time_point startAt{};
    };
    // The thread that starts a child must live as long as the child: its end would end the child.
    void Supervise();
    void Start(Phone& phone);
    void ReadOutput(Phone& phone);
    void Hear(Phone& phone, std::string_view line);
    // Whether the child has ended.
    bool Collect(Phone& phone);
    // Counts what a run has told. A child that still runs is ended at once.
    void Finish(Phone& phone);
    void EndAll();

    const std::string m_program;
    const std::string m_server;
    Wakeup m_stop;
    mutable std::mutex m_mutex;
    std::string m_watching;      // under m_mutex
    std::uint64_t m_viewed = 0;  // the supervisor's, as the phones
    std::vector<Phone> m_phones; // the supervisor's, until it is joined
    std::thread m_supervisor;
};

} // namespace host
