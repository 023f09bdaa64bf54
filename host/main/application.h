// The host from its start to its end.
#pragma once

#include "host/main/options.h"

namespace host {

// Serves until the time is over or a signal comes. SIGINT and SIGTERM must be blocked in the whole process.
// The exit status. Throws StartError.
int Serve(const Options& options);

// --add-user and --add-users.
int AddUser(const Options& options);
int AddUsers(const Options& options);

// --register and --unregister.
int ChangeRegistration(const Options& options);

// --language.
int SetLanguage(const Options& options);

} // namespace host
