#include "host/site/monitor/health.h"

namespace host {

std::optional<Answer> ProbeAnswer(const Request& request, const Services& services) {
    const bool ready = request.path == "/readyz";
    if ((!ready && request.path != "/healthz") || (request.method != "GET" && request.method != "HEAD"))
        return std::nullopt;
    const std::string trouble = ready ? services.settings.Trouble() : "";
    const char* const good = ready ? "ready" : "ok";
    Answer answer = trouble.empty() ? Answer::Text(200, good) : Answer::Text(503, trouble);
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

} // namespace host
