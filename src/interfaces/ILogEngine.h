// The external log engine. It lives in a library of its own, which may be absent.
#pragma once

#include <cstdint>

// A plain table of operations: not counted, never released.
struct ILogEngine {
    // Asked before each line.
    virtual bool IsEnabled() = 0;
    // One line: the place that it comes from, its text and its channel, in the calling thread's code page.
    // Called from any thread, also with locks of the component held: it must not call back into the
    // component.
    virtual void Write(const char* szFunction, const char* szFile, std::int32_t nLine, const char* szText,
                       const char* szChannel) = 0;
    // Never called by the component.
    virtual void Flush() = 0;
    // true once, after the first load; false once, when the process ends.
    virtual void Attach(bool bAttach) = 0;

protected:
    ~ILogEngine() = default;
};

// The library, and the export that gives the engine. Both names are part of the contract.
inline constexpr char kLogEngineLibrary[] = "xmllog.dll";
inline constexpr char kLogEngineExport[] = "GetXmlLogEngine";
using GetXmlLogEngineFunction = ILogEngine* (*)();
