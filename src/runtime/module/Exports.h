// The door of the library: what a client that has loaded it finds by name. docs/module.md has the statuses.
//
// A program that links the component's objects rather than loading the library has these as plain functions.
#pragma once

#include <cstdint>

#include "platform/com.h"
#include "platform/resources.h"

#define MORROWSTREAM_EXPORT extern "C" __attribute__((visibility("default")))

// S_FALSE while an object, a factory or a lock of a client is out, else S_OK.
MORROWSTREAM_EXPORT HRESULT DllCanUnloadNow();
// ModuleGetClassObject of this module.
MORROWSTREAM_EXPORT HRESULT DllGetClassObject(const GUID& oClass, const GUID& oInterface, void** ppObject);
MORROWSTREAM_EXPORT HRESULT DllRegisterServer();
MORROWSTREAM_EXPORT HRESULT DllUnregisterServer();

// Runs once when the library is mapped, before anything else of it does, and by itself. False when the module
// could not be initialised: the system's loader takes no answer, so it stays loaded and refuses everything
// with E_UNEXPECTED.
inline constexpr std::uint32_t kProcessAttach = 1;
bool ModuleEntryPoint(platform::ModuleHandle hModule, std::uint32_t nReason);
