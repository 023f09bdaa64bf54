#include "platform/com.h"

#include <thread>

#include <gtest/gtest.h>

#include "support/Fake.h"

namespace {

using platform::ComPtr;

constexpr GUID kClass{0x11111111, 1, 1, {1}};

struct ILamp : IUnknown {
    static constexpr GUID iid{0x22222222, 2, 2, {2}};
    virtual HRESULT GetColour(int* colour) = 0;

protected:
    ~ILamp() = default;
};

struct IBell : IUnknown {
    static constexpr GUID iid{0x33333333, 3, 3, {3}};

protected:
    ~IBell() = default;
};

class LampWithBell : public support::Fake<ILamp, IBell> {
public:
    explicit LampWithBell(int c) : colour(c) {}
    HRESULT GetColour(int* result) override {
        *result = colour;
        return S_OK;
    }

protected:
    ~LampWithBell() = default;

private:
    int colour;
};

TEST(ClassTest, CreatesObjectsOfRegisteredClasses) {
    const std::int32_t objectsBefore = platform::ModuleLock::Count();
    const auto create = [](ComPtr<ILamp>& lamp, std::uint32_t mask, IUnknown* outer = nullptr) {
        return platform::CoCreateInstance(kClass, outer, mask, ILamp::iid, lamp.ReceiveVoid());
    };
    ComPtr<ILamp> lamp;
    EXPECT_EQ(create(lamp, platform::kContextAll), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(platform::RegisterClassFactory(kClass, nullptr), E_POINTER);
    for (const int colour : {1, 2}) { // the second replaces the first
        const auto factory =
            platform::ComObject<support::FakeFactory>::Create([=](const GUID& id, void** object) {
                return platform::ComObject<LampWithBell>::Create(colour)->QueryInterface(id, object);
            });
        ASSERT_EQ(platform::RegisterClassFactory(kClass, factory.Get()), S_OK);
        ASSERT_EQ(create(lamp, platform::kContextAll), S_OK);
        int got = 0;
        EXPECT_EQ(lamp->GetColour(&got), S_OK);
        EXPECT_EQ(got, colour);
    }
    EXPECT_EQ(platform::ModuleLock::Count(), objectsBefore + 2) << "one factory and one object";
    const ComPtr<ILamp> outer = lamp;
    EXPECT_EQ(create(lamp, platform::kContextAll, outer.Get()), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(create(lamp, 0), E_INVALIDARG);
    EXPECT_EQ(create(lamp, 4), REGDB_E_CLASSNOTREG) << "only outside this process";
    EXPECT_FALSE(lamp);
    EXPECT_EQ(platform::CoCreateInstance(kClass, nullptr, 1, ILamp::iid, nullptr), E_POINTER);
    void* other = this;
    EXPECT_EQ(platform::CoCreateInstance(kClass, nullptr, 1, kClass, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(platform::RevokeClassFactory(kClass), S_OK);
    EXPECT_EQ(platform::RevokeClassFactory(kClass), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(create(lamp, platform::kContextAll), REGDB_E_CLASSNOTREG);
    EXPECT_EQ(platform::ModuleLock::Count(), objectsBefore + 1) << "the object outlives its factory";
}

TEST(QueryTest, GoesBothWaysAndHasOneIdentity) {
    const ComPtr<ILamp> lamp = platform::ComObject<LampWithBell>::Create(7);
    const ComPtr<IBell> bell = lamp.Query<IBell>();
    ASSERT_TRUE(bell);
    EXPECT_EQ(bell.Query<ILamp>().Get(), lamp.Get());
    EXPECT_EQ(bell.Query<IUnknown>().Get(), lamp.Query<IUnknown>().Get());
    EXPECT_FALSE(lamp.Query<IClassFactory>());
    EXPECT_EQ(lamp->QueryInterface(ILamp::iid, nullptr), E_POINTER);
}

TEST(ApartmentTest, IsLeftOnceForEachJoin) {
    EXPECT_EQ(platform::CoInitializeEx(nullptr, 2), E_INVALIDARG);
    EXPECT_EQ(platform::CoInitializeEx(this, platform::COINIT_MULTITHREADED), E_INVALIDARG);
    platform::CoUninitialize(); // one too many
    for (const HRESULT joined : {S_OK, S_FALSE})
        EXPECT_EQ(platform::CoInitializeEx(nullptr, platform::COINIT_MULTITHREADED), joined);
    platform::CoUninitialize();
    EXPECT_TRUE(platform::IsInApartment());
    std::thread([] { EXPECT_FALSE(platform::IsInApartment()); }).join();
    platform::CoUninitialize();
    EXPECT_FALSE(platform::IsInApartment());
}

TEST(OnceComPtrTest, KeepsTheFirst) {
    const std::int32_t objects = platform::ModuleLock::Count();
    {
        platform::OnceComPtr<ILamp> once;
        once.SetOnce(nullptr);
        EXPECT_FALSE(once);
        once.SetOnce(platform::ComObject<LampWithBell>::Create(1));
        once.SetOnce(platform::ComObject<LampWithBell>::Create(2));
        int colour = 0;
        EXPECT_EQ(once->GetColour(&colour), S_OK);
        EXPECT_EQ(colour, 1);
        EXPECT_EQ(platform::ModuleLock::Count(), objects + 1);
    }
    EXPECT_EQ(platform::ModuleLock::Count(), objects);
}

TEST(TaskMemoryTest, NothingForNothing) {
    EXPECT_EQ(CoTaskMemAlloc(0), nullptr);
    CoTaskMemFree(nullptr);
    void* const block = CoTaskMemAlloc(100);
    ASSERT_NE(block, nullptr);
    CoTaskMemFree(block);
}

} // namespace
