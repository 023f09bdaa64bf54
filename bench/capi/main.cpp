// How many frames a second reach a program through the contract in C++ and through morrowstream.h, one after
// the other and again, from the same phone.
//
//     capi_bench [ROUNDS]        7 by default

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "capi/morrowstream.h"
#include "kit/component/component.h"
#include "kit/picture/picture.h"
#include "platform/files.h"
#include "platform/options.h"
#include "platform/registry.h"
#include "platform/scope.h"
#include "platform/socket.h"
#include "support/Wire.h"
#include "support/temp_folder.h"

namespace {

using platform::Bstr;
using platform::ComObject;
using platform::ComPtr;

constexpr int kFrames = 4000;
constexpr int kWidth = 320;
constexpr int kHeight = 240;

void Require(bool holds, const char* what) {
    if (!holds)
        throw std::runtime_error(std::string(what) + " failed: " + morrow_last_error());
}

// A picture with something in it: a phone's has some ten kilobytes.
std::string MakeJpeg() {
    std::vector<std::uint8_t> samples(std::size_t{kWidth} * kHeight * 3 / 2);
    unsigned noise = 1;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        noise = noise * 1664525 + 1013904223;
        samples[i] = static_cast<std::uint8_t>(i / 7 % 160 + (noise >> 28));
    }
    morrow_picture picture = MORROW_PICTURE_INIT;
    picture.form = MORROW_YCBCR;
    picture.width = picture.y_stride = kWidth;
    picture.height = kHeight;
    picture.chroma_stride = kWidth / 2;
    picture.y = samples.data();
    picture.cr = picture.y + kWidth * kHeight;
    picture.cb = picture.cr + kWidth * kHeight / 4;
    void* bytes = nullptr;
    std::size_t size = 0;
    Require(morrow_jpeg_encode(&bytes, &size, &picture, 60) == MORROW_OK, "encoding");
    std::string jpeg(static_cast<const char*>(bytes), size);
    morrow_free(bytes);
    return jpeg;
}

std::atomic<int> g_came{0};
std::atomic<unsigned> g_sum{0};
std::chrono::nanoseconds g_first; // of the receiving thread's processor time; read when all have come
std::chrono::nanoseconds g_last;

// What either side does with a frame: finds its planes, and looks at one sample.
void Look(const std::uint8_t* y) {
    g_sum += y[0];
    (g_came == 0 ? g_first : g_last) = kit::ThreadTime();
    ++g_came;
}

// Frames a second.
struct Rates {
    double clock;
    double processor;
};

// Plays the phone on one end until all frames have come.
Rates Play(int far, const std::string& jpeg) {
    const std::string frame = support::Frame(jpeg);
    const auto send = [far](const std::string& bytes) {
        Require(::send(far, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
                "sending");
    };
    send(support::StreamHeader(""));
    g_came = 0;
    const auto began = std::chrono::steady_clock::now();
    for (int sent = 0; sent < kFrames; ++sent) {
        send(frame);
        char grants[64];
        (void)::recv(far, grants, sizeof grants, MSG_DONTWAIT);
    }
    while (g_came < kFrames)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - began;
    return {kFrames / passed.count(),
            (kFrames - 1) / std::chrono::duration<double>(g_last - g_first).count()};
}

struct Pair {
    Pair() {
        int ends[2];
        Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "a pair of sockets");
        far = platform::Descriptor(ends[0]);
        near = platform::Descriptor(ends[1]);
    }
    platform::Descriptor far;
    platform::Descriptor near;
};

constexpr const char* kHead = "POST /mobile/video/door HTTP/1.1\r\n\r\n";

class Sink : public platform::Implements<ICamSink> {
public:
    HRESULT OnVideoFrame(IVideoFrame* frame) override {
        const kit::HeldFrame held = kit::HeldFrame::Of(*frame);
        kit::PlaneLayout layout;
        if (kit::ReadLayout(held.block.data(), held.block.size(), &layout))
            Look(held.block.data() + 40);
        return S_OK;
    }

protected:
    ~Sink() = default;
};

