#include <algorithm>

#include "host/log/console.h"
#include "host/site/api/message.h"
#include "host/sources/source_table.h"
#include "host/tls/digest.h"
#include "platform/messages.h"

namespace host {
namespace {

ApiJson CameraAsJson(const CameraEntry& camera) {
    return {{"name", camera.name}, {"type", camera.type}, {"hasPassword", !camera.password.empty()}};
}

Answer NoCamera() {
    return Answer::Text(404, "There is no camera of that name.");
}

Answer NoSettings() {
    return Answer::Text(503, "The component gives no settings.");
}

const CameraEntry* FindCameraOf(const std::vector<CameraEntry>& cameras, const std::string& name) {
    const auto found = std::ranges::find(cameras, name, &CameraEntry::name);
    return found != cameras.end() ? &*found : nullptr;
}

Answer ListAnswer(const Request& request, const std::vector<CameraEntry>& cameras,
                  const std::string& version) {
    ApiJson list = ApiJson::array();
    for (const CameraEntry& camera : cameras)
        list.push_back(CameraAsJson(camera));
    return ApiAnswer(request, {{"cameras", std::move(list)}}, version);
}

// The cameras that somebody sees. The version of the settings would tell who sees some of them of changes to
// the others, and nothing of a change of the rights; so there it is made of the cameras.
std::optional<Settings::CameraReading> CamerasSeen(Settings& settings, const Rights& rights) {
    auto reading = settings.Cameras();
    if (!reading || rights.SeesAll())
        return reading;
    std::erase_if(reading->cameras, [&](const CameraEntry& camera) { return !rights.Sees(camera.name); });
    std::string all;
    for (const CameraEntry& camera : reading->cameras)
        all += CameraAsJson(camera).dump() + '\n';
    reading->version = '"' + Sha256(all).substr(0, 32) + '"';
    return reading;
}

// What a problem of change N points to in the body that had it.
std::string PointerOf(const SettingsProblem& problem, bool batch) {
    if (batch && problem.path.starts_with("/changes/"))
        return problem.path;
    return "";
}

// Nothing when all of it is in force.
std::optional<Answer> CameraChangeRefused(const SettingsChange& change, bool batch) {
    using enum SettingsChange::Result;
    switch (change.result) {
    case Done:
    case NotWritten:
        return std::nullopt;
    case Outdated:
        return ApiOutdated();
    case Unshared:
        return ApiUnshared();
    case Unsound: {
        std::vector<ApiProblem> problems;
        for (const SettingsProblem& problem : change.problems)
            problems.push_back({PointerOf(problem, batch), problem.text});
        return ApiUnsound(problems);
    }
    case Refused:
        return Answer::Text(503,
                            "The component refuses this: " + platform::DescribeStatus(change.status) + ".");
    case NoDocument:
    case NotReady:
        break;
    }
    return NoSettings();
}

// In force, and on disk or not.
Answer CameraChanged(Answer answer, const SettingsChange& change) {
    answer.headers["ETag"] = change.now.version;
    std::string conflicts;
    for (const std::string& camera : change.conflicts)
        conflicts += (conflicts.empty() ? "" : ",") + PercentEncode(camera);
    if (!conflicts.empty())
        answer.headers["X-Settings-Conflicts"] = conflicts;
    if (change.result == SettingsChange::Result::NotWritten) {
        Console::Get().Log(
            "error", "the settings could not be written to disk; this is tried again every few seconds");
        answer.headers["X-Settings-Written"] = "no";
    }
    return answer;
}

} // namespace

void ApiPages::TellOfCameras(const ApiCall& call, const std::string& what, const std::string& camera) const {
    TellChange(events, EventKind::SettingsChanged, call.request, call.signIn, what, camera);
}

Answer ApiPages::Cameras(const ApiCall& call) const {
    const auto reading = CamerasSeen(settings, call.rights);
    return reading ? ListAnswer(call.request, reading->cameras, reading->version) : NoSettings();
}

Answer ApiPages::Camera(const ApiCall& call) const {
    const auto reading = CamerasSeen(settings, call.rights);
    if (!reading)
        return NoSettings();
    const auto name = ApiName(call);
    const CameraEntry* const camera = name ? FindCameraOf(reading->cameras, *name) : nullptr;
    return camera != nullptr ? ApiAnswer(call.request, CameraAsJson(*camera), reading->version) : NoCamera();
}

Answer ApiPages::CameraState(const ApiCall& call) const {
    const auto name = ApiName(call);
    const FeedPtr feed = name ? FindSeen(feeds, *name, call.rights) : nullptr;
    return feed ? Answer::Json(200, CameraJson(feed->Figures(), false)) : NoCamera();
}

Answer ApiPages::PutCamera(const ApiCall& call) const {
    const auto name = ApiName(call);
    if (!name)
        return NoCamera();
    ApiBody body(call, {"type", "password"});
    CameraChange wanted{.name = *name, .type = body.Text("type"), .password = body.Text("password")};
    if (const auto refused = body.Refused())
        return *refused;
    bool there = false;
    std::optional<Answer> unmet;
    const SettingsChange change =
        settings.ChangeCameras({&wanted, 1}, [&](const Settings::CameraReading& present) {
            there = FindCameraOf(present.cameras, *name) != nullptr;
            unmet = ReadCondition(call.request, there, present.version).refused;
            return !unmet;
        });
    if (unmet)
        return *unmet;
    if (const auto refused = CameraChangeRefused(change, false))
        return *refused;
    const CameraEntry* const camera = FindCameraOf(change.cameras, *name);
    if (camera == nullptr)
        return NoCamera();
    TellOfCameras(call, "camera \"" + Printable(*name) + "\" " + (there ? "changed" : "added"), *name);
    Answer answer = CameraChanged(Answer::Json(there ? 200 : 201, CameraAsJson(*camera)), change);
    if (!there)
        answer.headers["Location"] = call.request.path;
    return answer;
}

Answer ApiPages::RemoveCamera(const ApiCall& call) const {
    const auto name = ApiName(call);
    if (!name)
        return NoCamera();
    const CameraChange gone{.name = *name, .remove = true};
    std::optional<Answer> unmet;
    const SettingsChange change =
        settings.ChangeCameras({&gone, 1}, [&](const Settings::CameraReading& present) {
            unmet = FindCameraOf(present.cameras, *name) == nullptr
                        ? NoCamera()
                        : ReadCondition(call.request, true, present.version).refused;
            return !unmet;
        });
    if (unmet)
        return *unmet;
    if (const auto refused = CameraChangeRefused(change, false))
        return *refused;
    TellOfCameras(call, "camera \"" + Printable(*name) + "\" removed", *name);
    return CameraChanged(ApiDone(), change);
}

Answer ApiPages::ChangeCameras(const ApiCall& call) const {
    ApiBody body(call, {"changes"});
    std::vector<CameraChange> changes;
    const auto list = body.Json().find("changes");
    if (list == body.Json().end() || !list->is_array()) {
        body.Note("/changes", "this is a list of changes");
    } else {
        for (std::size_t i = 0; i < list->size(); ++i) {
            const ApiJson& each = (*list)[i];
            const std::string at = "/changes/" + std::to_string(i);
            if (!each.is_object()) {
                body.Note(at, "a change is an object");
                continue;
            }
            body.ExpectOnly(each, at, {"op", "name", "type", "password"});
            const auto op = body.TextOf(each, at, "op");
            const auto name = body.TextOf(each, at, "name");
            CameraChange change{.name = name.value_or(""),
                                .remove = op == "remove",
                                .type = body.TextOf(each, at, "type"),
                                .password = body.TextOf(each, at, "password")};
            if (op != "put" && op != "remove")
                body.Note(at + "/op", "this is one of put, remove");
            if (!name)
                body.Note(at + "/name", "a change names its camera");
            if (change.remove && (change.type || change.password))
                body.Note(at, "what is removed has no type and no password");
            changes.push_back(std::move(change));
        }
    }
    if (const auto refused = body.Refused())
        return *refused;
    std::optional<Answer> unmet;
    const SettingsChange change =
        settings.ChangeCameras(changes, [&](const Settings::CameraReading& present) {
            unmet = ReadCondition(call.request, true, present.version).refused;
            return !unmet;
        });
    if (unmet)
        return *unmet;
    if (const auto refused = CameraChangeRefused(change, true))
        return *refused;
    TellOfCameras(call, std::to_string(changes.size()) + (changes.size() == 1 ? " change" : " changes") +
                            " of cameras");
    return CameraChanged(ListAnswer(call.request, change.cameras, change.now.version), change);
}

} // namespace host
