// Who is told of events, and what came of it.
#include "host/site/api/message.h"

namespace host {
namespace {

ApiJson ResultAsJson(const NoticeResult& result) {
    return {
        {"time", ApiTime(result.time)}, {"good", result.good}, {"test", result.test}, {"text", result.text}};
}

ApiJson StateAsJson(const NoticeState& state) {
    return {{"on", state.on},
            {"waiting", state.waiting},
            {"taken", state.taken},
            {"refused", state.refused},
            {"tooOld", state.tooOld},
            {"failures", state.failures},
            {"last", state.last ? ResultAsJson(*state.last) : ApiJson()}};
}

Answer NoReceiver() {
    return Answer::Text(404, "There is no receiver of notices of that name.");
}

} // namespace

Answer ApiPages::NoticeStates(const ApiCall&) const {
    ApiJson states = ApiJson::object();
    for (const std::string_view name : Notices::kNames) {
        if (NoticeLine* const line = notices != nullptr ? notices->Find(name) : nullptr)
            states[std::string(name)] = StateAsJson(line->State());
    }
    return Answer::Json(200, states);
}

Answer ApiPages::TestNotice(const ApiCall& call) const {
    NoticeLine* const line = notices != nullptr ? notices->Find(call.name) : nullptr;
    if (line == nullptr)
        return NoReceiver();
    const auto result = line->Test();
    if (!result)
        return Answer::Text(409, "Nobody is told this way: set it up first.");
    return Answer::Json(200, ResultAsJson(*result));
}

} // namespace host
