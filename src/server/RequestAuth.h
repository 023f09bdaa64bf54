// Owner of what GetRequestAuth of the host fills.
#pragma once

#include "interfaces/IWebHandler.h"

struct CRequestAuth : SRequestAuth {
    CRequestAuth() = default;
    CRequestAuth(const CRequestAuth&) = delete;
    CRequestAuth& operator=(const CRequestAuth&) = delete;
    ~CRequestAuth() {
        CoTaskMemFree(pData);
        SysFreeString(bstrLogin);
        SysFreeString(bstrPassword);
    }
};
