// Lines as the system's journal reads them.
#pragma once

#include <string_view>

namespace host {

// Whether what is written there goes straight into the journal of systemd: JOURNAL_STREAM names the device
// and the inode of the stream that a service was started with.
bool IsJournal(int fd) noexcept;

// The level of a log line, as the journal's numbers go (syslog(3)): what an operator should look at, by
// channel. "error" is 3; a condition of the component that did not hold is 5, since every phone that leaves
// makes some; rates and other figures are 7; all else is 6.
int LevelOf(std::string_view channel) noexcept;

} // namespace host
