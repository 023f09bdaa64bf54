// Programs in C that call as they like: any call with any handle, phones that say anything in any order, ends
// in the middle of it. No call may crash, hang, or give a status that is none, and what failed gives nothing.

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "capi/morrowstream.h"
#include "fuzz/Fuzz.h"
#include "platform/scope.h"
#include "support/temp_folder.h"

namespace {

constexpr std::array kNames{"door", "yard", "a/b", "", "d\xC3\xB6r", "\xFF"};
constexpr std::array kTypes{"320x240", "160x120", "1x1"};
constexpr std::size_t kMostFrames = 64;

// Bytes that become numbers and texts; zeros behind their end.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_rest(AsText(data, size)) {}
    [[nodiscard]] bool IsAtEnd() const { return m_rest.empty(); }
    std::uint8_t Byte() {
        const char byte = m_rest.empty() ? '\0' : m_rest[0];
        m_rest.remove_prefix(m_rest.empty() ? 0 : 1);
        return static_cast<std::uint8_t>(byte);
    }
    // Up to 255 bytes as they come.
    std::string Text() {
        const std::string_view text = m_rest.substr(0, Byte());
        m_rest.remove_prefix(text.size());
        return std::string(text);
    }
    template <class Table>
    auto Of(const Table& table) {
        return table[Byte() % table.size()];
    }

private:
    std::string_view m_rest;
};

std::string SmallJpeg() {
    const std::array<std::uint8_t, 16 * 16> samples{};
    morrow_picture picture = MORROW_PICTURE_INIT;
    picture.form = MORROW_GREY;
    picture.width = picture.height = picture.y_stride = 16;
    picture.y = samples.data();
    void* bytes = nullptr;
    std::size_t size = 0;
    Require(morrow_jpeg_encode(&bytes, &size, &picture, 50) == MORROW_OK);
    std::string jpeg(static_cast<const char*>(bytes), size);
    morrow_free(bytes);
    return jpeg;
}

// Kept by callbacks, from any thread.
std::mutex g_mutex;
std::vector<morrow_frame> g_kept;
std::atomic<unsigned> g_pending{0}; // connections whose outcome has not come

void OnFrame(const char* camera, morrow_frame frame, void* payload) {
    const void* bytes = nullptr;
    std::size_t size = 0;
    char* text = nullptr;
    Require(camera[0] != '\0');
    Require(morrow_settings_get(&text, 1) == MORROW_IN_CALLBACK && text == nullptr);
    const int status = morrow_frame_jpeg(&bytes, &size, frame);
    Require(status == MORROW_OK ? size > 3 : status == MORROW_NO_PICTURE && bytes == nullptr);
    const std::lock_guard guard(g_mutex);
    if (payload != nullptr && g_kept.size() < kMostFrames && morrow_frame_keep(frame) == MORROW_OK)
        g_kept.push_back(frame);
}

void OnTaken(int outcome, const char* name, void*) {
    Require(name != nullptr && (outcome == MORROW_UPLOADING || outcome == MORROW_WATCHING || outcome < 0));
    Require(morrow_unsubscribe(1) == MORROW_IN_CALLBACK);
    g_pending -= 1;
}

// What lives from input to input: the folder is the process's, and so is one server, mostly.
struct Program {
    Program() {
        Create();
        // A fuzzer goes on counting in a module that was unloaded.
        (void)::dlopen("libmorrowstream.so.1", RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    }
    void Create() {
        morrow_server_options options = MORROW_SERVER_OPTIONS_INIT;
        options.data_folder = folder.Path().c_str();
        options.wait_ms = 50;
        options.show_cameras = 1;
        options.most_pixels = 1 << 16;
        options.may_watch = [](const char*, const char* password, const char*, void*) {
            return password[0] == 's' ? 1 : 0;
        };
        options.log = [](const char*, const char*, void*) {};
        Require(morrow_server_create(&server, &options) == MORROW_OK, morrow_last_error());
        (void)morrow_camera_add(server, "door", "320x240", "secret");
    }

    const TempFolder folder;
    morrow_server server = 0;
};

Program& TheProgram() {
    static Program& program = *new Program;
    return program;
}

class Run {
public:
    explicit Run(Input input) : m_in(input) {}
    ~Run() {
        m_far.clear(); // phones leave
        for (const std::uint64_t handle : m_handles) {
            (void)morrow_unsubscribe(handle);
            (void)morrow_source_close(handle);
            while (morrow_frame_release(handle) == MORROW_OK) {
            }
        }
        (void)morrow_watchers_end(TheProgram().server, nullptr);
        std::vector<morrow_frame> kept;
        {
            const std::lock_guard guard(g_mutex);
            kept.swap(g_kept);
        }
        for (const morrow_frame frame : kept)
            (void)morrow_frame_release(frame);
        // Each connection has an outcome, within its time.
        for (int waits = 0; g_pending != 0; ++waits) {
            Require(waits < 5000, "a connection without an outcome");
            ::usleep(1000);
        }
    }

