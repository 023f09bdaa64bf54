// Files into a zip archive that goes out while it is made.
#pragma once

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct archive;

namespace host {

// One thread at a time.
class ZipWriter {
public:
    // Takes the archive's bytes in their order; false ends it.
    using Send = std::function<bool(std::string_view bytes)>;
    // Throws std::bad_alloc.
    explicit ZipWriter(Send send);
    ZipWriter(const ZipWriter&) = delete;
    ZipWriter& operator=(const ZipWriter&) = delete;
    ~ZipWriter();

    // A file as it is: pictures become no smaller. False, as below, when it cannot be sent, or not be made.
    bool Add(const std::string& name, std::time_t time, std::string_view content);
    bool Finish();

private:
    struct Free {
        void operator()(archive* writer) const noexcept;
    };
    Send m_send; // null: nobody takes it any more
    std::unique_ptr<archive, Free> m_archive;
};

} // namespace host
