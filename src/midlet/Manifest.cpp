#include "midlet/Manifest.h"

#include <string_view>

#include "midlet/Localize.h"

namespace {

constexpr std::string_view kFixedLines = "Manifest-Version: 1.0\r\n"
                                         "MicroEdition-Configuration: CLDC-1.0\r\n"
                                         "Created-By: 1.4.2_03 (Sun Microsystems Inc.)\r\n"
                                         "MIDlet-Vendor: Norvane\r\n"
                                         "MIDlet-Version: 6.0\r\n"
                                         "MicroEdition-Profile: MIDP-2.0\r\n"
                                         "logo: /icons/logo_big.png\r\n"
                                         "testJPEG: /icons/test.jpg\r\n"
                                         "RESOURCE: /mobile/video\r\n";

// Where a viewing midlet asks the host for its cameras. The angle brackets are part of the text.
constexpr std::string_view kViewingLines = "CAMLIST: /xslt/enum/all?xslt=cameras.xsl\r\n"
                                           "RANGES: /xslt/<hash>/ranges?xslt=archives.xsl\r\n";

void AppendLine(std::string& strManifest, std::string_view key, std::string_view value,
                std::string_view rest = {}) {
    strManifest += key;
    strManifest += ": ";
    for (const char c : value) {
        if (c != '\r' && c != '\n' && c != '\0')
            strManifest += c;
    }
    strManifest += rest;
    strManifest += "\r\n";
}

} // namespace

std::string BuildManifest(const SManifestValues& oValues) {
    std::string strManifest(kFixedLines);
    if (!oValues.strJarName.empty())
        AppendLine(strManifest, "MIDlet-Name", oValues.strJarName);
    // A comma in the name would shift the icon and the class for the phone of who asked for it, and for no
    // other.
    AppendLine(strManifest, "MIDlet-1", oValues.strJarName, ", /icons/logo_small.png, Quillstart");
    if (!oValues.strLogin.empty())
        AppendLine(strManifest, "LOGIN", oValues.strLogin);
    if (!oValues.strPassword.empty())
        AppendLine(strManifest, "PSW", oValues.strPassword);
    AppendLine(strManifest, "SRV", oValues.strHost);
    const bool bUpload = oValues.szFormat != nullptr;
    if (bUpload)
        AppendLine(strManifest, "FORMAT", oValues.szFormat);
    else
        strManifest += kViewingLines;
    static_cast<void>(Localize(strManifest, bUpload ? "Sendora" : "Viewlander"));
    return strManifest;
}
