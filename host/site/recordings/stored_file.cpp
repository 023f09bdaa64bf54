#include "host/site/recordings/stored_file.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/http/answer.h"
#include "host/http/wire.h"

namespace host {
namespace {

constexpr std::size_t kPart = 256 * 1024;

std::optional<std::uint64_t> WholeNumber(std::string_view text) noexcept {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

// True when all of them went out: the head has told how many there are.
bool SendBytesOf(int file, ByteRange range, Stream& stream, const Wakeup& stop,
                 std::chrono::milliseconds stall) {
    std::vector<char> part(kPart);
    for (std::uint64_t at = range.first; at <= range.last;) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kPart, range.last - at + 1));
        const ssize_t read = ::pread(file, part.data(), wanted, static_cast<off_t>(at));
        if (read <= 0 ||
            SendAll(stream, {part.data(), static_cast<std::size_t>(read)}, stop, stall) != SendResult::Sent)
            return false;
        at += static_cast<std::uint64_t>(read);
    }
    return true;
}

} // namespace

AskedRange ReadRange(std::string_view value, std::uint64_t size) noexcept {
    constexpr std::string_view kBytes = "bytes=";
    const auto dash = value.find('-');
    if (!value.starts_with(kBytes) || dash == std::string_view::npos)
        return {};
    const std::string_view from = value.substr(kBytes.size(), dash - kBytes.size());
    const std::string_view to = value.substr(dash + 1);
    const auto first = WholeNumber(from);
    const auto last = WholeNumber(to);
    if ((!first && !from.empty()) || (!last && !to.empty()) || (!first && !last))
        return {};
    if (!first) // so many at the end
        return *last == 0 || size == 0 ? AskedRange{false, {}}
                                       : AskedRange{true, ByteRange{size - std::min(*last, size), size - 1}};
    if (last && *last < *first)
        return {};
    if (*first >= size)
        return {false, {}};
    return {true, ByteRange{*first, std::min(last.value_or(size - 1), size - 1)}};
}

void SendStoredFile(const std::string& path, const std::string& name, const Request& request, Stream& stream,
                    const Wakeup& stop, std::chrono::milliseconds stall) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat state {};
    const bool there = file && ::fstat(file.Get(), &state) == 0 && S_ISREG(state.st_mode);
    const auto size = there ? static_cast<std::uint64_t>(state.st_size) : 0;
    const std::string version = "\"" + std::to_string(size) + "-" + std::to_string(state.st_mtim.tv_sec) +
                                "." + std::to_string(state.st_mtim.tv_nsec) + "\"";
    const std::string_view unless = request.Field("If-Range");
    const AskedRange asked =
        unless.empty() || unless == version ? ReadRange(request.Field("Range"), size) : AskedRange{};
    const ByteRange range = asked.range.value_or(ByteRange{0, size - 1});

    Answer answer = !there            ? Answer::Text(404, "That file is gone.")
                    : !asked.possible ? Answer::Text(416, "The file has fewer bytes.")
                                      : Answer{};
    if (there) {
        answer.headers["Accept-Ranges"] = "bytes";
        answer.headers["ETag"] = version;
    }
    const std::string of = "/" + std::to_string(size);
    if (!asked.possible) {
        answer.headers["Content-Range"] = "bytes *" + of;
    } else if (there) {
        answer.type = "video/x-matroska";
        answer.headers["Content-Disposition"] = "attachment; filename*=UTF-8''" + PercentEncode(name);
        answer.headers["Cache-Control"] = "private, no-cache";
        answer.headers["Content-Length"] = std::to_string(size == 0 ? 0 : range.last - range.first + 1);
        if (asked.range) {
            answer.status = 206;
            answer.headers["Content-Range"] =
                "bytes " + std::to_string(range.first) + "-" + std::to_string(range.last) + of;
        }
    }
    const bool bytes = there && asked.possible && size > 0 && request.method != "HEAD";
    const AnswerOptions options{.headOnly = request.method == "HEAD", .openEnded = there && asked.possible};
    if (SendAll(stream, Serialize(answer, options), stop, stall) == SendResult::Sent &&
        (!bytes || SendBytesOf(file.Get(), range, stream, stop, stall)))
        (void)FinishSending(stream, stop);
}

} // namespace host
