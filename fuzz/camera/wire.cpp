// All that a phone may say on its connection, from its record to its last frame, through to the sink.

#include <sys/socket.h>
#include <unistd.h>

#include "camera/Cam.h"
#include "fuzz/Fuzz.h"
#include "platform/socket.h"
#include "platform/threads.h"
#include "support/Fake.h"

namespace {

// Fits the socket's buffer, so that the whole conversation can be said at once.
constexpr std::size_t kLongest = 100000;

class Sink : public support::Fake<ICamSink> {
public:
    HRESULT OnVideoFrame(IVideoFrame* frame) override {
        std::uint8_t* bytes = nullptr;
        std::uint32_t size = 0;
        Require(frame == nullptr || FAILED(frame->GetFrameContent(&bytes, &size)) || size >= 40);
        CoTaskMemFree(bytes);
        return S_OK;
    }

protected:
    ~Sink() = default;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    int ends[2];
    if (size > kLongest || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return 0;
    Require(size == 0 || ::send(ends[0], data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size));
    ::shutdown(ends[0], SHUT_WR);

    const auto cam = CCam::Create();
    const auto sink = platform::ComObject<Sink>::Create();
    cam->Connect(sink.Get());
    const SOCKET socket = platform::AdoptSocket(ends[1]);
    if (FAILED(cam->Init(socket, "demo")))
        platform::closesocket(socket);
    // The loop must end by itself when the phone has no more to say.
    Require(platform::WaitForWorkItems(20000) && !cam->IsConnected() && platform::OpenSocketCount() == 0);
    ::close(ends[0]);
    return 0;
}
