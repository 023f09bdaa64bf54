// The component's side of the web contract: writes down what it is asked and keeps the connections it gets.
#pragma once

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "interfaces/IWebHandler.h"
#include "platform/socket.h"
#include "platform/text.h"
#include "support/Fake.h"

namespace support {

class FakeWebHandler : public Fake<IWebHandler> {
public:
    struct Call {
        std::string path;
        std::string head;
        SOCKET socket = INVALID_SOCKET; // of a Process
        unsigned codePage = platform::ThreadCodePage();
    };

    // What the operations answer.
    std::atomic<HRESULT> m_processResult{S_OK};
    std::atomic<HRESULT> m_requestResult{S_OK};
    // Whoever holds it has a Process wait, as while the settings are changed.
    std::mutex m_busy;
    std::atomic<int> m_waiting{0};
    std::string m_answerBody = "<settings/>";
    std::u16string m_answerHead = u"Content-Type: text/xml\r\n";

    std::vector<Call> Processed() const {
        const std::lock_guard guard(m_mutex);
        return m_processed;
    }
    std::vector<Call> Requested() const {
        const std::lock_guard guard(m_mutex);
        return m_requested;
    }
    // What the connection of a Process holds, up to `count` bytes; fewer when the other side has closed.
    static std::string Read(SOCKET socket, std::size_t count) {
        std::string bytes(count, '\0');
        std::size_t have = 0;
        for (int got = 1; got > 0 && have < count; have += std::max(got, 0))
            got = platform::recv(socket, bytes.data() + have, static_cast<int>(count - have), 0);
        return bytes.substr(0, have);
    }

    HRESULT IsStreamPath(const char16_t* path, std::int32_t* stream) override {
        *stream = std::u16string_view(path).find(u"mobile/video") != std::u16string_view::npos ? 1 : 0;
        return S_OK;
    }
    HRESULT GetHandlerProcessId(std::uint32_t* id) override {
        *id = 0;
        return S_OK;
    }
    HRESULT Process(const char16_t* path, SOCKET socket, BSTR head) override {
        ++m_waiting;
        const std::lock_guard busy(m_busy);
        --m_waiting;
        const std::lock_guard guard(m_mutex);
        m_processed.push_back({platform::ToUtf8(path), platform::ToNarrow(platform::ViewOf(head)), socket});
        return m_processResult;
    }
    HRESULT Request(const char16_t* path, BSTR* body, BSTR* head) override {
        const std::lock_guard guard(m_mutex);
        m_requested.push_back({platform::ToUtf8(path), platform::ToNarrow(platform::ViewOf(*head))});
        if (FAILED(m_requestResult))
            return m_requestResult;
        SysFreeString(*body);
        *body = SysAllocStringByteLen(m_answerBody.data(), static_cast<std::uint32_t>(m_answerBody.size()));
        *head = platform::Bstr(m_answerHead).Detach();
        return S_OK;
    }

protected:
    ~FakeWebHandler() {
        for (const Call& call : m_processed)
            (void)platform::closesocket(call.socket);
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Call> m_processed;
    std::vector<Call> m_requested;
};

using FakeWebHandlerObject = platform::ComObject<FakeWebHandler>;

} // namespace support
