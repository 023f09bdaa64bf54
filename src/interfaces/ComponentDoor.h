// The way into the component for a host that links it: it calls RegisterComponentClasses before it creates
// the server object, and from then on talks to it through the interfaces alone.
#pragma once

#include "interfaces/IUploadServer.h"
#include "platform/status.h"

#define MORROWSTREAM_EXPORT __attribute__((visibility("default")))

// Registers the class factory of kUploadServerClass in this process.
MORROWSTREAM_EXPORT HRESULT RegisterComponentClasses();
MORROWSTREAM_EXPORT HRESULT RevokeComponentClasses();
