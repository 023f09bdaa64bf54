// What a configuration document has from the module's resources: the schema of a camera's element, and the
// display texts.
#pragma once

#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"
#include "platform/text.h"

// The text of the schema: an `item` with all its attributes and children, and no values. Empty when the
// module has none.
platform::Bstr CameraSchemaText();

// Writes the display texts under the cursor's element: an element `local` with one attribute for each, to
// which the labels of the other elements refer, in the language that the module is in. In load mode nothing
// is kept of what it reads. A text that the module does not have is an empty attribute.
void WriteLocalStrings(const CXmlConfigTree& oTree);
