// The component as a video source of its host, and the host's subscriber.
#pragma once

#include "interfaces/ICam.h"
#include "platform/com.h"
#include "platform/text.h"

// Implemented by the host. Both operations are called with the server's lock held: they may call back into
// ConnectToCam on the same thread, and must not wait for another thread that needs that lock. The name is
// freed by the caller after the call.
struct IVideoSourceSink : IUnknown {
    static constexpr GUID iid{0xF9FBEAE5, 0xD82C, 0x462F, {0xBB, 0x74, 0x3A, 0x81, 0x7B, 0xF8, 0x72, 0xEB}};

    virtual HRESULT OnCamAdded(BSTR bstrName) = 0;
    // The status is the result of RemoveCam; elsewhere it is ignored.
    virtual HRESULT OnCamRemoved(BSTR bstrName) = 0;

protected:
    ~IVideoSourceSink() = default;
};

struct IVideoSource : IUnknown {
    static constexpr GUID iid{0x4EF75BB4, 0x4801, 0x41A1, {0xB6, 0x65, 0xE0, 0xAF, 0x29, 0x30, 0x85, 0x01}};

    // Stores the one subscriber (a new reference) after an OnCamAdded for each camera, in the order of their
    // names. E_UNEXPECTED when somebody is subscribed already; the new sink then hears nothing.
    virtual HRESULT Subscribe(IVideoSourceSink* pVideoSourceSink) = 0;
    // OnCamRemoved for each camera, then lets go of the sink. S_FALSE for any other than the subscribed one.
    virtual HRESULT Unsubscribe(IVideoSourceSink* pVideoSourceSink) = 0;
    // The camera of exactly that name, with a new reference. E_FAIL, *ppCam untouched, when there is none;
    // E_POINTER.
    virtual HRESULT ConnectToCam(BSTR bstrName, ICam** ppCam) = 0;
    // Does nothing, whatever it is given: S_OK.
    virtual HRESULT NoOperation(BSTR bstrName) = 0;
    // Takes a camera out of the table, which ends a running upload. The status of the sink's OnCamRemoved,
    // S_OK without a sink, E_FAIL when there is no such camera.
    virtual HRESULT RemoveCam(BSTR bstrName) = 0;

protected:
    ~IVideoSource() = default;
};
