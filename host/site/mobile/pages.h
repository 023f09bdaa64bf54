// Answers phones with what the component gives.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/counters.h"
#include "host/base/wait.h"
#include "host/bridge/intake.h"
#include "host/feed/feed_table.h"
#include "host/http/answer.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"
#include "host/sources/source_table.h"
#include "host/users/authenticator.h"
#include "host/users/shares.h"
#include "kit/component/web_handler_host.h"

namespace host {

struct MobilePages {
    kit::WebHandlerHost& handlers;
    FeedTable& feeds;
    const SourceTable& sources;
    Authenticator& authenticator;
    ShareTable& shares;
    const Limits& limits;
    Counters& counters;
    const Wakeup& stop;
    const std::string& language; // the server's

    // The component's handler of a request that is a stream to it, or of one that is none; null when there is
    // no such handler.
    [[nodiscard]] platform::ComPtr<IWebHandler> HandlerOf(const Request& request, bool stream) const;

    // The handler's answer to a GET or HEAD.
    //
    // Texts go out as UTF-8, without the zero that the component puts behind them. A page that names a style
    // sheet of the same handler is sent as HTML to clients that prefer it; the page for phones is made by a
    // sheet of this server's, in the language of the client. Archives carry the name that the
    // query gives them, and a path NAME.jad is the descriptor of the archive NAME.jar. Nothing of it is kept
    // by caches: an archive holds a password. `login` has so many archives built at a time as one may;
    // whether who asks may look at the cameras in a browser as well, the page for phones offers that.
    [[nodiscard]] Answer Content(const Request& request, std::string_view login, bool looks = false) const;

    // Whether answering takes building an archive: one itself, its descriptor, and whatever else the
    // component may take for one of them.
    [[nodiscard]] static bool MayBuildArchive(std::string_view path);

    // The key of the source that a viewing phone asks for, as the component takes it from the path; empty for
    // what is none.
    [[nodiscard]] static std::string SourceKeyOf(const Request& request);

    // Takes the connection, from which nothing behind the head has been read, and gives its socket to the
    // handler; or leaves it and returns what to answer. Under TLS the handler gets one end of a bridge, and
    // the call lasts as long as the phone does; `begun` is called once it has been taken. The place goes back
    // when the handler's last thread has done with the connection. An upload is handed over only once its
    // authentication record is there, so that the component never waits for it.
    //
    // Every record takes its turn as a password does. A wrong one for a camera that is receiving is denied
    // here: the component would end the running upload before it compares.
    std::optional<Answer> HandOver(Stream& stream, const Request& request, const SignIn& signIn,
                                   Shares::Share place, IWebHandler& handler,
                                   const std::function<void()>& begun) const;

    // "/xslt/enum/all": what the midlet's manifest names as its list of cameras, and what the mobile page
    // links to. The query names the form: xslt=cameras.xsl is plain text for the midlet, a line a source that
    // the phone sees with its key, a tab and its name; any other form is for a browser, which is sent to the
    // live page.
    [[nodiscard]] Answer SourceList(const Request& request, const Rights& rights) const;
};

// --- Made here of what the component gives ---

// The text of a .jad (MIDP 2.0, "MIDlet Suite Packaging") for an archive that will come from `url`: what the
// archive's manifest says of the suite, word for word, since a phone compares the two, and the archive's
// exact size. In UTF-8, lines end in CR LF. Nothing for bytes that are no archive with a manifest, or when
// the manifest does not tell what a descriptor must.
std::optional<std::string> DescribeArchive(const std::string& archive, const std::string& url);

// The address that a document names as its style sheet, from its first xml-stylesheet instruction of type
// text/xsl; empty where there is none.
std::string StyleSheetOf(std::string_view document);

// Values of the parameters of a sheet, by name.
using StyleParameters = std::vector<std::pair<std::string, std::string>>;

// The document as the style sheet has it, in the sheet's own output form. Nothing when one of the two cannot
// be read or the transformation fails. Neither can reach a file or the network. Any thread.
std::optional<std::string> ApplyStyleSheet(const std::string& document, const std::string& styleSheet,
                                           const StyleParameters& parameters = {});

// --- Phones under TLS ---

// Stands between such a phone and the component, which reads and writes a socket by itself: a pair of
// connected sockets, of which the component has one. Carry moves bytes between the other one and the phone.
class Bridge {
public:
    // The component's end.
    [[nodiscard]] Descriptor& Inner() noexcept { return m_pair.inner; }
    // A few bytes of the phone's that were read before; they have room in the socket.
    void Feed(std::string_view bytes) noexcept;
    // Until one of the two sides has ended and the other one has got what was on its way, or takes nothing
    // for `stall` then. The thread is one of the connection.
    void Carry(Stream& phone, const Wakeup& stop, std::chrono::milliseconds stall);

private:
    SocketPair m_pair; // throws std::system_error
};

} // namespace host
