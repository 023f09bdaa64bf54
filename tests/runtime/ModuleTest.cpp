// The module as its host meets it: a file, four exports, keys in the registry, and gone again.

#include <dlfcn.h>

#include <array>
#include <barrier>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "Common/Utils/LocalizeEx.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/IVideoSource.h"
#include "interfaces/Registration.h"
#include "platform/files.h"
#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "platform/threads.h"
#include "runtime/module/Module.h"
#include "runtime/module/Registrar.h"
#include "support/FakeWebHost.h"
#include "support/Jpeg.h"
#include "support/Program.h"
#include "support/RecordingCamSink.h"
#include "support/Settings.h"
#include "support/TcpPair.h"
#include "support/Texts.h"
#include "support/Wait.h"
#include "support/Wire.h"
#include "support/temp_folder.h"

namespace {

namespace fs = std::filesystem;
using platform::ComPtr;
using platform::RegistryRoot;
using support::Lines;
using namespace std::chrono_literals;

bool IsMapped(const std::string& path) {
    return platform::ReadWholeFile("/proc/self/maps").value().find(path) != std::string::npos;
}

// A registry of its own, and the module under whatever name a test wants.
class Module : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(platform::SetRegistryFile(folder.File("registry")), "");
        host.script.keepsHandler = false; // so that nothing but the test holds the component
        // What others have there, also below the same parents.
        const platform::NamedRegistryValue value[] = {{u"", std::u16string(u"theirs")}};
        for (const char16_t* key : {u"AppID\\Other", u"CLSID\\{other}"})
            ASSERT_EQ(platform::SetRegistryValues(RegistryRoot::ClassesRoot, key, value), S_OK);
    }
    void TearDown() override { platform::CoFreeUnusedLibraries(0ms); }

    std::string Place(const fs::path& name) {
        const fs::path path = folder.Path() / name;
        fs::create_directories(path.parent_path());
        fs::copy_file(MODULE_FILE, path);
        return path.string();
    }
    std::string PlaceRegistered() {
        const std::string path = Place("module.so");
        EXPECT_EQ(platform::RegisterModule(path), S_OK);
        return path;
    }
    [[nodiscard]] std::string Registry() const {
        return platform::ReadWholeFile(folder.File("registry")).value_or("");
    }

    TempFolder folder;
    support::WebHostClass host;
};

TEST_F(Module, ShowsItsFourExportsAndNothingElse) {
    support::Program nm({"/usr/bin/nm", "-D", "--defined-only", "--format=just-symbols", MODULE_FILE});
    ASSERT_EQ(nm.Wait(), 0) << nm.output;
    EXPECT_EQ(nm.output, "DllCanUnloadNow\nDllGetClassObject\nDllRegisterServer\nDllUnregisterServer\n");
}

TEST_F(Module, RegistersItsKeysAndLeavesWhatWasThere) {
    const std::string before = Registry();
    platform::SetThreadLocale(1049);
    for (const char* name : {"plain.so", "it's here/with blanks ''.so"}) {
        const std::string path = Place(name);
        ASSERT_EQ(platform::RegisterModule(path), S_OK) << path;
        EXPECT_EQ(platform::EnumClassesOfCategory(kVideoSourceCategory), std::vector{kUploadServerClass});
        EXPECT_EQ(platform::ModulePathOf(kUploadServerClass), path);
        // Every key belongs to one of these, and each of these has keys.
        Lines keys;
        std::istringstream lines(Registry());
        for (std::string line; std::getline(lines, line);)
            if (line.starts_with('['))
                keys.push_back(line);
        for (const std::string mine :
             {"\\AppID]", "\\CLSID]", "{158F9099-FA63-4B67-B221-C9A22E5061E9}",
              "{E1B04F7A-6C28-4D53-A17E-350C9F86D24B}", "\\Morrowstream.UploadServer", "\\Morrowstream.DLL",
              "Other]", "{other}]"})
            EXPECT_NE(std::erase_if(keys, [&](const std::string& key) { return support::Has(key, mine); }),
                      0U)
                << mine;
        EXPECT_EQ(keys, Lines());
        EXPECT_PRED2(support::Has, Registry(), "\"ThreadingModel\"=\"Both\"");
        // A second time changes nothing.
        const std::string once = Registry();
        EXPECT_EQ(platform::RegisterModule(path), S_OK);
        EXPECT_EQ(Registry(), once);
        EXPECT_EQ(platform::UnregisterModule(path), S_OK);
        EXPECT_EQ(Registry(), before);
        EXPECT_EQ(platform::UnregisterModule(path), S_OK) << "there is nothing left to take out";
    }
    EXPECT_EQ(platform::ThreadLocale(), 1049U);
}

