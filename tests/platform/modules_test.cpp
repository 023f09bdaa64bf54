// Identifiers, categories, modules that are none, what the object runtime gives to modules, and libraries.

#include "platform/modules.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <span>

#include "platform/categories.h"
#include "platform/files.h"
#include "platform/guid.h"
#include "platform/interface_table.h"
#include "platform/library.h"
#include "platform/locale.h"
#include "platform/memory.h"
#include "platform/registry.h"
#include "platform/status.h"
#include "platform/text.h"
#include "platform/threads.h"
#include "support/temp_folder.h"

namespace platform {
namespace {

constexpr GUID kLamp{0x158F9099, 0xFA63, 0x4B67, {0xB2, 0x21, 0xC9, 0xA2, 0x2E, 0x50, 0x61, 0xE9}};
constexpr char16_t kLampText[] = u"{158F9099-FA63-4B67-B221-C9A22E5061E9}";
constexpr auto kClasses = RegistryRoot::ClassesRoot;

TEST(Guid, IsTextAndBack) {
    EXPECT_EQ(GuidText(kLamp), kLampText);
    EXPECT_EQ(ParseGuid(u"{158f9099-fa63-4b67-b221-c9a22e5061e9}"), kLamp);
    for (const char16_t* wrong :
         {u"", u"{}", u"158F9099-FA63-4B67-B221-C9A22E5061E9", u"{158F9099-FA63-4B67-B221-C9A22E5061E9",
          u"{158F9099-FA63-4B67-B221-C9A22E5061E9}}", u"{158F9099-FA63-4B67-B221-C9A22E5061G9}",
          u"{158F9099FFA63-4B67-B221-C9A22E5061E9}", u"{158F9099-FA63-4B67-B221-C9A22E5061\xFF29}"})
        EXPECT_FALSE(ParseGuid(wrong)) << ToUtf8(wrong);
}

class Modules : public testing::Test {
protected:
    Modules() { EXPECT_EQ(SetRegistryFile(m_folder.File("registry")), ""); }
    ~Modules() override { SetRegistryFile(""); }
    // What comes of the class when the registry names that path for it.
    HRESULT Create(const std::string& path) {
        const NamedRegistryValue values[] = {{u"", FromUtf8(path)}};
        EXPECT_EQ(S_OK, SetRegistryValues(
                            kClasses, std::u16string(u"CLSID\\") + kLampText + u"\\InprocServer32", values));
        EXPECT_EQ(ModulePathOf(kLamp), path);
        ComPtr<IUnknown> object;
        return CoCreateInstance(kLamp, nullptr, kContextAll, IUnknown::iid, object.ReceiveVoid());
    }
    TempFolder m_folder;
};

TEST_F(Modules, ThatAreNoneAreRefusedWithTheLoadersReason) {
    const std::string text = m_folder.File("text.so");
    ReplaceFile(text, "no library");
    const std::string other = FileNameOfModule(reinterpret_cast<const void*>(&GuidText));
    const struct {
        std::string path;
        std::uint32_t error;
        const char* reason;
    } cases[] = {{m_folder.File("missing.so"), kErrorModNotFound, "missing.so"},
                 {text, kErrorModNotFound, "text.so"},
                 {other, kErrorProcNotFound, "DllGetClassObject"}};
    for (const auto& c : cases) {
        const HRESULT expected = StatusFromError(c.error);
        EXPECT_EQ(Create(c.path), expected) << c.path;
        EXPECT_NE(LastModuleError().find(c.reason), std::string::npos) << LastModuleError();
        EXPECT_EQ(RegisterModule(c.path), expected) << c.path;
        EXPECT_EQ(UnregisterModule(c.path), expected) << c.path;
    }
    EXPECT_EQ(Create(""), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(LoadedModules(), 0U);
    EXPECT_EQ(CoFreeUnusedLibraries(), 0U);
}

TEST_F(Modules, AreFoundByTheCategoriesOfTheirClasses) {
    constexpr GUID kLight{1, 2, 3, {4}};
    constexpr GUID kSound{5, 6, 7, {8}};
    EXPECT_TRUE(EnumClassesOfCategory(kLight).empty());
    const std::array both{kLight, kSound};
    EXPECT_EQ(S_OK, RegisterClassImplCategories(kLamp, both));
    EXPECT_EQ(S_OK, RegisterClassImplCategories(kSound, std::span(both).first(1)));
    EXPECT_EQ(S_OK, SetRegistryValues(
                        kClasses, u"CLSID\\no identifier\\Implemented Categories\\" + GuidText(kLight), {}));
    EXPECT_EQ(EnumClassesOfCategory(kLight), (std::vector{kSound, kLamp}));
    EXPECT_EQ(EnumClassesOfCategory(kSound), std::vector{kLamp});
    EXPECT_EQ(S_OK, UnRegisterClassImplCategories(kLamp, both));
    EXPECT_EQ(S_OK, UnRegisterClassImplCategories(kLamp, both)) << "twice does no harm";
    EXPECT_EQ(EnumClassesOfCategory(kLight), std::vector{kSound});
}

TEST(InterfaceTable, KeepsWhatItIsGivenUntilItIsRevoked) {
    const auto get = [] {
        ComPtr<IGlobalInterfaceTable> table;
        EXPECT_EQ(S_OK, CoCreateInstance(kInterfaceTableClass, nullptr, kContextInProcess,
                                         IGlobalInterfaceTable::iid, table.ReceiveVoid()));
        return table;
    };
    const auto table = get();
    EXPECT_EQ(table.Get(), get().Get()) << "a process has one";
    std::uint32_t cookie = 7;
    EXPECT_EQ(E_POINTER, table->RegisterInterfaceInGlobal(nullptr, IUnknown::iid, &cookie));
    EXPECT_EQ(E_NOINTERFACE, table->RegisterInterfaceInGlobal(table.Get(), kLamp, &cookie));
    EXPECT_EQ(cookie, 0U);
    EXPECT_EQ(S_OK, table->RegisterInterfaceInGlobal(table.Get(), IUnknown::iid, &cookie));
    ComPtr<IUnknown> kept;
    EXPECT_EQ(S_OK, table->GetInterfaceFromGlobal(cookie, IUnknown::iid, kept.ReceiveVoid()));
    EXPECT_EQ(kept.Get(), table.Get());
    EXPECT_EQ(S_OK, table->RevokeInterfaceFromGlobal(cookie));
    EXPECT_EQ(E_INVALIDARG, table->RevokeInterfaceFromGlobal(cookie));
    EXPECT_EQ(E_INVALIDARG, table->GetInterfaceFromGlobal(cookie, IUnknown::iid, kept.ReceiveVoid()));
    EXPECT_FALSE(kept);
}

TEST(Locale, NamesTheLanguagesOfTheComponent) {
    struct Case {
        std::uint32_t id;
        std::u16string_view abbreviated;
        std::string_view code;
    };
    for (const Case& c : {Case{0, u"ENU", "en"},
                          {1033, u"ENU", "en"},
                          {1034, u"ESP", "es"},
                          {1036, u"FRA", "fr"},
                          {1049, u"RUS", "ru"},
                          {1062, u"LVI", "lv"},
                          {1068, u"AZE", "az"},
                          {1079, u"GE", "ka"},
                          {3082, u"ESN", "es"},
                          {0xFFFF, u"", ""},
                          {0x10409, u"", ""}}) {
        EXPECT_EQ(AbbreviatedLanguageName(c.id), c.abbreviated) << c.id;
        EXPECT_EQ(LanguageCode(c.id), c.code) << c.id;
        EXPECT_EQ(LanguageName(c.id).empty(), c.code.empty()) << c.id;
    }
}

TEST(Locale, IsOfTheThread) {
    SetThreadLocale(1049);
    const WorkItem look = [](void* seen) {
        *static_cast<std::uint32_t*>(seen) = ThreadLocale();
        SetThreadLocale(1033);
        return 0U;
    };
    for (int n = 0; n < 2; ++n) {
        std::uint32_t seen = 0;
        ASSERT_TRUE(QueueUserWorkItem(look, &seen, 0));
        ASSERT_TRUE(WaitForWorkItems(5000));
        EXPECT_EQ(seen, kLocaleSystemDefault) << n;
    }
    EXPECT_EQ(ThreadLocale(), 1049U);
}

TEST(EncodedPointer, IsAnotherNumberAndComesBack) {
    for (const void* pointer : {static_cast<const void*>(&kLamp), static_cast<const void*>(nullptr)}) {
        EXPECT_NE(EncodePointer(pointer), reinterpret_cast<std::uintptr_t>(pointer));
        EXPECT_EQ(DecodePointer(EncodePointer(pointer)), pointer);
    }
}

int One() {
    return 1;
}
int Two() {
    return 2;
}

int Call(Library* library, std::string_view name) {
    const Export found = FindExport(library, name);
    return found == nullptr ? 0 : reinterpret_cast<int (*)()>(found)();
}

Export AsExport(int (*function)()) {
    return reinterpret_cast<Export>(function);
}

TEST(LibraryTest, RegisteredNames) {
    EXPECT_EQ(LoadLibrary("Engine.dll"), nullptr);
    EXPECT_EQ(LastError(), kErrorModNotFound);
    RegisterLibrary("Engine.dll", {{"Get", AsExport(&One)}});
    Library* const first = LoadLibrary("eNGINE.DLL");
    EXPECT_EQ(Call(first, "Get"), 1);
    EXPECT_EQ(LoadLibrary("engine.dll"), first);
    EXPECT_EQ(Call(first, "get"), 0) << "names of exports are compared exactly";
    EXPECT_EQ(LastError(), kErrorProcNotFound);

    RegisterLibrary("ENGINE.dll", {{"Get", AsExport(&Two)}});
    EXPECT_EQ(Call(LoadLibrary("Engine.dll"), "Get"), 2);
    UnregisterLibrary("engine.DLL");
    EXPECT_EQ(LoadLibrary("Engine.dll"), nullptr);
    EXPECT_EQ(Call(first, "Get"), 1) << "what was loaded stays usable";
    EXPECT_EQ(FindExport(nullptr, "Get"), nullptr);
}

TEST(LibraryTest, SharedObjectsByPath) {
    Dl_info info{};
    ASSERT_NE(::dladdr(::dlsym(RTLD_DEFAULT, "dlsym"), &info), 0);
    Library* const system = LoadLibrary(info.dli_fname);
    ASSERT_NE(system, nullptr) << info.dli_fname;
    EXPECT_EQ(LoadLibrary(info.dli_fname), system);
    EXPECT_NE(FindExport(system, "dlsym"), nullptr);
    EXPECT_EQ(FindExport(system, "no such export"), nullptr);
    EXPECT_EQ(LoadLibrary("/none/such.so"), nullptr);
    EXPECT_EQ(LoadLibrary("libc.so.6"), nullptr) << "never by a search of the system's folders";
}

} // namespace
} // namespace platform
