// Who may ask for what.
//
//   path                          without demo users     with demo users
//   mobile/video... by POST       admin, phone           the same
//   mobile/video... else          any user               the same
//   mobile/config...              admin                  the same
//   mobile...                     any user               the same
//   settings...                   admin                  the same
//   everything else               admin, viewer          everybody, under a loopback name of this machine
//
// The name matters because a foreign page can have its own name point to this machine: its requests then look
// like those of the person at the browser, but for the Host line.
#pragma once

#include <optional>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

enum class Purpose { Watch, Upload, View, Mobile, Settings };

// Nothing when the request may go on; otherwise its answer. May wait, when wrong passwords came before.
std::optional<Answer> CheckAccess(const Request& request, Purpose purpose, const Services& services);

} // namespace host
