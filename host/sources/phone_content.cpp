#include "host/sources/source_table.h"

#include <string>
#include <utility>

#include "host/sources/sources.h"

namespace host {
namespace {

// Of the viewer that the calling thread was asked about last. Whoever opens a source, and whoever takes a
// picture of one, has been asked about on the same thread just before.
thread_local Rights t_viewer;

// A camera as one viewer has it.
class SeenCamera final : public kit::Source {
public:
    SeenCamera(kit::SourcePtr camera, std::string name)
        : m_camera(std::move(camera)), m_name(std::move(name)) {}

    kit::PicturePtr Now() override { return t_viewer.Sees(m_name) ? m_camera->Now() : nullptr; }

private:
    const kit::SourcePtr m_camera;
    const std::string m_name;
};

} // namespace

kit::ContentAccess PhoneContentOf(std::shared_ptr<SourceTable> sources,
                                  std::function<std::optional<Rights>(std::string_view token)> rightsOf) {
    return {.open = [sources = std::move(sources)](std::string_view key) -> kit::SourcePtr {
                kit::SourcePtr source = sources->Open(key, t_viewer);
                if (dynamic_cast<CameraSource*>(source.get()) == nullptr)
                    return source;
                return std::make_shared<SeenCamera>(std::move(source), std::string(key));
            },
            .knows =
                [rightsOf = std::move(rightsOf)](std::string_view token) {
                    const auto rights = rightsOf(token);
                    t_viewer = rights.value_or(Rights());
                    return rights.has_value();
                }};
}

} // namespace host
