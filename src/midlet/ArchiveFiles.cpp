#include "midlet/ArchiveFiles.h"

#include <vector>

#include "platform/files.h"
#include "platform/process.h"
#include "platform/text.h"

std::optional<std::string> ReadFileToBlock(const std::string& strPath) {
    return platform::ReadWholeFile(strPath);
}

bool WriteFileFromBlock(const std::string& strPath, std::string_view block, EFileKind eKind) {
    return SUCCEEDED(platform::WriteWholeFile(strPath, block, eKind == EFileKind::Program ? 0700 : 0600));
}

HRESULT RunProcess(std::u16string_view commandLine, std::uint32_t nTimeout, const std::string& strFolder) {
    if (commandLine.size() > kCommandLineLimit)
        return platform::StatusFromError(platform::kErrorInsufficientBuffer);
    std::vector<std::string> aArguments;
    for (const std::u16string& strArgument : platform::SplitCommandLine(commandLine))
        aArguments.push_back(platform::ToUtf8(strArgument));
    auto oProcess = platform::Process::Start(aArguments, strFolder);
    if (!oProcess || !oProcess->Wait(nTimeout))
        return platform::StatusFromError(platform::LastError());
    return S_OK;
}