TEST_F(Module, AFailingStepGivesItsStatus) {
    const std::string path = Place("module.so");
    platform::SetThreadLocale(1062);
    (void)platform::SetRegistryFile(folder.File("missing/folder/registry"));
    EXPECT_TRUE(FAILED(platform::RegisterModule(path)));
    EXPECT_EQ(platform::ThreadLocale(), 1062U);
    // A name of 260 characters does not leave room for its end.
    (void)platform::SetRegistryFile(folder.File("registry"));
    const std::size_t left = 260 - folder.Path().native().size() - 1;
    const std::string name = std::string(100, 'a') + "/" + std::string(left - 101, 'b');
    const std::string shorter = name.substr(0, name.size() - 1);
    EXPECT_EQ(platform::RegisterModule(Place(name)), static_cast<HRESULT>(0x8007007A));
    EXPECT_EQ(platform::RegisterModule(Place(shorter)), S_OK);
    EXPECT_EQ(platform::RegisterModule(folder.File("none.so")), static_cast<HRESULT>(0x8007007E));
    EXPECT_EQ(platform::ThreadLocale(), 1062U);
}

ComPtr<IClassFactory> GetFactory() {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(platform::CoGetClassObject(kUploadServerClass, platform::kContextAll, IClassFactory::iid,
                                         factory.ReceiveVoid()),
              S_OK);
    return factory;
}

TEST_F(Module, GivesOneObject) {
    const std::string path = PlaceRegistered();
    {
        const auto factory = GetFactory();
        ComPtr<IUnknown> one, other;
        for (auto* const object : {&one, &other})
            ASSERT_EQ(factory->CreateInstance(nullptr, IUnknown::iid, object->ReceiveVoid()), S_OK);
        EXPECT_EQ(one.Get(), other.Get());
        void* none = nullptr;
        EXPECT_EQ(factory->CreateInstance(one.Get(), IUnknown::iid, &none), CLASS_E_NOAGGREGATION);

        using GetClassObject = HRESULT (*)(const GUID&, const GUID&, void**);
        void* const handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(handle, nullptr);
        const auto get = reinterpret_cast<GetClassObject>(::dlsym(handle, "DllGetClassObject"));
        none = this;
        EXPECT_EQ(get(kApplicationId, IClassFactory::iid, &none), CLASS_E_CLASSNOTAVAILABLE);
        EXPECT_EQ(none, nullptr);
        EXPECT_EQ(get(kUploadServerClass, IClassFactory::iid, nullptr), E_POINTER);
        EXPECT_EQ(get(kUploadServerClass, kApplicationId, &none), E_NOINTERFACE);
        (void)::dlclose(handle);
        EXPECT_EQ(platform::CoFreeUnusedLibraries(0ms), 0U) << "it is in use";
    }
    // A client's lock keeps it, without an object or a factory of it in anybody's hands.
    for (const std::int32_t lock : {1, 0}) {
        EXPECT_EQ(GetFactory()->LockServer(lock), S_OK);
        EXPECT_EQ(platform::CoFreeUnusedLibraries(0ms), lock == 0 ? 1U : 0U);
        EXPECT_EQ(IsMapped(path), lock != 0);
    }
}

ComPtr<IUploadServer> CreateServer() {
    ComPtr<IUploadServer> server;
    EXPECT_EQ(platform::CoCreateInstance(kUploadServerClass, nullptr, platform::kContextAll,
                                         IUploadServer::iid, server.ReceiveVoid()),
              S_OK);
    return server;
}

// Both load it, fight for the making and the last release of the object, and have let go before it is
// unloaded for the next round: nobody but the caller of 0 ms can say that no thread is on its way out.
TEST_F(Module, ComesAndGoesUnderEverybodysHands) {
    const std::string path = PlaceRegistered();
    platform::CoFreeUnusedLibraries(0ms);
    std::array<IUploadServer*, 2> held{};
    std::barrier both(2);
    std::barrier round(2, [&]() noexcept {
        EXPECT_EQ(platform::CoFreeUnusedLibraries(0ms), 1U);
        EXPECT_FALSE(IsMapped(path));
    });
    const auto use = [&](std::size_t me) {
        for (int i = 0; i < 50; ++i) {
            for (int n = 0; n < 10; ++n)
                (void)CreateServer();
            {
                const auto server = CreateServer();
                held.at(me) = server.Get();
                both.arrive_and_wait();
                EXPECT_EQ(held[0], held[1]) << "there is one object at a time";
                EXPECT_EQ(platform::CoFreeUnusedLibraries(0ms), 0U) << "it is in use";
            }
            round.arrive_and_wait();
        }
    };
    {
        const std::jthread first(use, 0U);
        const std::jthread second(use, 1U);
    }
    EXPECT_EQ(platform::LoadedModules(), 0U);
}

