// Settings that hosts share, as entries of a store: one for each camera, and one for the address that phones
// are told.
#pragma once

#include <string>
#include <vector>

#include "host/base/store_mirror.h"
#include "host/settings/document.h"

namespace host {

// Of what there is in a document. A name that cannot be a key has none.
StoreMirror::Values SharedValues(const kit::SettingsDocument& document);
// Gives the document these values: cameras that have none leave, an address without one stays. Values that
// cannot be read are passed over.
void PutSharedValues(SettingsDocument& document, const StoreMirror::Values& values);
// The camera that a key is of; empty for the address.
std::string SharedCamera(std::string_view key);

// A line for each key whose values differ, for a person: "the camera \"yard\" has another password there".
// What differs in a password is not told.
std::vector<std::string> SharedDifferences(const StoreMirror::Values& here, const StoreMirror::Values& there);

} // namespace host
