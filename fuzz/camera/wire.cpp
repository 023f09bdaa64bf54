// All that a phone may say on its connection, from its record to its last frame, through to the sink.

#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "camera/Cam.h"
#include "platform/socket.h"
#include "platform/threads.h"

namespace {

// Fits the socket's buffer, so that the whole conversation can be said at once.
constexpr std::size_t kLongest = 100000;

class Sink : public ICamSink {
public:
    HRESULT OnVideoFrame(IVideoFrame* frame) override {
        std::uint8_t* bytes = nullptr;
        std::uint32_t size = 0;
        if (frame != nullptr && SUCCEEDED(frame->GetFrameContent(&bytes, &size)) && size < 40)
            std::abort();
        CoTaskMemFree(bytes);
        return S_OK;
    }

protected:
    Sink() = default;
    ~Sink() = default;
    HRESULT Query(const GUID& interfaceId, void** object) {
        return platform::QueryTable<ICamSink>(this, interfaceId, object);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    int ends[2];
    if (size > kLongest || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return 0;
    if (size > 0 && ::send(ends[0], data, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
        std::abort();
    ::shutdown(ends[0], SHUT_WR);

    const auto cam = CCam::Create();
    const auto sink = platform::ComObject<Sink>::Create();
    cam->Connect(sink.Get());
    const SOCKET socket = platform::AdoptSocket(ends[1]);
    if (FAILED(cam->Init(socket, "demo")))
        platform::closesocket(socket);
    // The loop must end by itself when the phone has no more to say.
    if (!platform::WaitForWorkItems(20000) || cam->IsConnected() || platform::OpenSocketCount() != 0)
        std::abort();
    ::close(ends[0]);
    return 0;
}
