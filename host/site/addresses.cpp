#include "host/site/addresses.h"

#include <algorithm>

#include "host/html/page.h"
#include "host/http/limits.h"
#include "host/site/connection.h"
#include "host/site/site.h"

namespace host {
namespace {

// The functions that answer at the addresses; they stand below the table.
using Page = void(const Site& site, Visit& visit);
Page LivePage, Tiles, MotionJpeg, Snapshot, ViewPage, ViewStream, TinyPage, File, Nothing;
Page Health, Metrics, Alive, Ready;
Page SettingsPage, SettingsState, GetSettings, PutSettings, GetPreferences, PutPreferences, GetSecret,
    PutLanguage;
Page EventsPage, EventNews, EventList;
Page RevokeLink, UseLink;
Page SourceList, PhoneContent, PhoneStream;
Page TrustPage, TrustFile;
Page PhonePage, PhoneManifest, PhoneState, PairPhone, SignInPhone, LeavePhone, PhoneSocket, PhonePicture;
Page ControlPhone;
Page CameraSnapshot, CameraLink, Description;
Page RecordingsPage, PictureOfThen, SaveRecordings, StoredFile, SavingState, StopSaving, RecordingList,
    RecordedTimes, KeepRecordings;
Page SignInPage, TakeSignIn, SignOut, PasswordPage, TakePassword, TakeArchive;
Page UsersPage, TakeUser;

// An operation of the interface for programs.
template <Answer (ApiPages::*Operation)(const ApiCall&) const>
void Api(const Site& site, Visit& visit) {
    visit.SendGoingOn(
        (site.api.*Operation)({visit.request, visit.rest, visit.body, visit.signIn, visit.rights}));
}

constexpr std::string_view kAssets = "/assets/";

// For what shows one camera.
Watches::MayGoOn WhileSeen(std::string camera) {
    return [camera = std::move(camera)](const Rights& now) { return now.Sees(camera); };
}

// For what shows one source. Those of the host's own are everybody's.
Watches::MayGoOn WhileOpen(const Visit& visit, std::string key) {
    if (visit.rights.Sees(key))
        return WhileSeen(std::move(key));
    return [](const Rights&) { return true; };
}

constexpr unsigned operator|(Method a, Method b) {
    return static_cast<unsigned>(a) | static_cast<unsigned>(b);
}
constexpr unsigned kRead = Method::Get | Method::Head;
constexpr auto kGet = static_cast<unsigned>(Method::Get);
constexpr auto kPost = static_cast<unsigned>(Method::Post);
constexpr auto kPut = static_cast<unsigned>(Method::Put);
constexpr auto kDelete = static_cast<unsigned>(Method::Delete);
constexpr auto kPatch = static_cast<unsigned>(Method::Patch);
constexpr unsigned kAny = kRead | kPost | kPut | kDelete | kPatch;
constexpr auto kSocket = static_cast<unsigned>(Method::WebSocket);

using enum Who;
using enum From;
using enum Form;
using enum Host;
using enum Place;
using enum Clear;

// clang-format off
constexpr Address kAddresses[] = {
//   pattern               methods  who        from       refusals body           host     place   clear    answered by
    {"/",                  kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Moved,   LivePage},
    {"/tiles",             kSocket, Watcher,   Here,      Text,    0,             Named,   Stream, Refused, Tiles},
    {"/live/*",            kRead,   Watcher,   Anywhere,  Text,    0,             Named,   Stream, Refused, MotionJpeg},
    {"/snapshot/*",        kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Refused, Snapshot},
    {"/view/*",            kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Moved,   ViewPage},
    {"/view/*",            kSocket, Watcher,   Here,      Text,    0,             Named,   Viewer, Refused, ViewStream},
    {"/recordings",        kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Moved,   RecordingsPage},
    {"/recordings/*",      kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Moved,   RecordingsPage},
    {"/recordings/*/at.jpg", kRead, Watcher,   Anywhere,  Text,    0,             Named,   None,   Refused, PictureOfThen},
    {"/recordings/*/export", kRead, Watcher,   Anywhere,  Text,    0,             Named,   Stream, Refused, SaveRecordings},
    {"/recordings/*/export", kDelete, Watcher, Here,      Json,    0,             Named,   None,   Refused, StopSaving},
    {"/recordings/*/file", kRead,   Watcher,   Anywhere,  Text,    0,             Named,   Stream, Refused, StoredFile},
    {"/recordings/*/export/state", kRead, Watcher, Here,  Json,    0,             Named,   None,   Refused, SavingState},
    {"/tiny/*",            kRead,   Watcher,   Anywhere,  Text,    0,             Unnamed, None,   Served,  TinyPage},
    {"/assets/*",          kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Moved,   File},
    {"/assets/phone/*",    kRead,   Everybody, Anywhere,  Text,    0,             Named,   None,   Moved,   File},
    {"/assets/shared/*",   kRead,   Everybody, Anywhere,  Text,    0,             Named,   None,   Moved,   File},
    {"/health",            kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Refused, Health},
    {"/metrics",           kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Refused, Metrics},
    {"/healthz",           kRead,   Everybody, Anywhere,  Text,    0,             Named,   Kept,   Served,  Alive},
    {"/readyz",            kRead,   Everybody, Anywhere,  Text,    0,             Named,   Kept,   Served,  Ready},
    {"/settings",          kRead,   Admin,     Anywhere,  Text,    0,             Named,   None,   Moved,   SettingsPage},
    {"/settings/",         kRead,   Admin,     Anywhere,  Text,    0,             Named,   None,   Moved,   SettingsPage},
    {"/settings/*",        kRead,   Admin,     Here,      Json,    0,             Named,   None,   Refused, Nothing},
    {"/settings/state",    kRead,   Admin,     Here,      Json,    0,             Named,   None,   Refused, SettingsState},
    {"/settings/document", kRead,   Admin,     Here,      Json,    0,             Named,   None,   Refused, GetSettings},
    {"/settings/document", kPut,    Admin,     HereToken, Json,    kMaxBodyBytes, Named,   None,   Refused, PutSettings},
    {"/settings/preferences", kRead, Admin,    Here,      Json,    0,             Named,   None,   Refused, GetPreferences},
    {"/settings/preferences", kPut,  Admin,    HereToken, Json,    kMaxBodyBytes, Named,   None,   Refused, PutPreferences},
    {"/settings/secret",   kRead,   Admin,     HereToken, Json,    0,             Named,   None,   Refused, GetSecret},
    {"/settings/language", kPut,    Admin,     HereToken, Json,    kMaxBodyBytes, Named,   None,   Refused, PutLanguage},
    {"/events",            kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Moved,   EventsPage},
    {"/events",            kSocket, Watcher,   Here,      Text,    0,             Named,   None,   Refused, EventNews},
    {"/links/*",           kDelete, LinkMaker, Here,      Text,    0,             Named,   None,   Refused, RevokeLink},
    {"/get/*",             kRead,   Everybody, Anywhere,  Text,    0,             Unnamed, None,   Served,  UseLink},
    {"/xslt/enum/all",     kRead,   AnyUser,   Anywhere,  Text,    0,             Unnamed, None,   Served,  SourceList},
    {"/mobile/*",          kRead,   AnyUser,   Anywhere,  Text,    0,             Unnamed, None,   Served,  PhoneContent},
    {"/mobile/config/*",   kRead,   Admin,     Here,      Text,    0,             Unnamed, None,   Refused, PhoneContent},
    {"/mobile/video/*",    kGet,    AnyUser,   Anywhere,  Text,    kBodyUnread,   Unnamed, Viewer, Served,  PhoneStream},
    {"/mobile/video/*",    kPost,   Uploader,  Anywhere,  Text,    kBodyUnread,   Unnamed, None,   Served,  PhoneStream},
    {"/phone",             kRead,   Everybody, Anywhere,  Text,    0,             Named,   None,   Moved,   PhonePage},
    {"/phone/manifest.webmanifest", kRead, Everybody, Here, Text,  0,             Named,   None,   Refused, PhoneManifest},
    {"/phone/state",       kRead,   Everybody, Here,      Json,    0,             Named,   None,   Refused, PhoneState},
    {"/phone/pair",        kPost,   Everybody, Own,       Json,    kMaxFormBytes, Named,   None,   Refused, PairPhone},
    {"/phone/sign-in",     kPost,   Everybody, Own,       Json,    kMaxFormBytes, Named,   None,   Refused, SignInPhone},
    {"/phone/leave",       kPost,   Everybody, Own,       Json,    kMaxFormBytes, Named,   None,   Refused, LeavePhone},
    {"/phone/socket",      kSocket, Everybody, Own,       Json,    0,             Named,   None,   Refused, PhoneSocket},
    {"/phone/picture",     kPost,   Everybody, Own,       Json,    kMaxPhonePictureBytes, Named, None, Refused, PhonePicture},
    {"/cameras/*",         kPost,   Admin,     Here,      Json,    kMaxFormBytes, Named,   None,   Refused, ControlPhone},
    {"/sign-in",           kRead,   Everybody, Anywhere,  Text,    0,             Named,   None,   Moved,   SignInPage},
    {"/sign-in",           kPost,   Everybody, Own,       Text,    kMaxFormBytes, Named,   None,   Refused, TakeSignIn},
    {"/sign-out",          kPost,   Everybody, Own,       Text,    kMaxFormBytes, Named,   None,   Refused, SignOut},
    {"/password",          kRead,   AnyUser,   Anywhere,  Text,    0,             Named,   None,   Moved,   PasswordPage},
    {"/password",          kPost,   AnyUser,   Own,       Text,    kMaxFormBytes, Named,   None,   Refused, TakePassword},
    {"/archive",           kPost,   Everybody, Own,       Text,    kMaxFormBytes, Named,   None,   Refused, TakeArchive},
    {"/users",             kRead,   Admin,     Anywhere,  Text,    0,             Named,   None,   Moved,   UsersPage},
    {"/users",             kPost,   Admin,     Own,       Text,    kMaxApiBodyBytes, Named, None,  Refused, TakeUser},
    {"/trust",             kRead,   Everybody, Anywhere,  Text,    0,             Unnamed, None,   Served,  TrustPage},
    {"/trust/*",           kRead,   Everybody, Anywhere,  Text,    0,             Named,   None,   Refused, TrustFile},
    // The interface for programs. A token is good here, and where watchers are let in.
    {"/api/v1/openapi.json",       kRead,   Everybody, Anywhere, Problem, 0,      Named,   None,   Served,  Description},
    {"/api/v1/health",             kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, Health},
    {"/api/v1/cameras",            kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::Cameras>},
    {"/api/v1/cameras",            kPatch,  Admin,     Here, Problem, kMaxApiBodyBytes,    Named, None, Refused, Api<&ApiPages::ChangeCameras>},
    {"/api/v1/cameras/*",          kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::Camera>},
    {"/api/v1/cameras/*",          kPut,    Admin,     Here, Problem, kMaxFormBytes,       Named, None, Refused, Api<&ApiPages::PutCamera>},
    {"/api/v1/cameras/*",          kDelete, Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::RemoveCamera>},
    {"/api/v1/cameras/*/state",    kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::CameraState>},
    {"/api/v1/cameras/*/snapshot", kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, CameraSnapshot},
    {"/api/v1/cameras/*/link",     kPost,   LinkMaker, Here, Problem, 0,                   Named, None, Refused, CameraLink},
    {"/api/v1/recordings",         kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, RecordingList},
    {"/api/v1/recordings/*",       kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, RecordedTimes},
    {"/api/v1/recordings/*/kept",  kPut,    Admin,     Here, Problem, 0,                   Named, None, Refused, KeepRecordings},
    {"/api/v1/recordings/*/kept",  kDelete, Admin,     Here, Problem, 0,                   Named, None, Refused, KeepRecordings},
    {"/api/v1/users",              kRead,   Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::Users>},
    {"/api/v1/users/*",            kRead,   Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::User>},
    {"/api/v1/users/*",            kPut,    Admin,     Here, Problem, kMaxFormBytes,       Named, None, Refused, Api<&ApiPages::PutUser>},
    {"/api/v1/users/*",            kDelete, Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::RemoveUser>},
    {"/api/v1/password",           kPut,    AnyUser, Here, Problem, kMaxFormBytes,       Named, None, Refused, Api<&ApiPages::PutPassword>},
    {"/api/v1/events",             kRead,   Watcher,   Here, Problem, 0,                   Named, None, Refused, EventList},
    {"/api/v1/phones",             kRead,   Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::PhoneList>},
    {"/api/v1/phones/*",           kDelete, Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::RevokePhone>},
    {"/api/v1/tokens",             kRead,   Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::TokenList>},
    {"/api/v1/tokens",             kPost,   Admin,     Here, Problem, kMaxFormBytes,       Named, None, Refused, Api<&ApiPages::MakeToken>},
    {"/api/v1/tokens/*",           kDelete, Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::RevokeToken>},
    {"/api/v1/preferences",        kRead,   Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::GetPreferences>},
    {"/api/v1/preferences",        kPut,    Admin,     Here, Problem, kMaxApiBodyBytes,    Named, None, Refused, Api<&ApiPages::PutPreferences>},
    {"/api/v1/notices",            kRead,   Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::NoticeStates>},
    {"/api/v1/notices/*/test",     kPost,   Admin,     Here, Problem, 0,                   Named, None, Refused, Api<&ApiPages::TestNotice>},
    {"/api/*",                    kAny,    Watcher,   Here, Problem, kMaxFormBytes,       Named, None, Refused, Nothing},
    {"/*",                 kRead,   Watcher,   Anywhere,  Text,    0,             Named,   None,   Moved,   Nothing},
};
// clang-format on

void LivePage(const Site& site, Visit& visit) {
    visit.Send(PageAnswer("live/index.html", visit.request, site.language, visit.AccountLine()));
}

void Tiles(const Site& site, Visit& visit) {
    const Offered offered{.settings = site.access.Offers(visit.signIn, Who::Admin),
                          .links = site.access.Offers(visit.signIn, Who::LinkMaker)};
    // The page begins anew with other rights.
    auto held = visit.TakeHeld([before = visit.rights](const Rights& now) { return now == before; });
    site.live.StartTiles(visit.Take(), visit.request, offered, visit.rights, std::move(held));
}

void MotionJpeg(const Site& site, Visit& visit) {
    const FeedPtr camera = site.live.CameraOf(visit.rest, visit.rights);
    if (!camera)
        return visit.Send(Answer::Text(404, "There is no camera of that name."));
    auto held = visit.TakeHeld(WhileSeen(camera->Name()));
    site.live.SendMotionJpeg(visit.Take(), camera, visit.IsHead(), std::move(held));
}

void Snapshot(const Site& site, Visit& visit) {
    visit.Send(site.live.Snapshot(visit.rest, visit.rights));
}

void ViewPage(const Site& site, Visit& visit) {
    visit.Send(site.view.SourceOf(visit.rest, visit.rights)
                   ? PageAnswer("viewer/index.html", visit.request, site.language, visit.AccountLine())
                   : Answer::Text(404, "There is no source of that name."));
}

void ViewStream(const Site& site, Visit& visit) {
    kit::SourcePtr source = site.view.SourceOf(visit.rest, visit.rights);
    if (!source)
        return visit.Send(Answer::Text(404, "There is no source of that name."));
    auto held = visit.TakeHeld(WhileOpen(visit, PercentDecode(visit.rest).value_or("")));
    site.view.Start(visit.Take(), visit.request, std::move(source), std::move(held));
}

void TinyPage(const Site& site, Visit& visit) {
    visit.Send(site.tiny.Page(visit.request, visit.rest, visit.rights));
}

void File(const Site&, Visit& visit) {
    const std::string_view path = visit.request.path;
    visit.Send(AssetAnswer(path.substr(std::min(path.size(), kAssets.size())), visit.request));
}

void Health(const Site& site, Visit& visit) {
    visit.Send(site.monitor.Health(visit.rights));
}

void Metrics(const Site& site, Visit& visit) {
    visit.Send(site.monitor.Metrics(visit.rights));
}

void Alive(const Site& site, Visit& visit) {
    visit.Send(site.monitor.Alive());
}

void Ready(const Site& site, Visit& visit) {
    visit.Send(site.monitor.Ready());
}

void SettingsPage(const Site& site, Visit& visit) {
    visit.Send(PageAnswer("settings/index.html", visit.request, site.language, visit.AccountLine()));
}

void SettingsState(const Site& site, Visit& visit) {
    visit.Send(site.settings.State());
}

void GetSettings(const Site& site, Visit& visit) {
    visit.Send(site.settings.Document());
}

void PutSettings(const Site& site, Visit& visit) {
    visit.Send(site.settings.PutDocument(visit.request, visit.signIn, visit.body));
}

void GetPreferences(const Site& site, Visit& visit) {
    visit.Send(site.settings.Preferences());
}

void PutPreferences(const Site& site, Visit& visit) {
    visit.Send(site.settings.PutPreferences(visit.request, visit.signIn, visit.body));
}

void GetSecret(const Site& site, Visit& visit) {
    visit.Send(site.settings.Secret(visit.request));
}

void PutLanguage(const Site& site, Visit& visit) {
    visit.Send(site.settings.PutLanguage(visit.request, visit.signIn, visit.body));
}

// Administrators see all of them.
EventPages::Sees SeesEvents(const Visit& visit) {
    if (visit.signIn.result == SignIn::Result::Known && Allows(visit.signIn.kind, Right::Administer))
        return {};
    return [rights = visit.rights](const Event& event) {
        return IsOfPictures(event.kind) && !event.camera.empty() && rights.Sees(event.camera);
    };
}

void EventsPage(const Site& site, Visit& visit) {
    visit.Send(PageAnswer("events/index.html", visit.request, site.language, visit.AccountLine()));
}

void EventNews(const Site& site, Visit& visit) {
    auto sees = SeesEvents(visit);
    // The page begins anew with other rights.
    auto held = visit.TakeHeld([before = visit.rights](const Rights& now) { return now == before; });
    site.events.StartNews(visit.Take(), visit.request, std::move(sees), std::move(held));
}

void EventList(const Site& site, Visit& visit) {
    visit.Send(site.events.List(visit.request, SeesEvents(visit)));
}

void RevokeLink(const Site& site, Visit& visit) {
    visit.Send(site.links.Revoke(visit.rest));
}

void UseLink(const Site& site, Visit& visit) {
    LinkReply reply = site.links.Use(visit.request, visit.rest);
    if (!reply.delivery)
        visit.Send(reply.answer);
    else if (visit.SendUntilArrived(reply.answer))
        reply.delivery->Done();
}

void SourceList(const Site& site, Visit& visit) {
    visit.Send(site.mobile.SourceList(visit.request, visit.rights));
}

void PhoneStream(const Site& site, Visit& visit) {
    const auto handler = site.mobile.HandlerOf(visit.request, true);
    // An upload shows nothing.
    auto place = visit.request.method == "GET"
                     ? visit.TakePlace(WhileOpen(visit, MobilePages::SourceKeyOf(visit.request)))
                     : nullptr;
    const auto refused =
        handler ? site.mobile.HandOver(visit.Offer(), visit.request, visit.signIn, std::move(place), *handler,
                                       [&visit] { visit.ShareSeat()->Leave(); })
                : Answer::Text(404, "There is nothing here.");
    if (refused)
        visit.SendLast(*refused);
}

void PhoneContent(const Site& site, Visit& visit) {
    // An archive holds the name and the password that it was asked for with, and a session has none.
    if (!visit.signIn.session.empty() && MobilePages::MayBuildArchive(visit.request.path)) {
        if (site.account.AsksByForm(visit.request))
            return visit.Send(site.account.ArchivePage(visit.request));
        Answer ask = Answer::Text(401, "An archive is made for a name and a password: sign in with them.");
        ask.headers["WWW-Authenticate"] = kChallenge;
        return visit.Send(ask);
    }
    visit.Send(site.mobile.Content(visit.request, visit.signIn.credentials.login,
                                   site.access.Offers(visit.signIn, Who::Watcher)));
}

void SignInPage(const Site& site, Visit& visit) {
    const auto to = FormValue(visit.request.query, "to").value_or("");
    visit.Send(site.account.SignInPage(visit.request, PageToGoTo(to)));
}

void TakeSignIn(const Site& site, Visit& visit) {
    const auto to = FormValue(visit.body, "to").value_or("");
    visit.Send(site.account.TakeSignIn(visit.request, visit.body, PageToGoTo(to)));
}

void SignOut(const Site& site, Visit& visit) {
    visit.Send(site.account.SignOut(visit.request));
}

void PasswordPage(const Site& site, Visit& visit) {
    visit.Send(site.account.PasswordPage(visit.request, visit.signIn));
}

void TakePassword(const Site& site, Visit& visit) {
    visit.Send(site.account.TakePassword(visit.request, visit.signIn, visit.body));
}

void UsersPage(const Site& site, Visit& visit) {
    visit.Send(site.users.Page(visit.request));
}

void TakeUser(const Site& site, Visit& visit) {
    visit.Send(site.users.Take(visit.request, visit.signIn, visit.body));
}

void TakeArchive(const Site& site, Visit& visit) {
    const std::string wanted = FormValue(visit.body, "to").value_or("");
    const std::string_view archive = PageToGoTo(wanted);
    if (!MobilePages::MayBuildArchive(archive.substr(0, archive.find('?'))))
        return visit.Send(Answer::Text(404, "There is no archive of that name."));
    // In clear, on this machine or where everything is served so, a form would be no better than Basic.
    if (!visit.request.secure)
        return visit.Send(Answer::Text(403, "This goes over https alone."));
    SignIn signIn;
    if (const auto refused = site.account.RefuseArchive(visit.request, visit.body, archive, signIn))
        return visit.Send(*refused);
    const auto request = RequestAs(signIn.credentials, archive, visit.request);
    visit.Send(request ? site.mobile.Content(*request, signIn.credentials.login)
                       : Answer::Text(404, "There is no archive of that name."));
}

void PhonePage(const Site& site, Visit& visit) {
    visit.Send(site.phone.Page(visit.request));
}

void PhoneManifest(const Site& site, Visit& visit) {
    visit.Send(site.phone.Manifest(visit.request));
}

void PhoneState(const Site& site, Visit& visit) {
    visit.Send(site.phone.State(visit.request));
}

void PairPhone(const Site& site, Visit& visit) {
    visit.Send(site.phone.Pair(visit.request, visit.body));
}

void SignInPhone(const Site& site, Visit& visit) {
    visit.Send(site.phone.SignIn(visit.request, visit.body));
}

void LeavePhone(const Site& site, Visit& visit) {
    visit.Send(site.phone.Leave(visit.request));
}

void PhoneSocket(const Site& site, Visit& visit) {
    const auto phone = site.phone.PhoneOf(visit.request);
    if (!phone)
        return visit.Send(PhonePages::NoPhone());
    auto held = visit.TakeHeld();
    site.phone.StartSocket(
        visit.Take(), visit.request, *phone, [seat = visit.ShareSeat()] { seat->Leave(); }, std::move(held));
}

void PhonePicture(const Site& site, Visit& visit) {
    visit.SendGoingOn(site.phone.TakePicture(visit.request, visit.body));
}

void CameraSnapshot(const Site& site, Visit& visit) {
    visit.Send(site.live.Snapshot(std::string(visit.rest) + ".jpg", visit.rights));
}

void CameraLink(const Site& site, Visit& visit) {
    visit.Send(site.links.Make(PercentDecode(visit.rest), visit.request));
}

RecordingsVisitor VisitorOf(const Site& site, const Visit& visit) {
    return {visit.rights, site.access.Offers(visit.signIn, Who::Admin)};
}

void RecordingsPage(const Site& site, Visit& visit) {
    // The same for every name: what there is of it the page asks.
    visit.Send(visit.rest.find('/') == std::string_view::npos
                   ? PageAnswer("recordings/index.html", visit.request, site.language, visit.AccountLine())
                   : Answer::Text(404, "There is nothing here."));
}

void PictureOfThen(const Site& site, Visit& visit) {
    visit.Send(site.recordings.Picture(VisitorOf(site, visit), visit.rest, visit.request));
}

void SendRecorded(Visit& visit, const RecordingPages::Export& saving) {
    if (saving.refused)
        return visit.Send(*saving.refused);
    // What is left of a camera that is gone nobody but an administrator gets, who sees all.
    const auto held = visit.TakeHeld(WhileSeen(PercentDecode(visit.rest).value_or("")));
    auto stream = visit.Take();
    saving.send(stream);
}

void SaveRecordings(const Site& site, Visit& visit) {
    SendRecorded(visit, site.recordings.Save(VisitorOf(site, visit), visit.rest, visit.request));
}

void StoredFile(const Site& site, Visit& visit) {
    SendRecorded(visit, site.recordings.File(VisitorOf(site, visit), visit.rest, visit.request));
}

void SavingState(const Site& site, Visit& visit) {
    visit.Send(site.recordings.ExportProgress(visit.request));
}

void StopSaving(const Site& site, Visit& visit) {
    visit.Send(site.recordings.StopExport(visit.request));
}

void RecordingList(const Site& site, Visit& visit) {
    visit.SendGoingOn(site.recordings.List(VisitorOf(site, visit)));
}

void RecordedTimes(const Site& site, Visit& visit) {
    visit.SendGoingOn(site.recordings.Camera(VisitorOf(site, visit), visit.rest, visit.request));
}

void KeepRecordings(const Site& site, Visit& visit) {
    visit.Send(site.recordings.Keep(VisitorOf(site, visit), visit.rest, visit.request, visit.signIn,
                                    visit.request.method == "PUT"));
}

void Description(const Site&, Visit& visit) {
    visit.Send(AssetAnswer("api/openapi.json", visit.request));
}

void ControlPhone(const Site& site, Visit& visit) {
    visit.Send(site.phone.Control(visit.rest, visit.body));
}

void TrustPage(const Site& site, Visit& visit) {
    visit.Send(site.trust.Page(visit.request));
}

void TrustFile(const Site& site, Visit& visit) {
    visit.Send(site.trust.File(visit.rest));
}

void Nothing(const Site&, Visit& visit) {
    visit.Send(Answer::Refusal(visit.refusals, 404, "There is nothing here."));
}

constexpr bool HasSubtree(std::string_view pattern) {
    return pattern.ends_with("/*");
}

// What "*" in the middle of a pattern stands for in a path; nothing where it does not fit, or has none.
std::optional<std::string_view> PartOf(std::string_view pattern, std::string_view path) noexcept {
    const auto star = pattern.find("/*/");
    if (star == std::string_view::npos)
        return std::nullopt;
    const std::string_view before = pattern.substr(0, star + 1);
    const std::string_view behind = pattern.substr(star + 2);
    if (path.size() <= before.size() + behind.size() || !path.starts_with(before) || !path.ends_with(behind))
        return std::nullopt;
    path.remove_prefix(before.size());
    path.remove_suffix(behind.size());
    return path.find('/') == std::string_view::npos ? std::optional(path) : std::nullopt;
}

// How closely a pattern fits a path; 0 when it does not. Of two that fit, the longer one is closer, and of
// two of one length the path itself.
std::size_t FitOf(std::string_view pattern, std::string_view path) noexcept {
    if (!HasSubtree(pattern))
        return path == pattern || PartOf(pattern, path) ? 2 * pattern.size() + 2 : 0;
    pattern.remove_suffix(2);
    const bool fits =
        path.starts_with(pattern) && (path.size() == pattern.size() || path[pattern.size()] == '/');
    return fits ? 2 * pattern.size() + 1 : 0;
}

// The component undoes escapes and cuts slashes before it looks for its settings, which hold the passwords of
// the cameras. So whatever could be these counts as their address.
bool MayBeSettingsOfComponent(std::string_view path) {
    if (!path.starts_with("/mobile/") || path.starts_with("/mobile/video/"))
        return false;
    const auto decoded = PercentDecode(path);
    return !decoded || decoded->find("config") != std::string::npos;
}

unsigned MethodOf(const Request& request) noexcept {
    for (const auto& [method, name] : kMethodNames) {
        if (request.method == name)
            return static_cast<unsigned>(method);
    }
    return 0;
}

// Every pattern is a path, and no two rows answer one method of it.
constexpr bool IsSound() {
    for (const Address& row : kAddresses) {
        for (const Address& other : kAddresses) {
            if (&row != &other && row.pattern == other.pattern && (row.methods & other.methods) != 0)
                return false;
        }
        if (!row.pattern.starts_with('/') || row.methods == 0)
            return false;
    }
    return true;
}
static_assert(IsSound());

} // namespace

std::span<const Address> Addresses() noexcept {
    return kAddresses;
}

std::string_view PageToGoTo(std::string_view wanted) {
    // Nothing that could be more than a path of this server, whatever a browser makes of it.
    const bool plain = std::ranges::all_of(wanted, [](char c) { return c > ' ' && c < 127 && c != '\\'; });
    if (!plain || !wanted.starts_with('/') || wanted.starts_with("//"))
        return "/";
    Request request;
    request.method = "GET";
    request.path = wanted.substr(0, wanted.find('?'));
    const Address* const address = FindAddress(request).address;
    const bool page = address != nullptr && address->clear == Clear::Moved && address->pattern != "/*" &&
                      !address->pattern.starts_with(kAssets) && address->pattern != "/sign-in";
    return page || (address != nullptr && (address->pattern == "/tiny/*" || address->pattern == "/mobile/*"))
               ? wanted
               : "/";
}

AddressMatch FindAddress(const Request& request) {
    const std::string_view path =
        MayBeSettingsOfComponent(request.path) ? "/mobile/config" : std::string_view(request.path);
    AddressMatch match;
    std::size_t closest = 0;
    for (const Address& row : kAddresses) {
        const std::size_t fit = FitOf(row.pattern, path);
        if (fit < closest || fit == 0)
            continue;
        if (fit > closest)
            match = {nullptr, &row, 0, {}};
        closest = fit;
        match.methods |= row.methods;
    }
    unsigned method = MethodOf(request);
    if (request.wantsWebSocket && method == kGet && (match.methods & kSocket) != 0)
        method = kSocket;
    for (const Address& row : kAddresses) {
        if (row.pattern == match.pattern->pattern && (row.methods & method) != 0)
            match.address = &row;
    }
    if (const auto part = PartOf(match.pattern->pattern, path))
        match.rest = *part;
    else if (HasSubtree(match.pattern->pattern))
        match.rest = path.substr(std::min(path.size(), match.pattern->pattern.size() - 1));
    return match;
}

} // namespace host