// A thread of the pool that has decoded a picture is used again. With each load the configured language comes
// into force.
TEST_F(Module, ComesBackToThreadsThatHaveDecoded) {
    const platform::NamedRegistryValue russian[] = {{u"lang", 25U}, {u"sublang", 1U}};
    ASSERT_EQ(platform::SetRegistryValues(RegistryRoot::LocalMachine, kLanguageKey, russian), S_OK);
    const std::string path = PlaceRegistered();
    support::ForgetSettings();
    for (int i = 0; i < 3; ++i) {
        platform::CoFreeUnusedLibraries(0ms);
        auto server = CreateServer();
        if (i == 0) {
            ASSERT_EQ(support::AddCamera(server.Get(), u"yard", u"160x120", u"demo"), S_OK);
        }
        const platform::ModuleHandle module = platform::ResourceInstances().back();
        EXPECT_EQ(platform::FindResource(module, u"ZIP", 211, 1033).value().codePage, 1251U);
        const auto sink = support::RecordingCamSinkObject::Create();
        const platform::Bstr name(u"yard");
        ComPtr<ICam> cam;
        ASSERT_EQ(server.Query<IVideoSource>()->ConnectToCam(name.Get(), cam.Receive()), S_OK);
        ASSERT_EQ(cam->Connect(sink.Get()), S_OK);
        support::TcpPair phone;
        phone.far.Send(support::AuthRecord("demo") + support::StreamHeader("") +
                       support::Frame(support::MakeJpeg(64, 48)));
        ASSERT_EQ(server->OnConnection(name.Get(), phone.Adopt(), 1, 0, nullptr), S_FALSE);
        EXPECT_TRUE(support::Eventually([&] { return sink->Count() == 1; }));
        EXPECT_EQ(sink->Calls(), std::vector<long>{40 + 64 * 48 * 3 / 2});
        cam = nullptr;
        server = nullptr;
        ASSERT_TRUE(platform::WaitForWorkItems(20000));
        EXPECT_EQ(platform::CoFreeUnusedLibraries(0ms), 1U);
        EXPECT_FALSE(IsMapped(path)) << "its thread waits for another item, and has no tables of its own";
    }
}

// Time alone decides for those who know of no thread's end.
TEST_F(Module, StaysForAWhileAfterItsLastUse) {
    const std::string path = PlaceRegistered();
    EXPECT_EQ(platform::CoFreeUnusedLibraries(50ms), 0U) << "found without use just now";
    (void)CreateServer();
    for (const unsigned freed : {0U, 1U}) { // it was used since, and then no more
        std::this_thread::sleep_for(60ms);
        EXPECT_EQ(platform::CoFreeUnusedLibraries(50ms), freed);
    }
    EXPECT_FALSE(IsMapped(path));
}

class EmptyHandedFactory : public support::FakeFactory {
protected:
    using FakeFactory::FakeFactory;
    ~EmptyHandedFactory() = default;
    static HRESULT Query(const GUID&, void**) { return S_OK; }
};

