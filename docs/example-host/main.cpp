// A small host of the component: it takes the phones' pictures and keeps the newest one of each
// camera as a file, NAME.pgm. docs/integrator.md walks through it.
//
//   example-host DATA PORT

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

#include "listener.h"

#include "image/FrameBlock.h"
#include "interfaces/IVideoSource.h"
#include "interfaces/IWebHandler.h"
#include "kit/component/component.h"
#include "kit/log/log_engine.h"
#include "kit/picture/picture.h"
#include "kit/settings/document.h"
#include "platform/socket.h"
#include "platform/text.h"

namespace {

using platform::ComObject;
using platform::ComPtr;

// [sink] One camera's pictures, on the thread that receives them: the phone is not read meanwhile, so be
// short.
class PictureFile : public platform::Implements<ICamSink> {
public:
    explicit PictureFile(std::string path) : m_path(std::move(path)) {}
    HRESULT OnVideoFrame(IVideoFrame* frame) override try {
        const kit::HeldFrame held = frame != nullptr ? kit::HeldFrame::Of(*frame) : kit::HeldFrame();
        kit::PlaneLayout layout;
        if (!kit::ReadLayout(held.block.data(), held.block.size(), &layout))
            return S_OK; // a picture that could not be decoded
        {
            std::ofstream file(m_path + ".new", std::ios::binary); // the luma plane
            file << "P5 " << layout.width << ' ' << layout.height << " 255\n";
            file.write(reinterpret_cast<const char*>(held.block.data() + sizeof(BITMAPINFOHEADER)),
                       std::streamsize{layout.width} * layout.height);
        }
        std::filesystem::rename(m_path + ".new", m_path);
        std::printf("%s %dx%d\n", m_path.c_str(), layout.width, layout.height);
        return S_OK;
    } catch (const std::exception&) {
        return E_FAIL; // no exception may leave an operation
    }

protected:
    ~PictureFile() = default;

private:
    const std::string m_path;
};

// [subscriber] Hears of cameras, with the component's lock held, and connects a sink to each.
class Subscriber : public platform::Implements<IVideoSourceSink> {
public:
    Subscriber(ComPtr<IVideoSource> source, std::string folder)
        : m_source(std::move(source)), m_folder(std::move(folder)) {}
    HRESULT OnCamAdded(BSTR name) override {
        std::string file = platform::ToUtf8(platform::ViewOf(name));
        auto& [cam, sink] = m_cams[file];
        std::ranges::replace(file, '/', '_');
        sink = ComObject<PictureFile>::Create(m_folder + "/" + file + ".pgm");
        const HRESULT hr = m_source->ConnectToCam(name, cam.Receive());
        return SUCCEEDED(hr) ? cam->Connect(sink.Get()) : hr;
    }
    HRESULT OnCamRemoved(BSTR name) override {
        const auto found = m_cams.extract(platform::ToUtf8(platform::ViewOf(name)));
        return found && found.mapped().first ? found.mapped().first->Disconnect(found.mapped().second.Get())
                                             : S_OK;
    }

protected:
    ~Subscriber() = default;

private:
    const ComPtr<IVideoSource> m_source;
    const std::string m_folder;
    std::map<std::string, std::pair<ComPtr<ICam>, ComPtr<ICamSink>>> m_cams;
};

// [connection] The head is read to its last byte and no further; what follows is the component's.
void Serve(int connection, const kit::WebHandlerHost& handlers) {
    const std::string head = ReadHead(connection);
    const std::string path = head.substr(0, head.find(" HTTP/")); // "POST /mobile/video/NAME"
    // The component waits for an upload's record with its lock held, so it gets one that is there already.
    const bool upload = path.starts_with("POST /mobile/video/") && IsThere(connection, 131);
    LimitReads(connection, 0); // a phone may be silent for as long as it likes
    const SOCKET handle = platform::AdoptSocket(connection);
    const std::u16string target = platform::FromUtf8(upload ? path.substr(6) : "");
    const auto handler = handlers.HandlerOf(target);
    const platform::Bstr wideHead(platform::ToWide(head));
    if (!handler || FAILED(handler->Process(target.c_str(), handle, wideHead.Get())))
        (void)platform::closesocket(handle); // harmless where the component has closed it
}

// [settings] One camera, where there are no settings yet.
void MakeSettings(const std::string& data) {
    const std::filesystem::path file = kit::SettingsFile(data);
    std::filesystem::create_directories(file.parent_path());
    if (!std::filesystem::exists(file))
        std::ofstream(file) << "<config><cams KeyXPath='Name/text()'><item><Name "
                               "type='BSTR'>door</Name><Type type='BSTR'>320x240</Type>"
                               "<Password type='BSTR'>secret</Password></item></cams></config>";
}

int Run(const std::string& data, const Listener& listener) {
    // [start]
    MakeSettings(data);
    std::fputs(kit::SetDataFolder(data).c_str(), stderr);
    kit::SetLogTarget({.wants = [](std::string_view channel) { return channel == "error"; },
                       .write =
                           [](const kit::LogLine& line) {
                               std::fprintf(stderr, "%.*s\n", static_cast<int>(line.text.size()),
                                            line.text.data());
                           }});
    kit::ComponentModule module(data);
    {
        // [web] The component holds an upload's password against its camera. A host that lets phones watch
        // checks users here.
        const kit::WebHandlerHostPtr handlers = ComObject<kit::WebHandlerHost>::Create(
            [](std::string_view) { return std::optional<kit::RequestIdentity>(std::in_place); });
        const kit::Component component(module.Class(), handlers);
        const auto subscriber = ComObject<Subscriber>::Create(component.Source(), data);
        if (FAILED(component.Source()->Subscribe(subscriber.Get())))
            throw std::runtime_error("somebody has subscribed already");
        // [loop]
        for (int connection; (connection = listener.Next()) >= 0;)
            Serve(connection, *handlers);
        // [end]
        (void)component.Source()->Unsubscribe(subscriber.Get());
    } // the last references: the component closes the phones' sockets
    return module.Unload() ? 0 : 1;
}

} // namespace

int main(int count, char** values) {
    if (count != 3)
        return std::fprintf(stderr, "example-host DATA PORT\n"), 2;
    try {
        return Run(values[1], Listener(static_cast<std::uint16_t>(std::atoi(values[2]))));
    } catch (const std::exception& error) {
        return std::fprintf(stderr, "example-host: %s\n", error.what()), 1;
    }
}
