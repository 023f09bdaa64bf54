// The schema of a camera's element: an `item` with all its attributes and children, and no values.
#pragma once

#include "platform/text.h"

// The text of the resource that holds it; empty when the module has none.
platform::Bstr CameraSchemaText();