// A module with a class whose steps answer as the test says, and one whose factory has no interface to give.
TEST_F(Module, PassesOnWhatItsClassAnswers) {
    static HRESULT s_answer;
    static int s_calls, s_terms;
    static std::uint32_t s_locale;
    s_calls = s_terms = 0;
    const auto update = [](CMorrowstreamModule&, bool) {
        s_locale = platform::ThreadLocale();
        return s_answer;
    };
    const auto create = [](ComPtr<IClassFactory>& factory) {
        ++s_calls;
        if (s_answer == S_FALSE)
            factory = platform::ComObject<support::FakeFactory>::Create(
                [](const GUID&, void**) { return E_NOTIMPL; });
        return s_answer;
    };
    const auto createEmptyHanded = [](ComPtr<IClassFactory>& factory) {
        factory = platform::ComObject<EmptyHandedFactory>::Create(nullptr);
        return S_OK;
    };
    SClassEntry classes[] = {{kUploadServerClass, update, create, {}, [] { ++s_terms; }},
                             {kApplicationId, update, createEmptyHanded, {}, nullptr}};
    {
        CMorrowstreamModule module(classes);
        void* object = &module;
        const auto get = [&](CMorrowstreamModule* of) {
            return ModuleGetClassObject(of, kUploadServerClass, IClassFactory::iid, &object);
        };
        EXPECT_EQ(get(nullptr), E_INVALIDARG);
        EXPECT_EQ(object, nullptr);
        EXPECT_EQ(get(&module), E_UNEXPECTED) << "nobody has initialised it";
        EXPECT_EQ(module.RegisterServer(), E_UNEXPECTED);
        EXPECT_EQ(module.Init(nullptr), E_INVALIDARG);
        EXPECT_EQ(module.GetGITPtr(nullptr), E_POINTER);
        ComPtr<IGlobalInterfaceTable> table, same;
        EXPECT_TRUE(module.GetGITPtr(table.Receive()) == S_OK && module.GetGITPtr(same.Receive()) == S_OK);
        EXPECT_TRUE(table && table.Get() == same.Get());
        ASSERT_EQ(module.Init(ThisModule()), S_OK);
        // A failure, no factory, and a factory: one, once there is one.
        for (const auto& [answer, status] :
             {std::pair(E_OUTOFMEMORY, E_OUTOFMEMORY), std::pair(S_OK, CLASS_E_CLASSNOTAVAILABLE),
              std::pair(S_FALSE, S_OK), std::pair(S_FALSE, S_OK)}) {
            s_answer = answer;
            EXPECT_EQ(get(&module), status);
            (void)ComPtr<IClassFactory>::Adopt(static_cast<IClassFactory*>(object));
        }
        EXPECT_EQ(s_calls, 3);
        EXPECT_EQ(ModuleGetClassObject(&module, kApplicationId, IClassFactory::iid, &object),
                  CLASS_E_CLASSNOTAVAILABLE);

        platform::SetThreadLocale(1062);
        s_answer = E_FAIL;
        const std::u16string theirs =
            u"CLSID\\" + platform::GuidText(kUploadServerClass) + u"\\Required Categories\\{theirs}";
        EXPECT_EQ(platform::SetRegistryValues(RegistryRoot::ClassesRoot, theirs, {}), S_OK);
        for (const auto step :
             {&CMorrowstreamModule::RegisterServer, &CMorrowstreamModule::UnregisterServer}) {
            EXPECT_EQ((module.*step)(), E_FAIL);
            EXPECT_EQ(std::exchange(s_locale, 0), 2048U) << "the system's, meanwhile";
            EXPECT_EQ(platform::ThreadLocale(), 1062U);
            EXPECT_PRED2(support::Has, Registry(), "Morrowstream.DLL") << "what was written stays";
        }
        EXPECT_TRUE(platform::RegistryKeyExists(RegistryRoot::ClassesRoot, theirs));
        EXPECT_TRUE(platform::EnumClassesOfCategory(kVideoSourceCategory).empty());
        EXPECT_EQ(s_terms, 0);
    }
    EXPECT_EQ(s_terms, 1);
}

TEST_F(Module, ScriptsHaveAGrammarAndReplacements) {
    const std::string before = Registry();
    // The last one is deeper than a registry is, and than the stack bears.
    std::u16string deep = u"HKCR ";
    for (int i = 0; i < 100000; ++i)
        deep += u"{ a ";
    for (const std::u16string& bad : std::vector<std::u16string>{
             u"HKXX { a }", u"HKCR { a", u"HKCR { val }", u"HKCR { val n = s 'x' }", u"HKCR { a = s }",
             u"HKCR { a = s 'x }", u"HKCR { a = b '00' }", u"HKCR { %none% }", u"HKCR { a% }", deep})
        EXPECT_TRUE(FAILED(CRegistrar().StringRegister(bad))) << platform::ToUtf8(bad.substr(0, 40));
    EXPECT_EQ(Registry(), before);
    CRegistrar registrar;
    registrar.AddReplacement(u"Module", u"/it''s/x.so");
    const std::u16string_view script =
        u"hkcr { NoRemove keep { ForceRemove 'a b' = s '%Module%%%' { val n = d '0x1F' } } }";
    // ForceRemove clears what is there, whoever has it.
    const auto leave = [] {
        EXPECT_EQ(platform::SetRegistryValues(RegistryRoot::ClassesRoot, u"keep\\a b\\theirs", {}), S_OK);
    };
    leave();
    ASSERT_EQ(registrar.StringRegister(script), S_OK);
    EXPECT_FALSE(platform::RegistryKeyExists(RegistryRoot::ClassesRoot, u"keep\\a b\\theirs"));
    leave();
    const auto value = [](std::u16string_view name) {
        return platform::QueryRegistryValue(RegistryRoot::ClassesRoot, u"keep\\a b", name);
    };
    EXPECT_EQ(value(u""), platform::RegistryValue(u"/it's/x.so%"));
    EXPECT_EQ(value(u"n"), platform::RegistryValue(31U));
    ASSERT_EQ(registrar.StringUnregister(script), S_OK);
    EXPECT_TRUE(platform::RegistryKeyExists(RegistryRoot::ClassesRoot, u"keep"));
    EXPECT_FALSE(platform::RegistryKeyExists(RegistryRoot::ClassesRoot, u"keep\\a b"));
}

} // namespace
