// The host's side of a viewing phone after one script: state tree, web server, content object, packer.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <typeinfo>
#include <vector>

#include "image/FrameBlock.h"
#include "interfaces/IConfiguration.h"
#include "interfaces/IMobileFramePacker.h"
#include "interfaces/IProcessStateTree.h"
#include "interfaces/IWebServer.h"
#include "platform/threads.h"
#include "support/Fake.h"

namespace support {

// The script, and what was played. The classes can be created while it exists.
struct Stage {
    Stage();
    ~Stage();
    // Writes a call down; gives the status that the script has for it.
    HRESULT Enter(const std::string& call, const std::string& arguments = {}) {
        const std::lock_guard guard(mutex);
        if (!endless)
            calls.push_back(arguments.empty() ? call : call + " " + arguments);
        if (call == failing && status == E_OUTOFMEMORY)
            throw std::bad_alloc(); // as where memory ends beside the call
        return call == failing ? status : S_OK;
    }
    template <class T = IUnknown>
    platform::ComPtr<T> Make(const char* name, std::u16string path = {});

    std::string failing; // the call of this name fails
    HRESULT status = E_ACCESSDENIED;
    std::string original; // the answers of a content object
    std::string jpeg;
    std::vector<std::string> packed{"piece"}; // one for each picture; "" is E_PENDING; ends with the last
    double frameRate = 1000;
    std::atomic<bool> endless{false}; // or never, and nothing is written down

