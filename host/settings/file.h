// The component's settings file and the one that the host keeps beside it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/settings/document.h"

namespace host {

using kit::SettingsFile;

struct DamagedSettings {
    std::string copy;              // where the file is kept
    std::vector<std::string> lost; // what of it is not served, a line each
};
// Nothing for a file that is not there or that `served`, which the component gave, holds whole. Any other is
// copied to one beside it (".damaged" behind its name; older ones stay), since the component overwrites it
// with the first change. To be asked before that. Throws StartError when the file cannot be read or the copy
// cannot be written.
std::optional<DamagedSettings> KeepIfDamaged(const std::string& file, const SettingsDocument& served);

// The address of this server that phones are told, where nobody has said another one.
//
// It stands in the settings like one that a person entered. A file beside them remembers which one is the
// host's, so that it can follow when the server listens elsewhere.
//
// Belongs to one thread at a time. A file that cannot be written is told in the log, once.
class PhoneAddress {
public:
    // Reads the file, which need not be there.
    explicit PhoneAddress(std::string file);

    // Where phones reach the server: "ADDR:PORT". Nothing is entered before that is known.
    void SetOwn(std::string own) { m_own = std::move(own); }
    // Enters it where no address stands, or one that the host entered earlier. True when it did.
    bool EnterInto(SettingsDocument& document);
    // Whether the host entered that one.
    [[nodiscard]] bool IsOwn(const std::string& address) const;
    // Somebody has changed the address: the one that stands there now is nobody else's to change.
    void LetGo();
    // Tries again to write what could not be written; false while it cannot.
    bool Save();

private:
    void Remember(std::vector<std::string> entered);

    const std::string m_file;
    std::string m_own;
    std::vector<std::string> m_entered; // the newest first
    bool m_written = true;              // is in the file
};

} // namespace host
