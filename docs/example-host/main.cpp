// A small host of the component: it takes the phones' pictures and keeps the newest one of each
// camera as a file, NAME.pgm. docs/integrator.md walks through it.
//
//   example-host MODULE DATA PORT

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "listener.h"

#include "image/FrameBlock.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/IVideoSource.h"
#include "interfaces/IWebHandler.h"
#include "interfaces/Registration.h"
#include "platform/files.h"
#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/threads.h"

namespace {

using platform::Bstr;
using platform::ComObject;
using platform::ComPtr;

void Require(HRESULT hr, const char* what) {
    if (FAILED(hr)) {
        std::fprintf(stderr, "%s failed with 0x%08X %s\n", what, static_cast<unsigned>(hr),
                     platform::LastModuleError().c_str());
        std::exit(1);
    }
}

// [web] The component registers here as the handler of the path word "mobile", and is its own factory's only
// object.
class WebHandlerHost : public platform::Implements<IWebHandlerHost, IClassFactory> {
public:
    HRESULT RegisterHandler(const char16_t*, IWebHandler* handler) override {
        m_handler = ComPtr<IWebHandler>(handler);
        return S_OK;
    }
    // The component holds an upload's password against its camera. A host that lets phones watch checks users
    // here.
    HRESULT GetRequestAuth(BSTR, SRequestAuth*) override { return S_OK; }
    HRESULT CreateInstance(IUnknown*, const GUID& interfaceId, void** object) override {
        return Query(interfaceId, object);
    }
    HRESULT LockServer(std::int32_t) override { return S_OK; }
    ComPtr<IWebHandler> m_handler;

protected:
    ~WebHandlerHost() = default;
};

// [sink] One camera's pictures, on the thread that receives them: the phone is not read meanwhile, so be
// short.
class PictureFile : public platform::Implements<ICamSink> {
public:
    explicit PictureFile(std::string path) : m_path(std::move(path)) {}
    HRESULT OnVideoFrame(IVideoFrame* frame) override {
        std::uint8_t* block = nullptr;
        std::uint32_t size = 0;
        if (frame == nullptr || FAILED(frame->GetFrameContent(&block, &size)))
            return S_OK; // a picture that could not be decoded
        BITMAPINFOHEADER header;
        std::memcpy(&header, block, sizeof header);
        {
            std::ofstream file(m_path + ".new", std::ios::binary); // the luma plane
            file << "P5 " << header.biWidth << ' ' << header.biHeight << " 255\n";
            file.write(reinterpret_cast<const char*>(block + sizeof header),
                       std::streamsize{header.biWidth} * header.biHeight);
        }
        CoTaskMemFree(block);
        std::error_code ignored; // no exception may leave an operation
        std::filesystem::rename(m_path + ".new", m_path, ignored);
        std::printf("%s %dx%d\n", m_path.c_str(), header.biWidth, header.biHeight);
        return S_OK;
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
void Serve(int connection, IWebHandler& handler) {
    const std::string head = ReadHead(connection);
    const std::string path = head.substr(0, head.find(" HTTP/")); // "POST /mobile/video/NAME"
    // The component waits for an upload's record with its lock held, so it gets one that is there already.
    const bool upload = path.starts_with("POST /mobile/video/") && IsThere(connection, 131);
    LimitReads(connection, 0); // a phone may be silent for as long as it likes
    const SOCKET handle = platform::AdoptSocket(connection);
    const Bstr wideHead(platform::ToWide(head));
    if (!upload ||
        FAILED(handler.Process(platform::FromUtf8(path.substr(6)).c_str(), handle, wideHead.Get())))
        (void)platform::closesocket(handle); // harmless where the component has closed it
}

// [settings] One camera, where there are no settings yet.
void MakeSettings(const std::string& data) {
    const std::filesystem::path file = data + "/Norvane/Tessaron/Servers/Morrowstream.xml";
    std::filesystem::create_directories(file.parent_path());
    if (!std::filesystem::exists(file))
        std::ofstream(file) << "<config><cams KeyXPath='Name/text()'><item><Name "
                               "type='BSTR'>door</Name><Type type='BSTR'>320x240</Type>"
                               "<Password type='BSTR'>secret</Password></item></cams></config>";
}

} // namespace

int main(int count, char** values) {
    if (count != 4)
        return std::fprintf(stderr, "example-host MODULE DATA PORT\n"), 2;
    const Listener listener(static_cast<std::uint16_t>(std::atoi(values[3])));
    // [start]
    const std::string data = values[2];
    MakeSettings(data);
    platform::SetCommonDataFolder(data);
    (void)platform::SetRegistryFile(data + "/registry");
    Require(platform::RegisterModule(values[1]), "registering the module");
    const auto web = ComObject<WebHandlerHost>::Create();
    Require(platform::RegisterClassFactory(kWebHandlerHostClass, static_cast<IClassFactory*>(web.Get())),
            "the web handler's class");
    {
        const auto classes = platform::EnumClassesOfCategory(kVideoSourceCategory);
        ComPtr<IVideoSource> source;
        Require(classes.empty() ? REGDB_E_CLASSNOTREG
                                : platform::CoCreateInstance(classes.front(), nullptr, platform::kContextAll,
                                                             IVideoSource::iid, source.ReceiveVoid()),
                "creating the component");
        const auto subscriber = ComObject<Subscriber>::Create(source, data);
        Require(source->Subscribe(subscriber.Get()), "subscribing");
        // [loop]
        for (int connection; (connection = listener.Next()) >= 0;)
            Serve(connection, *web->m_handler);
        // [end]
        (void)source->Unsubscribe(subscriber.Get());
        web->m_handler = nullptr;
    } // the last references: the component closes the phones' sockets
    platform::WaitForWorkItems(1000);
    (void)platform::RevokeClassFactory(kWebHandlerHostClass);
    return platform::CoFreeUnusedLibraries(std::chrono::milliseconds(0)) == 1 &&
                   platform::LoadedModules() == 0
               ? 0
               : 1;
}
