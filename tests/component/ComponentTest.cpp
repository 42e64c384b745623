// The component loaded through dlopen as a host loads it: registration, creation by ProgID, the
// command's and the menu's members, the hook cases and the event connections.

#include "component/hostside/ComponentLoader.h"
#include "component/hostside/HostHooks.h"
#include "component/registry/ClassRegistry.h"
#include "host/memory/MemoryHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace quorel;
using component::ComPtr;

class RecordingItem final : public com::IItemDef {
public:
    void SetID(const std::string& progId) override { ids.push_back(progId); }
    void SetGroup(bool startsGroup) override { groups.push_back(startsGroup); }
    void SetSubType(std::int32_t subType) override { subTypes.push_back(subType); }
    std::vector<std::string> ids;
    std::vector<bool> groups;
    std::vector<std::int32_t> subTypes;
};

class ComponentTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_config = fs::path(::testing::TempDir()) /
                   ("quorel-component-config-" + std::to_string(getpid()));
        fs::remove_all(s_config);
        setenv("XDG_CONFIG_HOME", s_config.c_str(), 1);
        s_library = component::ComponentLibrary::Open(QUOREL_COMPONENT);
        ASSERT_EQ(s_library->RegisterServer(), com::kOk);
    }
    static void TearDownTestSuite() { fs::remove_all(s_config); }

    ComPtr<com::ICommand> NewCommand() {
        component::ComponentLoader loader;
        return loader.CreateByProgId("Quorel.clsRequêteSouple")
            .Query<com::ICommand>(com::IID_ICommand);
    }

    static inline fs::path s_config;
    static inline std::shared_ptr<component::ComponentLibrary> s_library;
};

TEST_F(ComponentTest, commandAnswersOnlyItsInterfaces) {
    auto command = NewCommand();
    ASSERT_TRUE(command);
    EXPECT_TRUE(command->Enabled());
    EXPECT_FALSE(command->Checked());
    EXPECT_FALSE(command.Query<com::IMenuDef>(com::IID_IMenuDef));
    EXPECT_TRUE(
        command.Query<com::IUnknown>(com::MakeGuid("{1B7C25CE-A307-4BC8-BA9D-4E4A492AB241}")));
}

TEST_F(ComponentTest, menuListsTheCompanionCommands) {
    component::ComponentLoader loader;
    auto object = loader.CreateByProgId("Quorel.menu_requeteur");
    auto menu = object.Query<com::IMenuDef>(com::IID_IMenuDef);
    ASSERT_TRUE(menu);
    EXPECT_TRUE(object.Query<com::IRootLevelMenu>(com::IID_IRootLevelMenu));
    EXPECT_FALSE(object.Query<com::ICommand>(com::IID_ICommand));
    EXPECT_EQ(menu->ItemCount(), 2);
    RecordingItem first, outside;
    menu->GetItemInfo(0, &first);
    menu->GetItemInfo(2, &outside);
    menu->GetItemInfo(-1, &outside);
    EXPECT_TRUE(first.groups.empty());
    EXPECT_TRUE(outside.ids.empty());
    EXPECT_TRUE(outside.groups.empty());
    EXPECT_TRUE(outside.subTypes.empty());
}

TEST_F(ComponentTest, unknownProgIdsAndClassesAreRefused) {
    component::ComponentLoader loader;
    EXPECT_FALSE(loader.IsRegistered("Pravel.clsrequêtesouple"));
    EXPECT_FALSE(loader.CreateByProgId("Pravel.clsrequêtesouple"));
    com::HResult result = com::kOk;
    EXPECT_FALSE(s_library->CreateInstance(com::MakeGuid("{00000000-1111-2222-3333-444444444444}"),
                                           &result));
    EXPECT_EQ(result, com::kClassNotAvailable);
}

TEST_F(ComponentTest, applicationHookConnectsTheDocumentAndTheFocusMap) {
    auto app = std::make_shared<host::memory::MemoryApplication>();
    auto hook = ComPtr<com::IUnknown>::Adopt(component::ApplicationHook::Create(app, true));
    auto command = NewCommand();
    command->OnCreate(hook.get());
    auto firstMap = app->FocusMapObject();
    EXPECT_EQ(app->ActiveDocument()->Handlers().Count(), 1u);
    EXPECT_EQ(firstMap->Handlers().Count(), 1u);
    EXPECT_TRUE(firstMap->ViewActive());
    // The view connection follows the focus map, once per change.
    auto secondMap = std::make_shared<host::map::Map>("Second");
    app->ActiveDocument()->AddMap(secondMap);
    app->ActiveDocument()->SetFocusMap(secondMap);
    EXPECT_EQ(firstMap->Handlers().Count(), 0u);
    EXPECT_EQ(secondMap->Handlers().Count(), 1u);
    EXPECT_TRUE(secondMap->ViewActive());
    secondMap->RaiseFocusMapChanged();
    EXPECT_EQ(secondMap->Handlers().Count(), 1u);
    // A new document reconnects the document handlers only when the document changed.
    app->ActiveDocument()->Handlers().Raise([](host::IDocumentEvents& h) { h.NewDocument(); });
    EXPECT_EQ(app->ActiveDocument()->Handlers().Count(), 1u);
    // Releasing the command disconnects everything.
    command.Reset();
    EXPECT_EQ(app->ActiveDocument()->Handlers().Count(), 0u);
    EXPECT_EQ(secondMap->Handlers().Count(), 0u);
}

TEST_F(ComponentTest, mapControlHookFollowsTheControlsMapAndNoDocument) {
    auto app = std::make_shared<host::memory::MemoryApplication>();
    auto controlMap = std::make_shared<host::map::Map>("Control");
    auto hook = ComPtr<com::IUnknown>::Adopt(component::MapControlHook::Create(controlMap));
    auto command = NewCommand();
    command->OnCreate(hook.get());
    EXPECT_EQ(controlMap->Handlers().Count(), 1u);
    EXPECT_TRUE(controlMap->ViewActive());
    EXPECT_EQ(app->ActiveDocument()->Handlers().Count(), 0u);
    EXPECT_EQ(app->FocusMapObject()->Handlers().Count(), 0u);
}

TEST_F(ComponentTest, hookOfAnotherKindConnectsNothing) {
    auto app = std::make_shared<host::memory::MemoryApplication>();
    // An application that is not a map application is not followed either.
    auto plainApp = ComPtr<com::IUnknown>::Adopt(component::ApplicationHook::Create(app, false));
    auto command = NewCommand();
    command->OnCreate(plainApp.get());
    EXPECT_EQ(app->ActiveDocument()->Handlers().Count(), 0u);
    EXPECT_EQ(app->FocusMapObject()->Handlers().Count(), 0u);
    auto other = NewCommand();
    other->OnCreate(command.get()); // a command is neither an application nor a map control
    other->OnCreate(nullptr);
    EXPECT_TRUE(other->Enabled());
}

} // namespace
