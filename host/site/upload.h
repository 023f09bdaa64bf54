// Handing a phone's connection over to the component.
#pragma once

#include "host/base/wait.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

// The path that a handler gets: without its leading "/", with the query. An upload names its camera in the
// path, and the component takes that name as it stands; so for an upload the percent escapes are undone here
// ("front%20door" is the camera "front door"), while a viewer's path, whose escapes the component undoes
// itself, stays as it came. A path that cannot be decoded stays as it came, too.
std::u16string HandlerPath(const Request& request);

// Whether a handler that takes the path for a stream's finds a name there: it counts on "mobile/video" at the
// front, and takes what follows for the name, whatever it is.
bool IsStreamAddress(std::u16string_view handlerPath) noexcept;

// Takes the socket, from which nothing behind the head has been read, and gives it to the handler. An upload
// is handed over only once its authentication record is there, so that the component never waits for it.
void HandOver(Descriptor socket, const Request& request, IWebHandler& handler, const Services& services);

} // namespace host
