// What the component does at its load, in a process of its own.

#include <gtest/gtest.h>

#include <fstream>

#include "platform/registry.h"
#include "platform/resources.h"
#include "platform/text.h"
#include "support/ComponentClasses.h"
#include "support/temp_folder.h"

namespace {

TEST(Load, PutsTheConfiguredLanguageInForce) {
    const TempFolder folder;
    std::ofstream(folder.File("registry"))
        << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Tessaron]\n\"lang\"=25\n\"sublang\"=1\n";
    EXPECT_EXIT(
        {
            EXPECT_EQ(platform::SetRegistryFile(folder.File("registry")), "");
            EXPECT_EQ(support::RegisterComponentClasses(), S_OK);
            EXPECT_EQ(platform::ToUtf8(platform::LoadResourceString(101).View()), "Камеры");
            EXPECT_EQ(platform::ToNarrow(u"Я"), "\xDF");
            EXPECT_EQ(support::RevokeComponentClasses(), S_OK);
            EXPECT_EQ(support::RegisterComponentClasses(), S_OK); // and is not loaded a second time
            std::exit(testing::Test::HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
