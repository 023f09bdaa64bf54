// The component's own module: the image that carries its resources.
#pragma once

#include "platform/resources.h"

// The handle of this module. Its image is a resource instance from before main (or the library's load) to its
// end.
platform::ModuleHandle ThisModule() noexcept;
