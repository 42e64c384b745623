// The command's click, through the loaded component: the definition dialog opens modally over
// the host's map, listing its polygon layers.

#include "component/hostside/ComponentLoader.h"
#include "component/hostside/HostHooks.h"
#include "host/memory/MemoryHost.h"

#include <QApplication>
#include <QListWidget>
#include <QTimer>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace quorel;

TEST(CommandClickTest, opensTheDefinitionDialogOverTheHostsMap) {
    const fs::path config =
        fs::path(::testing::TempDir()) / ("quorel-click-config-" + std::to_string(getpid()));
    fs::remove_all(config);
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    int argc = 1;
    char name[] = "quorel_component_tests";
    char* argv[] = {name, nullptr};
    QApplication qt(argc, argv);
    auto library = component::ComponentLibrary::Open(QUOREL_COMPONENT);
    ASSERT_EQ(library->RegisterServer(), com::kOk);
    component::ComponentLoader loader;
    auto command =
        loader.CreateByProgId("Quorel.clsRequêteSouple").Query<com::ICommand>(com::IID_ICommand);
    ASSERT_TRUE(command);
    auto app = std::make_shared<host::memory::MemoryApplication>();
    app->AddFeatureLayer("/data", "parcels", host::kGeometryPolygon,
                         {{"SLOPE", host::kFieldTypeDouble}});
    app->AddFeatureLayer("/data", "wells", host::kGeometryPoint,
                         {{"DEPTH", host::kFieldTypeDouble}});
    auto hook =
        component::ComPtr<com::IUnknown>::Adopt(component::ApplicationHook::Create(app, true));
    command->OnCreate(hook.get());
    // The picture of the hidden form, as the host's toolbar shows it.
    const com::Picture picture = command->BitmapData();
    EXPECT_EQ(picture.width, 71);
    EXPECT_EQ(picture.height, 62);
    EXPECT_EQ(picture.pixels.size(), 71u * 62u * 3u);
    EXPECT_NE(command->Bitmap(), 0);
    QString shownDialog;
    QStringList listedLayers;
    QTimer closer;
    closer.setInterval(20);
    QObject::connect(&closer, &QTimer::timeout, [&] {
        QWidget* modal = QApplication::activeModalWidget();
        if (modal == nullptr) {
            return;
        }
        shownDialog = modal->objectName();
        if (auto* shapes = modal->findChild<QListWidget*>(QStringLiteral("Lst_shapes"))) {
            for (int i = 0; i < shapes->count(); ++i) {
                listedLayers << shapes->item(i)->text();
            }
        }
        modal->close();
        closer.stop();
    });
    closer.start();
    command->OnClick(); // returns when the dialog is closed
    EXPECT_EQ(shownDialog, QStringLiteral("frm_back"));
    EXPECT_EQ(listedLayers, QStringList{QStringLiteral("parcels")});
    command.Reset();
    fs::remove_all(config);
}

} // namespace
