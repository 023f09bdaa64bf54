// Files and programs, as the making of an archive uses them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

// The bytes of a file; nothing, with the last error set, when it cannot be read.
std::optional<std::string> ReadFileToBlock(const std::string& strPath);

// Makes the file, or overwrites it. True if all bytes were written; else the last error is set. Programs are
// written as such.
enum class EFileKind { Data, Program };
bool WriteFileFromBlock(const std::string& strPath, std::string_view block,
                        EFileKind eKind = EFileKind::Data);

// The longest command line, in UTF-16 code units.
inline constexpr std::size_t kCommandLineLimit = 259;

// Runs the program that a command line names, without a shell, and waits for it. S_OK when it ended in time,
// whatever it has to say about its work. Else a failure: 0x8007007A for a line over the limit, the system's
// error for a program that cannot be started, 0x80070102 for one that took longer. That one is ended, with
// all that it started: left alone, it could still write into the archive that the next build makes under the
// same name.
HRESULT RunProcess(std::u16string_view commandLine, std::uint32_t nTimeout, const std::string& strFolder);
