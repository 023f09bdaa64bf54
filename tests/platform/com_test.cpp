// Objects and their classes, modules that are none, what the object runtime gives to modules, and libraries.

#include "platform/com.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <array>
#include <span>
#include <thread>

#include "platform/files.h"
#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/resources.h"
#include "platform/status.h"
#include "platform/text.h"
#include "support/Fake.h"
#include "support/temp_folder.h"

namespace platform {
namespace {

constexpr GUID kLampClass{0x158F9099, 0xFA63, 0x4B67, {0xB2, 0x21, 0xC9, 0xA2, 0x2E, 0x50, 0x61, 0xE9}};
constexpr char16_t kLampText[] = u"{158F9099-FA63-4B67-B221-C9A22E5061E9}";

template <std::uint32_t id>
struct IColoured : IUnknown {
    static constexpr GUID iid{id, 2, 3, {4}};
    virtual int Colour() const = 0;

protected:
    ~IColoured() = default;
};
using ILamp = IColoured<1>;
using IBell = IColoured<2>;
class LampWithBell : public support::Fake<ILamp, IBell> {
public:
    explicit LampWithBell(int colour) : m_colour(colour) {}
    int Colour() const override { return m_colour; }

protected:
    ~LampWithBell() = default;

private:
    const int m_colour;
};

TEST(ClassTest, CreatesObjectsOfRegisteredClasses) {
    const std::int32_t objectsBefore = ModuleLock::Count();
    const auto create = [](ComPtr<ILamp>& lamp, std::uint32_t mask, IUnknown* outer = nullptr) {
        return CoCreateInstance(kLampClass, outer, mask, ILamp::iid, lamp.ReceiveVoid());
    };
    ComPtr<ILamp> lamp;
    EXPECT_EQ(create(lamp, kContextAll), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(RegisterClassFactory(kLampClass, nullptr), E_POINTER);
    for (const int colour : {1, 2}) { // the second replaces the first
        const auto factory = ComObject<support::FakeFactory>::Create([=](const GUID& id, void** object) {
            return ComObject<LampWithBell>::Create(colour)->QueryInterface(id, object);
        });
        ASSERT_EQ(RegisterClassFactory(kLampClass, factory.Get()), S_OK);
        ASSERT_EQ(create(lamp, kContextAll), S_OK);
        EXPECT_EQ(lamp->Colour(), colour);
    }
    EXPECT_EQ(ModuleLock::Count(), objectsBefore + 2) << "one factory and one object";
    // It answers for its interfaces, from each of them, and has one identity.
    const ComPtr<ILamp> outer = lamp;
    const ComPtr<IBell> bell = lamp.Query<IBell>();
    EXPECT_TRUE(bell && bell.Query<ILamp>().Get() == lamp.Get());
    EXPECT_EQ(bell.Query<IUnknown>().Get(), lamp.Query<IUnknown>().Get());
    EXPECT_FALSE(lamp.Query<IClassFactory>());
    EXPECT_EQ(lamp->QueryInterface(ILamp::iid, nullptr), E_POINTER);

    EXPECT_EQ(create(lamp, kContextAll, outer.Get()), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(create(lamp, 0), E_INVALIDARG);
    EXPECT_EQ(create(lamp, 4), REGDB_E_CLASSNOTREG) << "only outside this process";
    EXPECT_FALSE(lamp);
    EXPECT_EQ(CoCreateInstance(kLampClass, nullptr, 1, ILamp::iid, nullptr), E_POINTER);
    void* other = this;
    EXPECT_EQ(CoCreateInstance(kLampClass, nullptr, 1, kLampClass, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(RevokeClassFactory(kLampClass), S_OK);
    EXPECT_EQ(RevokeClassFactory(kLampClass), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(create(lamp, kContextAll), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(ModuleLock::Count(), objectsBefore + 1) << "the object outlives its factory";
}

TEST(ApartmentTest, IsLeftOnceForEachJoin) {
    EXPECT_EQ(CoInitializeEx(nullptr, 2), E_INVALIDARG);
    CoUninitialize(); // one too many
    for (const HRESULT joined : {S_OK, S_FALSE})
        EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), joined);
    CoUninitialize();
    EXPECT_TRUE(IsInApartment());
    std::thread([] { EXPECT_FALSE(IsInApartment()); }).join();
    CoUninitialize();
    EXPECT_FALSE(IsInApartment());
}

TEST(OnceComPtrTest, KeepsTheFirst) {
    const std::int32_t objects = ModuleLock::Count();
    {
        OnceComPtr<ILamp> once;
        once.SetOnce(nullptr);
        EXPECT_FALSE(once);
        for (const int colour : {1, 2})
            once.SetOnce(ComObject<LampWithBell>::Create(colour));
        EXPECT_EQ(once->Colour(), 1);
        EXPECT_EQ(ModuleLock::Count(), objects + 1);
    }
    EXPECT_EQ(ModuleLock::Count(), objects);
}

TEST(Guid, IsTextAndBack) {
    EXPECT_EQ(GuidText(kLampClass), kLampText);
    EXPECT_EQ(ParseGuid(u"{158f9099-fa63-4b67-b221-c9a22e5061e9}"), kLampClass);
    for (const char16_t* wrong :
         {u"", u"158F9099-FA63-4B67-B221-C9A22E5061E9", u"{158F9099-FA63-4B67-B221-C9A22E5061E9",
          u"{158F9099-FA63-4B67-B221-C9A22E5061E9}}", u"{158F9099-FA63-4B67-B221-C9A22E5061G9}",
          u"{158F9099FFA63-4B67-B221-C9A22E5061E9}", u"{158F9099-FA63-4B67-B221-C9A22E5061\xFF29}"})
        EXPECT_FALSE(ParseGuid(wrong)) << ToUtf8(wrong);
}

class Modules : public testing::Test {
protected:
    Modules() { EXPECT_EQ(SetRegistryFile(m_folder.File("registry")), ""); }
    ~Modules() override { SetRegistryFile(""); }
    // What comes of the class when the registry names that path for it.
    static HRESULT Create(const std::string& path) {
        const NamedRegistryValue values[] = {{u"", FromUtf8(path)}};
        EXPECT_EQ(S_OK,
                  SetRegistryValues(RegistryRoot::ClassesRoot,
                                    std::u16string(u"CLSID\\") + kLampText + u"\\InprocServer32", values));
        EXPECT_EQ(ModulePathOf(kLampClass), path);
        ComPtr<IUnknown> object;
        return CoCreateInstance(kLampClass, nullptr, kContextAll, IUnknown::iid, object.ReceiveVoid());
    }
    TempFolder m_folder;
};

TEST_F(Modules, ThatAreNoneAreRefusedWithTheLoadersReason) {
    const std::string text = m_folder.File("text.so");
    ReplaceFile(text, "no library");
    const struct {
        std::string path;
        std::uint32_t error;
        const char* reason;
    } cases[] = {{m_folder.File("missing.so"), kErrorModNotFound, "missing.so"},
                 {text, kErrorModNotFound, "text.so"},
                 {FileNameOfModule(reinterpret_cast<const void*>(&GuidText)), kErrorProcNotFound,
                  "DllGetClassObject"}};
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
    constexpr GUID kSound{5, 6, 7, {8}};
    const std::array both{GUID{1, 2, 3, {4}}, kSound};
    EXPECT_TRUE(EnumClassesOfCategory(both[0]).empty());
    EXPECT_EQ(S_OK, RegisterClassImplCategories(kLampClass, both));
    EXPECT_EQ(S_OK, RegisterClassImplCategories(kSound, std::span(both).first(1)));
    EXPECT_EQ(S_OK, SetRegistryValues(RegistryRoot::ClassesRoot,
                                      u"CLSID\\none\\Implemented Categories\\" + GuidText(both[0]), {}));
    EXPECT_EQ(EnumClassesOfCategory(both[0]), (std::vector{kSound, kLampClass}));
    EXPECT_EQ(EnumClassesOfCategory(kSound), std::vector{kLampClass});
    for (int n = 0; n < 2; ++n) // twice does no harm
        EXPECT_EQ(S_OK, UnRegisterClassImplCategories(kLampClass, both));
    EXPECT_EQ(EnumClassesOfCategory(both[0]), std::vector{kSound});
}

TEST(InterfaceTable, KeepsWhatItIsGivenUntilItIsRevoked) {
    ComPtr<IGlobalInterfaceTable> table, same;
    for (auto* const one : {&table, &same})
        EXPECT_EQ(S_OK, CoCreateInstance(kInterfaceTableClass, nullptr, kContextInProcess,
                                         IGlobalInterfaceTable::iid, one->ReceiveVoid()));
    EXPECT_EQ(table.Get(), same.Get()) << "a process has one";
    std::uint32_t cookie = 7;
    EXPECT_EQ(E_POINTER, table->RegisterInterfaceInGlobal(nullptr, IUnknown::iid, &cookie));
    EXPECT_EQ(E_NOINTERFACE, table->RegisterInterfaceInGlobal(table.Get(), kLampClass, &cookie));
    EXPECT_EQ(cookie, 0U);
    EXPECT_EQ(S_OK, table->RegisterInterfaceInGlobal(table.Get(), IUnknown::iid, &cookie));
    ComPtr<IUnknown> kept;
    for (const HRESULT hr : {S_OK, E_INVALIDARG}) {
        EXPECT_EQ(hr, table->GetInterfaceFromGlobal(cookie, IUnknown::iid, kept.ReceiveVoid()));
        EXPECT_EQ(kept.Get(), hr == S_OK ? table.Get() : nullptr);
        EXPECT_EQ(hr, table->RevokeInterfaceFromGlobal(cookie));
    }
}

template <int value>
int Give() {
    return value;
}

int Call(Library* library, std::string_view name) {
    const Export found = FindExport(library, name);
    return found == nullptr ? 0 : reinterpret_cast<int (*)()>(found)();
}

TEST(LibraryTest, RegisteredNames) {
    EXPECT_EQ(LoadLibrary("Engine.dll"), nullptr);
    EXPECT_EQ(LastError(), kErrorModNotFound);
    RegisterLibrary("Engine.dll", {{"Get", reinterpret_cast<Export>(&Give<1>)}});
    Library* const first = LoadLibrary("eNGINE.DLL");
    EXPECT_EQ(Call(first, "Get"), 1);
    EXPECT_EQ(LoadLibrary("engine.dll"), first);
    EXPECT_EQ(Call(first, "get"), 0) << "names of exports are compared exactly";
    EXPECT_EQ(LastError(), kErrorProcNotFound);
    RegisterLibrary("ENGINE.dll", {{"Get", reinterpret_cast<Export>(&Give<2>)}});
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
    for (const char* name : {"/none/such.so", "libc.so.6"}) // never by a search of the system's folders
        EXPECT_EQ(LoadLibrary(name), nullptr);
}

} // namespace
} // namespace platform
