// The demo: three cameras, their users, and a simulated phone for two of them.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/types.h>

#include "host/handler/component.h"
#include "host/users/user_store.h"
#include "host/web/net.h"

namespace host {

inline constexpr std::string_view kDemoPassword = "demo";

std::vector<CameraEntry> DemoCameras();
// Throws StartError when somebody else's user has the name of one of them.
void AddDemoUsers(UserStore& users);
// True when there were some.
bool RemoveDemoUsers(UserStore& users);

struct DemoPhoneResult {
    std::string login;
    std::uint64_t sent = 0; // pictures, by the phone's own count
    bool complete = true;   // each run of the phone told its count
};

// Runs the phones as child processes, starts one again that ends, and ends them all with the object or with
// Stop. A child also ends when this process is killed.
class DemoPhones {
public:
    // `program` is morrowstream-phone; `pictures` has a folder for each phone. Throws StartError when one of
    // them is missing.
    DemoPhones(std::string program, std::string pictures, std::string server);
    DemoPhones(const DemoPhones&) = delete;
    DemoPhones& operator=(const DemoPhones&) = delete;
    ~DemoPhones() { (void)Stop(); }

    // Asks the phones to end and waits for that; kills one that does not within a second and a half.
    std::vector<DemoPhoneResult> Stop();

private:
    struct Phone {
        DemoPhoneResult result;
        std::string fps;
        pid_t pid = -1;
        Descriptor output;
        Clock::time_point startAt{};
    };
    // The thread that starts a child must live as long as the child: its end would end the child.
    void Supervise();
    void Start(Phone& phone);
    // Whether the child has ended; its count is taken then.
    bool Collect(Phone& phone);
    void EndAll();

    const std::string m_program;
    const std::string m_pictures;
    const std::string m_server;
    Wakeup m_stop;
    std::vector<Phone> m_phones; // the supervisor's, until it is joined
    std::thread m_supervisor;
};

} // namespace host
