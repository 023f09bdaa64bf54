// A host's web server as the component sees it: it opens sources for viewing phones.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <shared_mutex>
#include <string_view>

#include "interfaces/IConfiguration.h"
#include "interfaces/IWebServer.h"
#include "kit/export.h"
#include "kit/picture/picture.h"
#include "platform/com.h"

namespace kit {

// Answers for the host when a phone wants to view. Any thread, several at a time. A viewer's sources are
// opened, and asked for their pictures, on the thread on which `knows` has said yes to the viewer's block
// last.
struct ContentAccess {
    // Null for a key that names nothing. Viewers' threads may outlive the host's other objects by the length
    // of a sleep, so the function owns what it uses.
    std::function<SourcePtr(std::string_view key)> open;
    // Whether a credentials block stands for a user of the host, as it is now. Called until Forget only.
    std::function<bool(std::string_view token)> knows;
};

class MORROW_KIT_API ContentServer : public platform::Implements<IWebServer> {
public:
    // At most so many content objects at a time: each is a thread of the component.
    static constexpr std::uint32_t kMostViewers = 1000;

    explicit ContentServer(ContentAccess access) : m_access(std::move(access)) {}

    // E_ACCESSDENIED for credentials of no user; E_ELEMENT_NOT_FOUND for an unknown key; E_OUTOFMEMORY when
    // there are too many viewers already.
    HRESULT OpenContent(BSTR bstrKey, std::int32_t nAuthSize, const std::uint8_t* pAuth,
                        IUnknown** ppContent) override;

    // False for every block once the server has forgotten its users.
    [[nodiscard]] bool Knows(std::string_view token) const;
    // From here on every request of a viewer fails, which ends its stream.
    void Forget();
    [[nodiscard]] std::uint32_t Viewers() const noexcept { return m_viewers->load(); }

protected:
    ~ContentServer() = default;

private:
    mutable std::shared_mutex m_mutex; // held over each call of m_access.knows, which goes with Forget
    ContentAccess m_access;
    const std::shared_ptr<std::atomic<std::uint32_t>> m_viewers =
        std::make_shared<std::atomic<std::uint32_t>>(0);
};
using ContentServerPtr = platform::ComPtr<platform::ComObject<ContentServer>>;

// One viewer's way to a source. One thread at a time.
class MORROW_KIT_API SourceContent : public platform::Implements<IConfiguration> {
public:
    SourceContent(ContentServerPtr server, SourcePtr source,
                  std::shared_ptr<std::atomic<std::uint32_t>> viewers)
        : m_server(std::move(server)), m_source(std::move(source)), m_viewers(std::move(viewers)) {}

    // E_ACCESSDENIED when the calling thread has published no request, or one of no user; E_ELEMENT_NOT_FOUND
    // when the source is gone; E_INVALIDARG for another path.
    HRESULT GetContent(BSTR path, BSTR* body, BSTR* head) override;
    HRESULT SetContent(BSTR, BSTR*, BSTR*) override { return E_NOTIMPL; }

protected:
    ~SourceContent() { --*m_viewers; }

private:
    const ContentServerPtr m_server;
    const SourcePtr m_source;
    const std::shared_ptr<std::atomic<std::uint32_t>> m_viewers;
    PicturePtr m_last; // that the last "video?original" told the size of
};

} // namespace kit