    std::mutex mutex; // everything below
    std::vector<std::string> calls;
    std::string request; // the last one that a content object was sent
    std::map<std::u16string, platform::ComPtr<IUnknown>> nodes;
};

// Any of the objects; it tells of its end.
class Actor
    : public Fake<IProcessStateTree, IProcessStateNode, IWebServer, IConfiguration, IMobileFramePacker> {
public:
    HRESULT GetRootNode(IProcessStateNode** node) override {
        *node = m_stage.Make<IProcessStateNode>("root").Detach();
        return m_stage.Enter("GetRootNode");
    }
    HRESULT SetValue(IUnknown* value) override {
        const HRESULT hr = m_stage.Enter("SetValue");
        const std::lock_guard guard(m_stage.mutex);
        if (SUCCEEDED(hr))
            m_stage.nodes[m_path] = platform::ComPtr<IUnknown>(value);
        return hr;
    }
    HRESULT GetValue(IUnknown** value) override {
        const HRESULT hr = m_stage.Enter("GetValue");
        const std::lock_guard guard(m_stage.mutex);
        *value = platform::ComPtr<IUnknown>(m_stage.nodes[m_path]).Detach();
        return hr;
    }
    HRESULT RemoveNode(const char16_t* path) override {
        const HRESULT hr = m_stage.Enter("RemoveNode", platform::ToUtf8(path));
        const std::lock_guard guard(m_stage.mutex);
        m_stage.nodes.erase(m_path);
        return hr;
    }
    HRESULT GetNode(const char16_t* path, std::int32_t create, IProcessStateNode** node) override {
        const HRESULT hr = m_stage.Enter(create == 1 ? "GetNode create" : "GetNode");
        if (FAILED(hr))
            return hr;
        *node = m_stage.Make<IProcessStateNode>("node", path).Detach();
        return hr;
    }
    HRESULT OpenContent(BSTR key, std::int32_t size, const std::uint8_t* auth, IUnknown** content) override {
        if (std::string_view(reinterpret_cast<const char*>(auth), size) == "wrong")
            return E_ACCESSDENIED;
        if (platform::ViewOf(key) == u"no content") // an object of another kind
            *content = m_stage.nodes[u"other"].Detach();
        else
            *content = m_stage.Make("content").Detach();
        return m_stage.Enter("OpenContent", platform::ToUtf8(platform::ViewOf(key)));
    }
    // Names the credentials that the thread has published, and answers with another request.
    HRESULT GetContent(BSTR path, BSTR* content, BSTR* request) override {
        const std::string what = platform::ToUtf8(platform::ViewOf(path));
        *content = platform::Bstr::FromBytes(what == "video?jpeg" ? m_stage.jpeg : m_stage.original).Detach();
        {
            const std::lock_guard guard(m_stage.mutex);
            m_stage.request = platform::ToUtf8(platform::ViewOf(*request));
        }
        *request = s_request = platform::Bstr(u"another").Detach();
        return m_stage.Enter(what, Credentials());
    }
    HRESULT SetContent(BSTR, BSTR*, BSTR*) override { return E_NOTIMPL; }
    HRESULT Init(BSTR params) override {
        return m_stage.Enter("Init", platform::ToUtf8(platform::ViewOf(params)));
    }
    HRESULT GetParams(SPackerParams* params) override {
        params->fFrameRate = m_stage.frameRate;
        return m_stage.Enter("GetParams", platform::IsInApartment() ? "in the apartment" : "");
    }
    HRESULT AppendFrame(const BITMAPINFOHEADER* header, const std::uint8_t* planes) override {
        m_header = header;
        m_planes = planes;
        return m_stage.Enter("AppendFrame", Kept());
    }
    std::int32_t HasMoreFrames() override {
        m_stage.Enter("HasMoreFrames", Kept());
        return m_stage.endless || m_next < m_stage.packed.size() ? -1 : 0;
    }
    HRESULT GetPackedData(std::uint8_t** data, std::uint32_t* size) override {
        const std::string& piece = m_stage.packed[m_next++ % m_stage.packed.size()];
        *size = static_cast<std::uint32_t>(piece.size());
        *data = static_cast<std::uint8_t*>(CoTaskMemAlloc(piece.size()));
        std::copy(piece.begin(), piece.end(), *data);
        const HRESULT hr = m_stage.Enter("GetPackedData", Kept());
        return SUCCEEDED(hr) && piece.empty() ? E_PENDING : hr;
    }

protected:
    Actor(Stage& stage, const char* name, std::u16string path)
        : m_stage(stage), m_name(name), m_path(std::move(path)) {}
    ~Actor() { m_stage.Enter(std::string("~") + m_name); }

private:
    std::string Credentials() {
        const std::lock_guard guard(m_stage.mutex);
        const auto found = m_stage.nodes.find(
            NSProcessStateTree::ThreadArgumentPath(kCurrentRequestArgument, platform::CurrentThreadId()));
        if (found == m_stage.nodes.end())
            return {};
        const auto value = found->second.Query<NSProcessStateTree::CThreadArgumentValue>();
        if (!value || std::string_view(value->m_szType) != typeid(WebServer::SCurrentRequest).name())
            return {};
        const auto* const current = static_cast<const WebServer::SCurrentRequest*>(value->m_pValue);
        return {reinterpret_cast<const char*>(current->pData), current->nSize};
    }

    // What the packer still has of the picture and of its request: sides, the last byte of each plane, text.
    std::string Kept() const {
        const auto w = m_header->biWidth, h = m_header->biHeight;
        const int pixels = std::abs(w * h);
        std::string kept = std::to_string(w) + "x" + std::to_string(h);
        if (m_header->biCompression == FrameCompressionYV12)
            for (const int end : {pixels, pixels + pixels / 4, pixels + pixels / 4 * 2})
                kept += " " + std::to_string(m_planes[end - 1]);
        else if (pixels > 0)
            kept += " " + std::to_string(m_planes[pixels * m_header->biBitCount / 8 - 1]);
        return kept + (platform::ViewOf(s_request) == u"another" ? "" : " lost");
    }

    static inline thread_local BSTR s_request = nullptr; // the last one that a content object put there
    const BITMAPINFOHEADER* m_header = nullptr;
    const std::uint8_t* m_planes = nullptr;
    Stage& m_stage;
    const char* const m_name;
    const std::u16string m_path; // of a node
    std::size_t m_next = 0;      // picture of a packer
};

template <class T>
platform::ComPtr<T> Stage::Make(const char* name, std::u16string path) {
    return platform::ComObject<Actor>::Create(*this, name, std::move(path)).template Query<T>();
}

inline Stage::Stage() {
    for (const auto& [classId, name] :
         {std::pair(kProcessStateTreeClass, "tree"), std::pair(kMobileFramePackerClass, "packer")}) {
        const auto make = [this, name = name](const GUID& interfaceId, void** object) {
            const HRESULT hr = Enter(std::string("create ") + name);
            return FAILED(hr) ? hr : Make(name)->QueryInterface(interfaceId, object);
        };
        platform::RegisterClassFactory(classId, platform::ComObject<FakeFactory>::Create(make).Get());
    }
}

inline Stage::~Stage() {
    nodes.clear();
    platform::RevokeClassFactory(kProcessStateTreeClass);
    platform::RevokeClassFactory(kMobileFramePackerClass);
}

} // namespace support
