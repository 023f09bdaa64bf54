#include "platform/library.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "platform/status.h"

namespace {

int One() {
    return 1;
}
int Two() {
    return 2;
}

int Call(platform::Library* library, std::string_view name) {
    const platform::Export found = platform::FindExport(library, name);
    return found == nullptr ? 0 : reinterpret_cast<int (*)()>(found)();
}

platform::Export AsExport(int (*function)()) {
    return reinterpret_cast<platform::Export>(function);
}

TEST(LibraryTest, RegisteredNames) {
    EXPECT_EQ(platform::LoadLibrary("Engine.dll"), nullptr);
    EXPECT_EQ(platform::LastError(), platform::kErrorModNotFound);
    platform::RegisterLibrary("Engine.dll", {{"Get", AsExport(&One)}});
    platform::Library* const first = platform::LoadLibrary("eNGINE.DLL");
    EXPECT_EQ(Call(first, "Get"), 1);
    EXPECT_EQ(platform::LoadLibrary("engine.dll"), first);
    EXPECT_EQ(Call(first, "get"), 0) << "names of exports are compared exactly";
    EXPECT_EQ(platform::LastError(), platform::kErrorProcNotFound);

    platform::RegisterLibrary("ENGINE.dll", {{"Get", AsExport(&Two)}});
    EXPECT_EQ(Call(platform::LoadLibrary("Engine.dll"), "Get"), 2);
    platform::UnregisterLibrary("engine.DLL");
    EXPECT_EQ(platform::LoadLibrary("Engine.dll"), nullptr);
    EXPECT_EQ(Call(first, "Get"), 1) << "what was loaded stays usable";
    EXPECT_EQ(platform::FindExport(nullptr, "Get"), nullptr);
}

TEST(LibraryTest, SharedObjectsByPath) {
    Dl_info info{};
    ASSERT_NE(::dladdr(::dlsym(RTLD_DEFAULT, "dlsym"), &info), 0);
    platform::Library* const system = platform::LoadLibrary(info.dli_fname);
    ASSERT_NE(system, nullptr) << info.dli_fname;
    EXPECT_EQ(platform::LoadLibrary(info.dli_fname), system);
    EXPECT_NE(platform::FindExport(system, "dlsym"), nullptr);
    EXPECT_EQ(platform::FindExport(system, "no such export"), nullptr);
    EXPECT_EQ(platform::LoadLibrary("/none/such.so"), nullptr);
    EXPECT_EQ(platform::LoadLibrary("libc.so.6"), nullptr) << "never by a search of the system's folders";
}

} // namespace
