#include "host/site/recordings/zip_writer.h"

#include <new>
#include <utility>

#include <archive.h>
#include <archive_entry.h>

namespace host {
namespace {

// Takes what nobody takes any more as well: behind a failed write the library would lose its buffers.
la_ssize_t SendBytes(archive* /*writer*/, void* context, const void* bytes, std::size_t size) {
    auto& send = *static_cast<ZipWriter::Send*>(context);
    if (send && !send({static_cast<const char*>(bytes), size}))
        send = nullptr;
    return static_cast<la_ssize_t>(size);
}

} // namespace

void ZipWriter::Free::operator()(archive* writer) const noexcept {
    archive_write_free(writer);
}

ZipWriter::ZipWriter(Send send) : m_send(std::move(send)), m_archive(archive_write_new()) {
    archive* const writer = m_archive.get();
    if (writer == nullptr || archive_write_set_format_zip(writer) != ARCHIVE_OK ||
        archive_write_zip_set_compression_store(writer) != ARCHIVE_OK ||
        archive_write_set_bytes_per_block(writer, 64 * 1024) != ARCHIVE_OK ||
        archive_write_set_bytes_in_last_block(writer, 1) != ARCHIVE_OK ||
        archive_write_open(writer, &m_send, nullptr, &SendBytes, nullptr) != ARCHIVE_OK)
        throw std::bad_alloc();
}

ZipWriter::~ZipWriter() {
    // What was begun stays as it is: who reads it sees that its end is missing.
    m_send = nullptr;
}

bool ZipWriter::Add(const std::string& name, std::time_t time, std::string_view content) {
    const std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                              &archive_entry_free);
    if (!entry)
        return false;
    archive_entry_set_pathname_utf8(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
    archive_entry_set_mtime(entry.get(), time, 0);
    return archive_write_header(m_archive.get(), entry.get()) == ARCHIVE_OK &&
           archive_write_data(m_archive.get(), content.data(), content.size()) ==
               static_cast<la_ssize_t>(content.size()) &&
           m_send;
}

bool ZipWriter::Finish() {
    return archive_write_close(m_archive.get()) == ARCHIVE_OK && m_send;
}

} // namespace host
