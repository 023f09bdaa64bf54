// What a browser says of its session and in the forms for signing in, and what the files of sessions and
// phones hold: one who has no cookie of ours is nobody, no field of a form reaches another place than it is
// meant for, and what was read is written so that it is read again.

#include "fuzz/Fuzz.h"
#include "host/site/addresses.h"
#include "host/users/phones.h"
#include "host/users/session_cookie.h"
#include "host/users/sessions.h"
#include "platform/files.h"
#include "platform/text.h"
#include "support/temp_folder.h"

namespace {

constexpr std::uint16_t kPort = 8080;
constexpr std::string_view kId = "00000000000000000000000000000000000000000000000000000000000000ab";

std::optional<host::Request> RequestWith(std::string_view cookies) {
    return host::ParseRequest("GET / HTTP/1.1\r\nHost: localhost\r\nCookie: " + std::string(cookies) +
                              "\r\n\r\n")
        .request;
}

void ReadCookies(std::string_view text) {
    auto request = RequestWith(text);
    if (!request)
        return;
    for (int n = 0; n < 4; ++n) {
        const bool secure = (n & 1) != 0;
        const bool phone = (n & 2) != 0;
        const host::SessionCookie cookie = phone ? host::PhoneCookie(kPort) : host::UserCookie(kPort);
        request->secure = secure;
        const std::string name = std::string(secure ? "__Host-morrow-" : "morrow-") +
                                 (phone ? "phone-" : "") + (secure ? "" : "plain-") + std::to_string(kPort) +
                                 "=";
        const std::string_view id = cookie.In(*request);
        const std::string_view line = request->Field("Cookie");
        Require(id.empty() || (cookie.IsIn(*request) && line.find(name + std::string(id)) != line.npos));
        Require(!cookie.IsIn(*request) || line.find(name) != line.npos);
        // What was set is taken again, alone or behind others, and not when it is there twice.
        if (id.empty())
            continue;
        const auto twice = RequestWith(std::string(line) + "; " + name + std::string(kId));
        if (twice) {
            host::Request again = *twice;
            again.secure = secure;
            Require(cookie.In(again).empty());
        }
    }
}

void ReadForm(std::string_view text) {
    const auto request = RequestWith("");
    const auto name = host::FormValue(text, "name");
    const auto password = host::FormValue(text, "password");
    for (const auto& value : {name, password})
        Require(!value || (value->size() <= text.size() && value->find('\0') == value->npos &&
                           platform::Utf8ToWideStrict(*value).has_value()));
    const std::string wanted = host::FormValue(text, "to").value_or("");
    const std::string_view to = host::PageToGoTo(wanted);
    Require(to == "/" || (to == wanted && to.starts_with('/') && !to.starts_with("//")));
    const auto made = host::RequestAs({name.value_or(""), password.value_or("")}, to, *request);
    Require(!made || (made->path == to.substr(0, to.find('?')) && made->Field("Cookie").empty() &&
                      made->Host() == "localhost" && !made->hasBody));
}

void ReadFile(std::string_view text) {
    static const TempFolder folder;
    static const std::string path = folder.File("sessions");
    Require(SUCCEEDED(platform::ReplaceFile(path, text, 0600)));
    const auto digestOf = [](const host::Sessions::Owner& owner) { return owner.login.empty() ? "" : "d"; };
    const host::Sessions::Time now{std::chrono::seconds(1'800'000'000)};
    host::Sessions sessions(host::Sessions::InFile(path), digestOf);
    sessions.Sweep(now);
    for (const bool secure : {false, true}) {
        const auto owner = sessions.Find(kId, secure, now);
        (void)sessions.Save();
        const auto again = host::Sessions(host::Sessions::InFile(path), digestOf).Find(kId, secure, now);
        Require(owner.has_value() == again.has_value() &&
                (!owner || (owner->login == again->login && owner->camera == again->camera)));
    }
    // The phones have a file of their own.
    Require(SUCCEEDED(platform::ReplaceFile(path, text, 0600)));
    host::Phones phones(host::Phones::InFile(path),
                        [](const std::string& camera) { return camera.empty() ? "" : "d"; });
    phones.Sweep(now);
    for (const host::Phones::Listed& phone : phones.List())
        Require(phone.made.time_since_epoch() <= std::chrono::hours(24 * 366 * 10'000) &&
                !phone.phone.camera.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = AsText(data, size);
    ReadCookies(text);
    ReadForm(text);
    ReadFile(text);
    return 0;
}