    [[nodiscard]] bool IsDone() const { return m_in.IsAtEnd(); }
    void Step() {
        const std::uint8_t which = m_in.Byte() % 24;
        if (which < 8)
            Settings(which);
        else if (which < 14)
            Connection(which);
        else
            Picture(which);
    }

private:
    morrow_server Server() { return m_in.Byte() < 250 ? TheProgram().server : Handle(); }
    std::uint64_t Handle() {
        const std::uint8_t byte = m_in.Byte();
        if (byte < 8 || m_handles.empty()) {
            const std::lock_guard guard(g_mutex);
            return g_kept.empty() || byte < 4 ? byte : g_kept[byte % g_kept.size()];
        }
        return m_handles[byte % m_handles.size()];
    }
    void Keep(int status, std::uint64_t handle) {
        Require((status == MORROW_OK) == (handle != 0), "a handle with a failure, or none without");
        if (handle != 0)
            m_handles.push_back(handle);
    }
    static void Check(int status) {
        Require(status <= 0 && status >= MORROW_FAILED, "a status that is none");
    }

    void Settings(std::uint8_t which) {
        char* text = nullptr;
        std::int32_t number = 0;
        morrow_camera_list* list = nullptr;
        switch (which) {
        case 0:
            return Check(morrow_camera_add(Server(), m_in.Of(kNames), m_in.Of(kTypes),
                                           m_in.Byte() % 4 != 0 ? "secret" : m_in.Text().c_str()));
        case 1:
            return Check(morrow_camera_change(Server(), m_in.Of(kNames), nullptr,
                                              m_in.Byte() % 2 != 0 ? "secret" : m_in.Text().c_str()));
        case 2:
            return Check(morrow_camera_remove(Server(), m_in.Of(kNames)));
        case 3:
            Check(morrow_camera_list_get(&list, Server()));
            return morrow_camera_list_free(list);
        case 4:
            Check(morrow_camera_password(&text, Server(), m_in.Of(kNames)));
            morrow_free(text);
            return Check(morrow_camera_connected(&number, Server(), m_in.Of(kNames)));
        case 5: // a document with a byte that is another one
            if (morrow_settings_get(&text, Server()) == MORROW_OK) {
                std::string document(text);
                document[(m_in.Byte() * 256U + m_in.Byte()) % document.size()] =
                    static_cast<char>(m_in.Byte());
                Check(morrow_settings_set(Server(), document.c_str()));
            }
            return morrow_free(text);
        case 6:
            return Check(morrow_settings_set(Server(), m_in.Text().c_str()));
        default:
            if (m_in.Byte() != 0)
                return Check(morrow_watchers_end(Server(), m_in.Of(kNames)));
            Require(morrow_server_destroy(TheProgram().server) == MORROW_OK);
            return TheProgram().Create();
        }
    }

    void Connection(std::uint8_t which) {
        const std::string upload = "POST /mobile/video/door HTTP/1.1\r\n\r\n";
        const std::string view =
            "GET /mobile/video/door?fps=25 HTTP/1.1\r\nAuthorization: Basic YTpz\r\n\r\n";
        switch (which) {
        case 8:
            return Take(upload + std::string(67, '\0') + "secret" + std::string(58, '\0') +
                        std::string(2, '\0'));
        case 9:
            return Take(view);
        case 10:
            return Take(m_in.Text());
        case 11: // a frame, whole
            return Send(std::string(1, '\4') + static_cast<char>(Jpeg().size() & 0xFF) +
                        static_cast<char>(Jpeg().size() >> 8) + Jpeg());
        case 12:
            return Send(m_in.Text());
        default:
            if (!m_far.empty())
                m_far.erase(m_far.begin() + m_in.Byte() % static_cast<int>(m_far.size()));
        }
    }

