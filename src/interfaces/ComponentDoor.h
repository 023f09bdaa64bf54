// Ways into the component that stand in for doors which are not built yet.
//
// A host links the component and calls RegisterComponentClasses before it creates the server object; from
// then on it talks to it through the interfaces alone, but for the camera table: as long as the component
// reads no settings, AddCameraUntilSettings fills it.
#pragma once

#include "interfaces/IUploadServer.h"
#include "platform/status.h"

#define MORROWSTREAM_EXPORT __attribute__((visibility("default")))

// Registers the class factory of kUploadServerClass in this process.
MORROWSTREAM_EXPORT HRESULT RegisterComponentClasses();
MORROWSTREAM_EXPORT HRESULT RevokeComponentClasses();

// Enters a camera into the server's table and tells the subscriber. `type` is "320x240" or "160x120".
// E_INVALIDARG for an empty name, for one that is in the table already, and for a server that is not the
// component's.
MORROWSTREAM_EXPORT HRESULT AddCameraUntilSettings(IUploadServer* server, const char16_t* name,
                                                   const char16_t* type, const char16_t* password);
