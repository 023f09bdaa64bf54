#include "host/site/recordings/stored_file.h"

#include <algorithm>
#include <charconv>

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
bool SendBytesOf(StoredFile& file, ByteRange range, Stream& stream, const Wakeup& stop,
                 std::chrono::milliseconds stall) {
    for (std::uint64_t at = range.first; at <= range.last;) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kPart, range.last - at + 1));
        const std::string part = file.Read(at, wanted);
        if (part.empty() || SendAll(stream, part, stop, stall) != SendResult::Sent)
            return false;
        at += part.size();
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

void SendStoredFile(StoredFile& file, const std::string& name, const Request& request, Stream& stream,
                    const Wakeup& stop, std::chrono::milliseconds stall) {
    const std::uint64_t size = file.size;
    const std::string version = "\"" + file.version + "\"";
    const std::string_view unless = request.Field("If-Range");
    const AskedRange asked =
        unless.empty() || unless == version ? ReadRange(request.Field("Range"), size) : AskedRange{};
    const ByteRange range = asked.range.value_or(ByteRange{0, size - 1});

    Answer answer = asked.possible ? Answer{} : Answer::Text(416, "The file has fewer bytes.");
    answer.headers["Accept-Ranges"] = "bytes";
    answer.headers["ETag"] = version;
    const std::string of = "/" + std::to_string(size);
    if (!asked.possible) {
        answer.headers["Content-Range"] = "bytes *" + of;
    } else {
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
    const bool bytes = asked.possible && size > 0 && request.method != "HEAD";
    const AnswerOptions options{.headOnly = request.method == "HEAD", .openEnded = asked.possible};
    if (SendAll(stream, Serialize(answer, options), stop, stall) == SendResult::Sent &&
        (!bytes || SendBytesOf(file, range, stream, stop, stall)))
        (void)FinishSending(stream, stop);
}

} // namespace host
