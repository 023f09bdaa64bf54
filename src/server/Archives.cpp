// Personal midlet archives, as content.

#include <optional>
#include <string>

#include "server/Request.h"
#include "server/UploadServer.h"

namespace {

constexpr std::u16string_view kArchiveHead = u"application/java-archive";

} // namespace

// Holds the lock over the whole build, the wait for the archive tool included: the files of a build have the
// same names each time. Phones that stream are not disturbed; new ones wait.
std::optional<std::string> CUploadServer::MakeJar(std::uint16_t nResource, const QueryMap& params,
                                                  const char* szFormat) {
    const platform::SectionGuard guard(m_oLock);
    return ::MakeJar(nResource, params, m_strHost, szFormat);
}

// Gives the type of the camera with that name and password, or nothing. The settings may change both, so they
// are read under the lock.
std::optional<std::string> CUploadServer::TypeForUpload(std::u16string_view login,
                                                        std::u16string_view password) {
    const platform::SectionGuard guard(m_oLock);
    const auto found = m_oCams.find(login);
    if (found == m_oCams.end() || found->second->m_bstrPassword.View() != password)
        return std::nullopt;
    return platform::ToNarrow(found->second->m_bstrType.View(), platform::kCodePageThread);
}

HRESULT CUploadServer::GetMidletArchive(std::uint16_t nResource, std::u16string_view query, BSTR* body,
                                        BSTR* head) {
    const QueryMap params = ParseQuery(query);
    const auto login = params.find(u"login");
    const auto password = params.find(u"password");
    // An empty value counts as present.
    if (login == params.end() || password == params.end())
        return E_ACCESSDENIED;

    std::optional<std::string> oType;
    // The viewing midlet presents its credentials to the host when it views, so they are not looked at here.
    if (nResource == kUploadMidlet) {
        oType = TypeForUpload(login->second, password->second);
        if (!oType)
            return E_ACCESSDENIED;
    }
    const auto oArchive = MakeJar(nResource, params, oType ? oType->c_str() : nullptr);
    if (!oArchive)
        return E_FAIL;
    StoreContent(platform::Bstr::FromBytes(*oArchive), platform::Bstr(kArchiveHead), body, head);
    return S_OK;
}
