// What phones may watch, and who they are.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "capi/feeds.h"
#include "kit/picture/picture.h"

namespace capi {

class Sources;

// A source of the program's own. Any thread.
class OwnSource : public kit::Source {
public:
    static constexpr Kind kKind = Kind::Source;
    static constexpr const char* kName = "source";

    OwnSource(std::string name, kit::PicturePtr first)
        : m_name(std::move(name)), m_picture(std::move(first)) {}

    kit::PicturePtr Now() override;
    // Does nothing once it is closed.
    void Show(kit::PicturePtr picture);
    void Close() { Put(nullptr); }
    [[nodiscard]] const std::string& Name() const noexcept { return m_name; }

    std::weak_ptr<Sources> place;
    std::uint64_t handle = 0; // both set before anybody else has the object

private:
    void Put(kit::PicturePtr picture);

    const std::string m_name;
    std::mutex m_mutex;
    kit::PicturePtr m_picture; // null once it is closed
};
using OwnSourcePtr = std::shared_ptr<OwnSource>;

// The sources by name: the program's own, and the cameras where these are shown. Any thread.
class Sources {
public:
    // Null for cameras that are not shown.
    explicit Sources(std::shared_ptr<const CameraTable> cameras) : m_cameras(std::move(cameras)) {}

    // Throws Failure for a name that is taken.
    void Add(const OwnSourcePtr& source);
    void Remove(const OwnSource& source);
    std::vector<OwnSourcePtr> TakeAll();
    // An own source comes before a camera of its name. Null for a name that names nothing.
    [[nodiscard]] kit::SourcePtr Open(std::string_view name) const;

private:
    const std::shared_ptr<const CameraTable> m_cameras;
    mutable std::mutex m_mutex;
    std::map<std::string, OwnSourcePtr, std::less<>> m_own;
};

// Those who were let in to watch. A viewer's requests carry a token, which is good until the streams of its
// login are ended. Any thread.
class Watchers {
public:
    [[nodiscard]] std::string TokenOf(const std::string& login) const;
    [[nodiscard]] bool Knows(std::string_view token) const;
    // Those of everybody for an empty login.
    void End(const std::string& login);

private:
    mutable std::mutex m_mutex;
    std::uint64_t m_now = 1; // counts the ends
    std::uint64_t m_allEnded = 0;
    std::map<std::string, std::uint64_t, std::less<>> m_ended;
};

} // namespace capi
