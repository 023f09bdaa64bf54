// A camera, and the subscriber that takes its pictures.
#pragma once

#include "interfaces/IVideoFrame.h"
#include "platform/com.h"

// Implemented by the host. Called on the thread that receives the phone's frames, with the camera's lock
// held: a sink may call Disconnect on the same thread, and must not wait for another thread that wants this
// camera. The phone is not read while the sink works. A sink that keeps the frame takes a reference of its
// own. The frame also answers for IReceivedPicture: a sink that holds it need copy nothing.
struct ICamSink : IUnknown {
    static constexpr GUID iid{0xBE95BBC7, 0xE95F, 0x4BE9, {0x9E, 0x06, 0xFA, 0x73, 0xDB, 0x8F, 0x4F, 0x60}};

    // `pFrame` is null for a picture that came without a header or without a body. The receive loop always
    // has both, if need be of no bytes, so no phone brings that about; a sink must bear it all the same. A
    // picture that could not be decoded is a frame without content. A failure is reported and changes nothing
    // else.
    virtual HRESULT OnVideoFrame(IVideoFrame* pFrame) = 0;

protected:
    ~ICamSink() = default;
};

struct ICam : IUnknown {
    static constexpr GUID iid{0xC3563968, 0xFDDD, 0x411E, {0xB9, 0x3A, 0xC0, 0x09, 0x0C, 0xA6, 0x97, 0x60}};

    // Connects the one sink; the same sink may connect again. E_UNEXPECTED when another one is connected.
    virtual HRESULT Connect(ICamSink* pCamSink) = 0;
    // Waits for a frame in progress; afterwards no frame reaches the sink. S_FALSE when none was connected,
    // E_UNEXPECTED when a different one is.
    virtual HRESULT Disconnect(ICamSink* pCamSink) = 0;

protected:
    ~ICam() = default;
};