    void Picture(std::uint8_t which) {
        std::uint64_t handle = 0;
        std::int32_t numbers[3] = {};
        std::string bytes;
        switch (which) {
        case 14: {
            const char* const name = m_in.Byte() % 2 != 0 ? m_in.Of(kNames) : nullptr;
            const int status =
                morrow_subscribe(&handle, Server(), name, OnFrame, m_in.Byte() % 2 != 0 ? this : nullptr);
            return Keep(status, handle);
        }
        case 15:
            return Check(morrow_unsubscribe(Handle()));
        case 16: {
            const int status = morrow_source_open(&handle, Server(), m_in.Of(kNames));
            return Keep(status, handle);
        }
        case 17:
            return Check(morrow_source_close(Handle()));
        case 18:
            return Check(morrow_source_show_frame(Handle(), Handle()));
        case 19:
            bytes = Jpeg();
            bytes[m_in.Byte() % bytes.size()] = static_cast<char>(m_in.Byte());
            Check(morrow_jpeg_probe(&numbers[0], &numbers[1], &numbers[2], bytes.data(), bytes.size()));
            numbers[0] = morrow_jpeg_decode(&handle, bytes.data(), bytes.size());
            return Keep(numbers[0], handle);
        case 20:
            return Check(morrow_frame_keep(Handle()));
        case 21:
            return Check(morrow_frame_release(Handle()));
        case 22:
            return Show(Handle());
        default:
            return Encode();
        }
    }

    // What is lent of a frame, all of it, to a source and through the encoder.
    void Show(std::uint64_t handle) {
        morrow_picture picture = MORROW_PICTURE_INIT;
        const void* lent = nullptr;
        std::size_t size = 0;
        Check(morrow_frame_times(nullptr, nullptr, handle));
        Check(morrow_frame_jpeg(&lent, &size, handle));
        if (morrow_frame_picture(&picture, handle) != MORROW_OK)
            return;
        std::string rows(reinterpret_cast<const char*>(picture.y),
                         static_cast<std::size_t>(picture.y_stride) *
                             static_cast<std::size_t>(picture.height));
        Require(!rows.empty() && picture.width <= picture.y_stride);
        Check(morrow_source_show_picture(Handle(), &picture));
    }

    void Encode() {
        const std::vector<std::uint8_t> samples(std::size_t{256} * 256, m_in.Byte());
        morrow_picture picture = MORROW_PICTURE_INIT;
        picture.form = m_in.Byte() % 4;
        picture.width = m_in.Byte();
        picture.height = m_in.Byte();
        picture.y_stride = m_in.Byte();
        picture.chroma_stride = m_in.Byte();
        picture.y = picture.cb = samples.data();
        picture.cr = m_in.Byte() % 8 != 0 ? samples.data() : nullptr;
        void* bytes = nullptr;
        std::size_t size = 0;
        const int status = morrow_jpeg_encode(&bytes, &size, &picture, m_in.Byte());
        Check(status);
        Require((status == MORROW_OK) == (bytes != nullptr && size > 0));
        morrow_free(bytes);
    }

    static const std::string& Jpeg() {
        static const std::string jpeg = SmallJpeg();
        return jpeg;
    }

    // The library has what was read first, and the socket the rest.
    void Take(const std::string& said) {
        int ends[2];
        if (m_far.size() >= 16 || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            return;
        const std::size_t read = said.empty() ? 0 : m_in.Byte() % (said.size() + 1);
        platform::Descriptor near(ends[1]);
        m_far.emplace_back(ends[0]);
        (void)::send(ends[0], said.data() + read, said.size() - read, MSG_NOSIGNAL);
        g_pending += 1;
        const int status = morrow_take(Server(), near.Get(), said.data(), read, OnTaken, nullptr);
        Check(status);
        if (status == MORROW_OK)
            (void)near.Release();
        else
            g_pending -= 1;
    }
    void Send(const std::string& said) {
        if (!m_far.empty())
            (void)::send(m_far[m_in.Byte() % m_far.size()].Get(), said.data(), said.size(),
                         MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    Input m_in;
    std::vector<std::uint64_t> m_handles;
    std::vector<platform::Descriptor> m_far;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    (void)TheProgram();
    Input input(data, std::min(size, std::size_t{2048}));
    Run run(input);
    for (std::size_t step = 0; step < 100 && !run.IsDone(); ++step)
        run.Step();
    return 0;
}
