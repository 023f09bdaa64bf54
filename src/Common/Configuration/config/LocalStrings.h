// The display texts of a document: an element `local` with one attribute for each, to which the labels of the
// other elements refer.
#pragma once

#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"

// Writes the element under the cursor's, in the language that the module is in. In load mode nothing is kept
// of what it reads. A text that the module does not have is an empty attribute.
void WriteLocalStrings(const CXmlConfigTree& oTree);
