#include "runtime/trace/StatusException.h"

void AtlThrow(HRESULT hr) {
    throw CAtlException(hr);
}

void AtlThrowLastError() {
    AtlThrow(platform::StatusFromError(platform::LastError()));
}
