// What the pages without script say, in every language of the server. Those with script have their words in
// host/page/shared/words.js.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace host {

enum class Word {
    // Several pages
    AllCameras,
    TryAgain,
    // In the place of a page that needs script
    NeedsScript,
    SmallPages,
    // The small pages
    Cameras,
    NothingToWatch,
    RefreshSeconds,
    Size,
    NoPicture,
    NoSuchCamera,
    // What a link for a phone leads to; {} is the camera, or the minutes
    PhoneBecomes,
    Install,
    Descriptor,
    GoodOnce,
    // What a phone installs
    ForPhones,
    ViewOnPhone,
    SendFromPhone,
    MidletName,
    Download,
    // How a device comes to trust this server
    Trust,
    TrustWarning,
    TrustLimits,
    TrustAgain,
    TrustGoOn,
    TrustCompare,
    TrustCertificate,
    TrustProfile,
    TrustAndroid,
    TrustIphone,
    TrustWindows,
    TrustMac,
    TrustLinux,
    TrustFirefox,
    TrustOperator,
    // Signing in and out
    ToSignIn,
    ToSignOut,
    UserName,
    Password,
    WrongPassword,
    ArchiveHolds,
    ChangePassword,
    PresentPassword,
    NewPassword,
    NewPasswordAgain,
    PasswordsDiffer,
    PasswordNotTaken,
    PasswordChanged,
    // Users, for who administers them; {} is the user
    Users,
    Settings,
    Kind,
    KindAdmin,
    KindViewer,
    KindPhone,
    SeesAll,
    SeesList,
    NewCameraInNoList,
    PasswordStays,
    AddUser,
    Save,
    Remove,
    RemoveUser,
    LoginTaken,
    LoginNotTaken,
    LastAdmin,
    ChangedMeanwhile,
    // Titles of refusals
    SignIn,
    NotForYou,
    NothingHere,
    NotThisWay,
    UsedUp,
    TooManyTries,
    NotNow,
    NotUnderstood,
    Failed,
};

inline constexpr std::size_t kLanguages = 7;
// The codes, English first.
const std::array<std::string_view, kLanguages>& TextLanguages() noexcept;
// Of those the one that a client wants most, from its Accept-Language line; else the server's.
std::string_view LanguageOf(std::string_view acceptLanguage, std::string_view usual) noexcept;

// A text in a language; in English for a language that is none of them.
std::string_view TextOf(std::string_view language, Word word) noexcept;
// The same with `value` in the place of "{}".
std::string TextOf(std::string_view language, Word word, std::string_view value);

} // namespace host
