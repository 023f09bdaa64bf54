#include "capi/sources.h"

#include <charconv>

#include "capi/server.h"

namespace capi {
namespace {

// Without a picture for that long a watcher is shown that there is none.
constexpr std::chrono::seconds kStaleAfter{3};
constexpr kit::PlaneLayout kUsual{320, 240, true};

class CameraSource : public kit::Source {
public:
    explicit CameraSource(CameraSinkPtr sink) : m_sink(std::move(sink)) {}

    kit::PicturePtr Now() override {
        if (m_sink->IsGone())
            return nullptr;
        kit::PicturePtr newest = m_sink->Newest();
        if (newest && kit::HeldFrame::Clock::now() - newest->Arrival() < kStaleAfter)
            return newest;
        const kit::PlaneLayout size = newest ? newest->Layout() : kUsual;
        const std::lock_guard guard(m_mutex);
        if (!m_placeholder || m_placeholder->Layout().width != size.width ||
            m_placeholder->Layout().height != size.height)
            m_placeholder = kit::MakePlaceholder(size.width, size.height);
        return m_placeholder;
    }

private:
    const CameraSinkPtr m_sink;
    std::mutex m_mutex;
    kit::PicturePtr m_placeholder;
};

} // namespace

kit::PicturePtr OwnSource::Now() {
    const std::lock_guard guard(m_mutex);
    return m_picture;
}

void OwnSource::Show(kit::PicturePtr picture) {
    const std::lock_guard guard(m_mutex);
    if (m_picture)
        m_picture.swap(picture);
}

void OwnSource::Put(kit::PicturePtr picture) {
    const std::lock_guard guard(m_mutex);
    m_picture.swap(picture);
}

void Sources::Add(const OwnSourcePtr& source) {
    const std::lock_guard guard(m_mutex);
    if (!m_own.emplace(source->Name(), source).second)
        throw Failure(MORROW_EXISTS, "there is a source of that name");
}

void Sources::Remove(const OwnSource& source) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_own.find(source.Name());
    if (found != m_own.end() && found->second.get() == &source)
        m_own.erase(found);
}

std::vector<OwnSourcePtr> Sources::TakeAll() {
    std::vector<OwnSourcePtr> all;
    const std::lock_guard guard(m_mutex);
    for (auto& [name, source] : m_own)
        all.push_back(std::move(source));
    m_own.clear();
    return all;
}

kit::SourcePtr Sources::Open(std::string_view name) const {
    {
        const std::lock_guard guard(m_mutex);
        if (const auto found = m_own.find(name); found != m_own.end())
            return found->second;
    }
    const CameraSinkPtr sink = m_cameras ? m_cameras->Find(std::string(name)).sink : nullptr;
    return sink ? std::make_shared<CameraSource>(sink) : nullptr;
}

std::string Watchers::TokenOf(const std::string& login) const {
    const std::lock_guard guard(m_mutex);
    return std::to_string(m_now) + ":" + login;
}

bool Watchers::Knows(std::string_view token) const {
    std::uint64_t since = 0;
    const auto [colon, error] = std::from_chars(token.data(), token.data() + token.size(), since);
    if (error != std::errc{} || colon == token.data() + token.size())
        return false;
    const std::string_view login(colon + 1,
                                 static_cast<std::size_t>(token.data() + token.size() - colon - 1));
    const std::lock_guard guard(m_mutex);
    const auto ended = m_ended.find(login);
    return since > m_allEnded && (ended == m_ended.end() || since > ended->second);
}

void Watchers::End(const std::string& login) {
    const std::lock_guard guard(m_mutex);
    if (login.empty()) {
        m_allEnded = m_now;
        m_ended.clear();
    } else {
        m_ended[login] = m_now;
    }
    ++m_now;
}

} // namespace capi

using namespace capi;

int morrow_source_open(morrow_source* source, morrow_server server, const char* name) {
    return Call([&] {
        morrow_source& handle = Out(source);
        const ServerUse use(server);
        const auto made = std::make_shared<OwnSource>(NameOf(name, "the name of a source"),
                                                      kit::MakePlaceholder(kUsual.width, kUsual.height));
        handle = Enter(made, use->sources);
    });
}

int morrow_source_show_frame(morrow_source source, morrow_frame frame) {
    return Call([&] {
        const auto to = Lookup<OwnSource>(source);
        const FramePtr found = Lookup<Frame>(frame);
        (void)found->Picture(); // or a failure
        to->Show(PictureOf(found));
    });
}

int morrow_source_show_picture(morrow_source source, const morrow_picture* picture) {
    return Call([&] { Lookup<OwnSource>(source)->Show(CopyPicture(picture)); });
}

int morrow_source_close(morrow_source source) {
    return Call([&] {
        const auto closed = Retire<OwnSource>(source);
        closed->Close();
        if (const auto place = closed->place.lock())
            place->Remove(*closed);
    });
}

int morrow_watchers_end(morrow_server server, const char* login) {
    return Call([&] {
        const ServerUse use(server);
        use->watchers->End(login == nullptr ? "" : TextOf(login, "a login"));
    });
}