Rates MeasureCpp(const std::string& folder, const std::string& jpeg) {
    const kit::ComponentModule module(folder);
    const auto handlers =
        ComObject<kit::WebHandlerHost>::Create([](std::string_view) { return kit::RequestIdentity{}; });
    Rates rates{};
    kit::Component component(module.Class(), handlers);
    {
        const Bstr name(u"door");
        ComPtr<ICam> cam;
        Require(SUCCEEDED(component.Source()->ConnectToCam(name.Get(), cam.Receive())), "finding the camera");
        const auto sink = ComObject<Sink>::Create();
        Require(SUCCEEDED(cam->Connect(sink.Get())), "connecting");
        Pair pair;
        const std::string record = support::AuthRecord("secret");
        Require(::send(pair.far.Get(), record.data(), record.size(), 0) > 0, "sending");
        const SOCKET handle = platform::AdoptSocket(pair.near.Release());
        const Bstr head(platform::ToWide(kHead));
        Require(
            SUCCEEDED(
                handlers->HandlerOf(u"mobile/video/door")->Process(u"mobile/video/door", handle, head.Get())),
            "handing over");
        rates = Play(pair.far.Get(), jpeg);
        (void)cam->Disconnect(sink.Get());
    }
    return rates;
}

Rates MeasureC(const std::string& folder, const std::string& jpeg) {
    morrow_server_options options = MORROW_SERVER_OPTIONS_INIT;
    options.data_folder = folder.c_str();
    morrow_server server = 0;
    morrow_subscription subscription = 0;
    Require(morrow_server_create(&server, &options) == MORROW_OK, "creating the server");
    const int added = morrow_camera_add(server, "door", "320x240", "secret");
    Require(added == MORROW_OK || added == MORROW_EXISTS, "adding the camera");
    const auto look = [](const char*, morrow_frame frame, void*) {
        morrow_picture picture = MORROW_PICTURE_INIT;
        if (morrow_frame_picture(&picture, frame) == MORROW_OK)
            Look(picture.y);
    };
    Require(morrow_subscribe(&subscription, server, "door", look, nullptr) == MORROW_OK, "subscribing");
    Pair pair;
    const std::string said = kHead + support::AuthRecord("secret");
    Require(morrow_take(server, pair.near.Release(), said.data(), said.size(), nullptr, nullptr) == MORROW_OK,
            "handing over");
    const Rates rates = Play(pair.far.Get(), jpeg);
    Require(morrow_server_destroy(server) == MORROW_OK, "ending");
    return rates;
}

// In per cent, the median.
double CostOf(std::vector<double> ratios) {
    std::ranges::sort(ratios);
    return (ratios[ratios.size() / 2] - 1) * 100;
}

int Run(std::span<const std::string_view> arguments) {
    int rounds = 7;
    const auto take = [&](std::string_view text) { rounds = platform::ParseNumber("ROUNDS", text, 1, 1000); };
    if (!platform::ReadOptions(arguments, {}, take)) {
        std::puts("capi_bench [ROUNDS]");
        return platform::kExitDone;
    }
    const TempFolder folder;
    const std::string path = folder.Path().string();
    const std::string jpeg = MakeJpeg();
    (void)MeasureC(path, jpeg); // makes the camera, and warms up
    std::vector<double> clock;
    std::vector<double> processor;
    for (int round = 0; round < rounds; ++round) {
        const Rates cpp = MeasureCpp(path, jpeg);
        const Rates c = MeasureC(path, jpeg);
        std::printf("frames/s: C++ %7.0f  C %7.0f    of processor time: C++ %7.0f  C %7.0f\n", cpp.clock,
                    c.clock, cpp.processor, c.processor);
        clock.push_back(cpp.clock / c.clock);
        processor.push_back(cpp.processor / c.processor);
    }
    std::printf("%dx%d, %zu bytes: C costs %+.2f %% by the clock, %+.2f %% in processor time (medians)\n",
                kWidth, kHeight, jpeg.size(), CostOf(clock), CostOf(processor));
    return platform::kExitDone;
}

} // namespace

int main(int count, char** values) {
    return platform::RunProgram("capi_bench", count, values, Run);
}
