#include "midlet/MakeJar.h"

#include <algorithm>
#include <vector>

#include "Common/Utils/LocalizeEx.h"
#include "midlet/Manifest.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/resources.h"
#include "platform/text.h"
#include "runtime/trace/Trace.h"

namespace {

constexpr char16_t kTemplateType[] = u"JAR";
constexpr char16_t kToolType[] = u"EXE";
constexpr std::uint16_t kArchiveTool = 209;
constexpr char kToolName[] = "zip.exe";
constexpr char kManifestFolder[] = "META-INF";
constexpr char kManifestName[] = "META-INF/manifest.mf";
constexpr std::uint32_t kToolTimeout = 10000; // milliseconds
constexpr std::size_t kJarNameLimit = 100;

bool HasControlCharacter(std::u16string_view text) noexcept {
    return std::ranges::any_of(text, [](char16_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); });
}

bool IsPlainFileName(std::u16string_view name) noexcept {
    return name.size() <= kJarNameLimit && !name.starts_with(u'-') && !name.starts_with(u'.') &&
           name.find_first_of(u"/\\") == std::u16string_view::npos && !HasControlCharacter(name);
}

std::u16string_view ValueOf(const QueryMap& params, std::u16string_view key) {
    const auto found = params.find(key);
    return found == params.end() ? std::u16string_view() : std::u16string_view(found->second);
}

// The bytes of a resource; none if it is missing.
std::string_view ResourceBytes(const char16_t* szType, std::uint16_t nNumber) {
    const auto oResource = platform::FindResource(ThisModule(), szType, nNumber);
    return oResource ? oResource->Text() : std::string_view();
}

// Reads a whole file; gives nothing, with the last error set, when that fails.
std::optional<std::string> ReadFileToBlock(const std::string& strPath) {
    return platform::ReadWholeFile(strPath);
}

// Makes the file, or overwrites it. True if all bytes were written; else the last error is set. Programs are
// written as such.
enum class EFileKind { Data, Program };
bool WriteFileFromBlock(const std::string& strPath, std::string_view block,
                        EFileKind eKind = EFileKind::Data) {
    return SUCCEEDED(platform::WriteWholeFile(strPath, block, eKind == EFileKind::Program ? 0700 : 0600));
}

// Puts the manifest into the archive. Blanks and quotes in a name are quoted, so that it stays one argument.
HRESULT RunArchiveTool(const std::string& strFolder, std::u16string_view archiveName) {
    const std::u16string strTool = platform::FromUtf8(strFolder + kToolName);
    return RunProcess(platform::QuoteArgument(strTool) + u" " + platform::QuoteArgument(archiveName) + u" " +
                          platform::FromUtf8(kManifestName),
                      kToolTimeout, strFolder);
}

} // namespace

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

std::optional<std::string> MakeJar(std::uint16_t nResource, const QueryMap& params, std::u16string_view host,
                                   const char* szFormat) {
    LOG_AS("CUploadServer::MakeJar");
    const std::u16string_view jarName = ValueOf(params, u"JarName");
    const std::u16string_view login = ValueOf(params, u"login");
    const std::u16string_view password = ValueOf(params, u"password");
    const std::u16string strArchiveName = std::u16string(jarName) + u".jar";
    const std::string strFolder = platform::TemporaryFolder();
    const std::string strArchive = strFolder + platform::ToUtf8(strArchiveName);
    const std::string strTool = strFolder + kToolName;
    const std::string strManifest = strFolder + kManifestName;

    bool bResult = !strFolder.empty() && IsPlainFileName(jarName) && !HasControlCharacter(login) &&
                   !HasControlCharacter(password) &&
                   WriteFileFromBlock(strArchive, ResourceBytes(kTemplateType, nResource));
    TRASSDO(bResult, return std::nullopt);
    bResult = WriteFileFromBlock(strTool, ResourceBytes(kToolType, kArchiveTool), EFileKind::Program);
    TRASSDO(bResult, return std::nullopt);

    const std::string strText =
        BuildManifest({platform::ToNarrow(jarName), platform::ToNarrow(login), platform::ToNarrow(password),
                       platform::ToNarrow(host), szFormat});
    static_cast<void>(platform::CreateFolder(strFolder + kManifestFolder)); // the next write tells
    bResult = WriteFileFromBlock(strManifest, strText);
    TRASSDO(bResult, return std::nullopt);

    const HRESULT hr = RunArchiveTool(strFolder, strArchiveName);
    TRASSDO(SUCCEEDED(_ARE(hr)), return std::nullopt);

    std::optional<std::string> oArchive = ReadFileToBlock(strArchive);
    // The next build overwrites a file that cannot be removed.
    static_cast<void>(platform::RemoveFile(strArchive));
    static_cast<void>(platform::RemoveFile(strManifest));
    static_cast<void>(platform::RemoveFile(strTool));
    static_cast<void>(platform::RemoveFolder(strFolder + kManifestFolder));
    return oArchive;
}
