// The manifest of a personal midlet archive: all that a phone must know, since nothing is set up on it.
#pragma once

#include <string>

// All texts are bytes in the calling thread's code page. The texts of the user interface are UTF-8 whatever
// that page is, so one manifest can hold two encodings.
struct SManifestValues {
    std::string strJarName;
    std::string strLogin;
    std::string strPassword; // stands in the manifest as it is
    std::string strHost;     // where phones connect to: host and port
    // The camera's picture size for an upload midlet, "320x240". Null makes it a viewing midlet, an empty
    // text does not.
    const char* szFormat = nullptr;
};

// The manifest's lines, each ended by carriage return and line feed, in an order that does not hang on the
// values. A line can have any length; nothing is escaped or wrapped. Line ends and zero bytes in a value are
// left out, so that no value, wherever it comes from, makes a line of its own. Texts that cannot be had are
// left out too (midlet/Localize.h reports it): the midlet goes out without them.
std::string BuildManifest(const SManifestValues& oValues);
