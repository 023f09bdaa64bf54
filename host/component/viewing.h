// What viewing phones need of a host, in place for the component: the process state tree with the web
// server in it, and the packer's class.
#pragma once

#include <memory>

#include "host/component/class_factory.h"
#include "host/content/content_server.h"
#include "host/packer/frame_packer.h"

namespace host {

class Viewing {
public:
    // Before the component comes. Throws std::runtime_error.
    Viewing(ContentAccess access, std::shared_ptr<PackerCounters> counters);
    Viewing(const Viewing&) = delete;
    Viewing& operator=(const Viewing&) = delete;
    // Ends every viewing: no picture reaches a phone afterwards, though its thread may sleep for a while yet.
    // To be called before the component goes; the classes stay until this object does.
    void End() noexcept;
    ~Viewing() { End(); }

    [[nodiscard]] std::uint32_t Viewers() const noexcept { return m_server->Viewers(); }

private:
    ClassRegistrations m_classes;
    const ContentServerPtr m_server;
};

} // namespace host
