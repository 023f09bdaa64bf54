// The interface for programs: JSON at /api/v1, described by openapi.json there.
//
// A request that changes something may come again: it then changes nothing. With If-Match it is carried out
// on the version that the ETag of an answer names, or not at all. What a version is of: all of the settings,
// for cameras; all users, for users; all preferences, for these. Passwords go in and never come out. Refusals
// are problem details (RFC 9457).
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "host/events/event_log.h"
#include "host/feed/feed_table.h"
#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/notices/notices.h"
#include "host/preferences/store.h"
#include "host/settings/settings.h"
#include "host/users/authenticator.h"
#include "host/users/phones.h"
#include "host/users/tokens.h"

namespace host {

// A request to one of them, as all operations see it.
struct ApiCall {
    const Request& request;
    std::string_view name; // percent-encoded; of the camera, user, phone or token that the path names
    std::string_view body;
    const SignIn& signIn;
    const Rights& rights; // which cameras there are for the sender
};

struct ApiPages {
    Settings& settings;
    EventLog& events;
    FeedTable& feeds;
    Authenticator& authenticator;
    Phones& phones;
    Tokens& tokens;
    PreferenceStore& preferences;
    Notices* const notices;                                           // null: nobody is told
    const std::function<void(std::string_view login)> forgetPassword; // of a first one that stands in a file

    [[nodiscard]] Answer Cameras(const ApiCall& call) const;
    // Several changes as one: all of them are carried out, or none.
    [[nodiscard]] Answer ChangeCameras(const ApiCall& call) const;
    [[nodiscard]] Answer Camera(const ApiCall& call) const;
    [[nodiscard]] Answer PutCamera(const ApiCall& call) const;
    [[nodiscard]] Answer RemoveCamera(const ApiCall& call) const;
    [[nodiscard]] Answer CameraState(const ApiCall& call) const;

    [[nodiscard]] Answer Users(const ApiCall& call) const;
    [[nodiscard]] Answer User(const ApiCall& call) const;
    [[nodiscard]] Answer PutUser(const ApiCall& call) const;
    [[nodiscard]] Answer RemoveUser(const ApiCall& call) const;
    // The sender's own.
    [[nodiscard]] Answer PutPassword(const ApiCall& call) const;

    [[nodiscard]] Answer PhoneList(const ApiCall& call) const;
    [[nodiscard]] Answer RevokePhone(const ApiCall& call) const;

    [[nodiscard]] Answer TokenList(const ApiCall& call) const;
    // The answer is the one place where the token itself is told.
    [[nodiscard]] Answer MakeToken(const ApiCall& call) const;
    [[nodiscard]] Answer RevokeToken(const ApiCall& call) const;

    // The host's own settings. What a body does not have stays as it is.
    [[nodiscard]] Answer GetPreferences(const ApiCall& call) const;
    [[nodiscard]] Answer PutPreferences(const ApiCall& call) const;
    // Of each who is told of events: what came of it.
    [[nodiscard]] Answer NoticeStates(const ApiCall& call) const;
    // Waits for what comes of it, some seconds.
    [[nodiscard]] Answer TestNotice(const ApiCall& call) const;

private:
    void TellOfUsers(const ApiCall& call, const std::string& what) const;
    void TellOfCameras(const ApiCall& call, const std::string& what, const std::string& camera = {}) const;
};

} // namespace host
