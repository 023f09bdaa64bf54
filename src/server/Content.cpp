// What this component has to say to whoever asks by path. It has nothing to say yet.

#include "server/UploadServer.h"

HRESULT CUploadServer::Request(const char16_t*, BSTR*, BSTR*) {
    return E_NOTIMPL;
}

HRESULT CUploadServer::GetContent(BSTR, BSTR*, BSTR*) {
    return E_NOTIMPL;
}

HRESULT CUploadServer::SetContent(BSTR, BSTR*, BSTR*) {
    return E_NOTIMPL;
}
