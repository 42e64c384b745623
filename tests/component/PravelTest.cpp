// Pravel.so loaded beside Quorel.so as a host loads them: both registered in one class registry,
// Quorel's menu items resolved to Pravel's commands, each command's caption, category and
// picture, and unregistration that removes a library's entries and leaves the other's.

#include "component/hostside/ComponentLoader.h"
#include "component/registry/ClassRegistry.h"

#include "tests/support/QtApplication.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace quorel;

class MenuItems final : public com::IItemDef {
public:
    void SetID(const std::string& progId) override { ids.push_back(progId); }
    void SetGroup(bool) override {}
    void SetSubType(std::int32_t) override {}
    std::vector<std::string> ids;
};

TEST(PravelTest, bothLibrariesRegisterSideBySideAndTheMenusItemsAreLive) {
    const fs::path config =
        fs::path(::testing::TempDir()) / ("quorel-pravel-config-" + std::to_string(getpid()));
    fs::remove_all(config);
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);

    const auto quorel = component::ComponentLibrary::Open(QUOREL_COMPONENT);
    const auto pravel = component::ComponentLibrary::Open(QUOREL_PRAVEL);
    ASSERT_EQ(quorel->RegisterServer(), com::kOk);
    ASSERT_EQ(pravel->RegisterServer(), com::kOk);
    // (Each class's library is found through the registry below.)
    EXPECT_EQ(component::ClassRegistry().TypeLibPath("{2B6E9F40-7A13-4C85-9D2E-B04F81C3A65D}"),
              fs::canonical(QUOREL_PRAVEL).string());

    // Every item of Quorel's menu names a command the registry can create.
    component::ComponentLoader loader;
    auto menu =
        loader.CreateByProgId("Quorel.menu_requeteur").Query<com::IMenuDef>(com::IID_IMenuDef);
    ASSERT_TRUE(menu);
    MenuItems items;
    for (std::int32_t i = 0; i < menu->ItemCount(); ++i) {
        menu->GetItemInfo(i, &items);
    }
    ASSERT_EQ(items.ids,
              (std::vector<std::string>{"Pravel.clsrequêtesouple", "Pravel.clsagregationsouple"}));
    std::set<std::string> captions;
    for (const std::string& progId : items.ids) {
        SCOPED_TRACE(progId);
        auto command = loader.CreateByProgId(progId).Query<com::ICommand>(com::IID_ICommand);
        ASSERT_TRUE(command);
        EXPECT_EQ(command->Category(), "OMBREL");
        EXPECT_TRUE(command->Enabled());
        EXPECT_FALSE(command->Caption().empty());
        EXPECT_NE(command->Tooltip(), command->Caption());
        captions.insert(command->Caption());
        const com::Picture picture = command->BitmapData();
        ASSERT_EQ(picture.width, 32);
        ASSERT_EQ(picture.height, 32);
        ASSERT_EQ(picture.pixels.size(), 32u * 32u * 3u);
        // Drawn, not blank.
        EXPECT_GT(std::set<char>(picture.pixels.begin(), picture.pixels.end()).size(), 4u);
    }
    // French by default: the captions come from Pravel's rows of the text database.
    EXPECT_EQ(captions, (std::set<std::string>{"Agrégation souple", "Requête souple"}));
    // Each library counts its own objects: Quorel's menu keeps Quorel loaded, not Pravel, until
    // it is released.
    EXPECT_EQ(pravel->CanUnloadNow(), com::kOk);
    EXPECT_EQ(quorel->CanUnloadNow(), com::kFalse);
    {
        auto held = loader.CreateByProgId("Pravel.clsrequêtesouple");
        EXPECT_EQ(pravel->CanUnloadNow(), com::kFalse);
    }
    EXPECT_EQ(pravel->CanUnloadNow(), com::kOk);
    menu.Reset();
    EXPECT_EQ(quorel->CanUnloadNow(), com::kOk);

    ASSERT_EQ(pravel->UnregisterServer(), com::kOk);
    {
        component::ClassRegistry registry;
        EXPECT_FALSE(registry.FindByProgId("Pravel.clsagregationsouple"));
        EXPECT_FALSE(registry.FindByProgId("Pravel.clsrequêtesouple"));
        EXPECT_TRUE(registry.FindByProgId("Quorel.clsRequêteSouple"));
    }
    ASSERT_EQ(quorel->UnregisterServer(), com::kOk);
    {
        component::ClassRegistry registry;
        EXPECT_FALSE(registry.FindByProgId("Quorel.clsRequêteSouple"));
        EXPECT_FALSE(registry.FindByProgId("Quorel.menu_requeteur"));
        EXPECT_FALSE(registry.TypeLibPath("{B9FAE490-258D-4CFC-8A44-B0D7C470A193}"));
    }
    fs::remove_all(config);
}

} // namespace
