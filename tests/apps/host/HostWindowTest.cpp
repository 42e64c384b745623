// The desktop host under offscreen Qt: the component loaded from the class registry, its
// command clicked in the toolbar and a criterion run through its dialog on the demo document.

#include "apps/quorel-host/AttributeTableModel.h"
#include "apps/quorel-host/MainWindow.h"
#include "component/hostside/ComponentLoader.h"
#include "component/registry/ClassRegistry.h"
#include "criterion/Membership.h"
#include "host/api/Selection.h"
#include "tests/host/postgis/TestPostgis.h"
#include "tests/support/PostgresCluster.h"
#include "tests/support/QtApplication.h"
#include "tests/support/ScratchFolder.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QTest>
#include <QTimer>
#include <QToolBar>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>

namespace quorel::host_app {
namespace {

namespace fs = std::filesystem;

const QString kCommand = QStringLiteral("Quorel.clsRequêteSouple");

void ClickItem(QListWidget& list, const QString& text) {
    const auto found = list.findItems(text, Qt::MatchExactly);
    ASSERT_EQ(found.size(), 1) << text.toStdString();
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {},
                      list.visualItemRect(found.front()).center());
}

class HostWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(m_folder / "config");
        setenv("XDG_CONFIG_HOME", (m_folder / "config").c_str(), 1);
        const auto library = component::ComponentLibrary::Open(QUOREL_COMPONENT);
        ASSERT_EQ(library->RegisterServer(), com::kOk);
        for (const char* ext : {".shp", ".shx", ".dbf", ".prj", ".cpg"}) {
            fs::copy_file(fs::path(QUOREL_SOURCE_DIR) / "samples" / (std::string("parcels") + ext),
                          m_folder / (std::string("parcels") + ext));
        }
        fs::copy_file(fs::path(QUOREL_SOURCE_DIR) / "samples" / "demo.qmap",
                      m_folder / "demo.qmap");
        OpenWindow();
    }

    // A window over the default class registry, showing the demo document.
    void OpenWindow() {
        m_window = std::make_unique<MainWindow>(
            MainWindow::Options{component::ClassRegistry::DefaultPath(), {}});
        m_window->OpenDocumentFile(QString::fromStdString((m_folder / "demo.qmap").string()));
        m_window->show();
    }

    // Clicks the command; while its dialog is up, closes every message box (recording its
    // text) and runs drive on the dialog once, then closes the dialog.
    QStringList ClickCommandAndDrive(const std::function<void(QWidget&)>& drive) {
        QStringList boxes;
        QTimer closer;
        closer.setInterval(10);
        QObject::connect(&closer, &QTimer::timeout, [&] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                boxes << box->text();
                box->accept();
            }
        });
        closer.start();
        bool driven = false;
        QTimer driver;
        driver.setInterval(20);
        QObject::connect(&driver, &QTimer::timeout, [&] {
            QWidget* dialog = QApplication::activeModalWidget();
            if (driven || dialog == nullptr || dialog->objectName() != QStringLiteral("frm_back")) {
                return;
            }
            driven = true;
            drive(*dialog);
            dialog->findChild<QAbstractButton*>(QStringLiteral("cmd_sortie"))->click();
        });
        driver.start();
        QAction* action = m_window->CommandAction(kCommand);
        EXPECT_NE(action, nullptr);
        if (action != nullptr) {
            action->trigger();
        }
        EXPECT_TRUE(driven);
        return boxes;
    }

    static void RunTrapezoidOnSlope(QWidget& dialog) {
        ClickItem(*dialog.findChild<QListWidget*>(QStringLiteral("Lst_shapes")),
                  QStringLiteral("parcels"));
        ClickItem(*dialog.findChild<QListWidget*>(QStringLiteral("Lst_fields")),
                  QStringLiteral("SLOPE"));
        dialog.findChild<QAbstractButton*>(QStringLiteral("cmd_nf_5"))->click();
        const char* boxes[] = {"Txt_val_a", "Txt_val_b", "Txt_val_c", "Txt_val_d"};
        const char* values[] = {"2", "5", "15", "25"};
        for (int i = 0; i < 4; ++i) {
            dialog.findChild<QLineEdit*>(QString::fromLatin1(boxes[i]))
                ->setText(QString::fromLatin1(values[i]));
        }
        dialog.findChild<QAbstractButton*>(QStringLiteral("cmd_go"))->click();
    }

    QStringList TableHeaders() const {
        QStringList headers;
        const AttributeTableModel& model = *m_window->AttributeModel();
        for (int c = 0; c < model.columnCount(); ++c) {
            headers << model.headerData(c, Qt::Horizontal, Qt::DisplayRole).toString();
        }
        return headers;
    }

    // With QUOREL_SCREENSHOT_DIR set, the window is saved there as name.png for people to see.
    void Screenshot(const char* name) const {
        if (const char* folder = std::getenv("QUOREL_SCREENSHOT_DIR")) {
            QApplication::processEvents();
            m_window->grab().save(QString::fromUtf8(folder) + QLatin1Char('/') +
                                  QString::fromLatin1(name) + QStringLiteral(".png"));
        }
    }

    test::ScratchFolder m_scratch;
    fs::path m_folder{m_scratch.Path()};
    std::unique_ptr<MainWindow> m_window;
};

TEST_F(HostWindowTest, theCommandStandsInItsCategorysToolbarWithItsTextsAndPicture) {
    QToolBar* bar = m_window->CategoryToolBar(QStringLiteral("OMBREL"));
    ASSERT_NE(bar, nullptr);
    QAction* action = m_window->CommandAction(kCommand);
    ASSERT_NE(action, nullptr);
    EXPECT_TRUE(bar->actions().contains(action));
    EXPECT_EQ(action->text(), QStringLiteral("2Critère souple V9.2  à 10.3VML"));
    EXPECT_EQ(action->toolTip(), QStringLiteral("2Critère souple V9.2 à 10.3VML"));
    EXPECT_TRUE(action->isEnabled());
    EXPECT_EQ(action->icon().availableSizes().value(0), QSize(71, 62));
    EXPECT_TRUE(m_window->Components().Failures().empty());
    // The document was opened after the command was created: its handlers followed it there.
    const auto document =
        std::dynamic_pointer_cast<host::map::MxDocument>(m_window->Application()->Document());
    ASSERT_TRUE(document);
    EXPECT_EQ(document->Handlers().Count(), 1u);
    const auto map = std::dynamic_pointer_cast<host::map::Map>(document->FocusMap());
    ASSERT_TRUE(map);
    EXPECT_EQ(map->Handlers().Count(), 2u); // the command's and the window's
    EXPECT_TRUE(map->ViewActive());
}

TEST_F(HostWindowTest, onceTheSiblingComponentIsRegisteredTheMenusItemsAreLiveAndOpenItsWindows) {
    const auto pravel = component::ComponentLibrary::Open(QUOREL_PRAVEL);
    ASSERT_EQ(pravel->RegisterServer(), com::kOk);
    OpenWindow();
    ASSERT_TRUE(m_window->Components().Failures().empty());
    QMenu* menu = nullptr;
    for (QAction* entry : m_window->menuBar()->actions()) {
        if (entry->text() == QStringLiteral("Requêtes souples")) {
            menu = entry->menu();
        }
    }
    ASSERT_NE(menu, nullptr);
    const std::pair<QString, QString> items[] = {
        {QStringLiteral("Pravel.clsrequêtesouple"), QStringLiteral("FrmQuery")},
        {QStringLiteral("Pravel.clsagregationsouple"), QStringLiteral("FrmAggregation")}};
    for (const auto& [progId, window] : items) {
        SCOPED_TRACE(progId.toStdString());
        QAction* item = menu->findChild<QAction*>(progId);
        ASSERT_NE(item, nullptr);
        EXPECT_TRUE(item->isEnabled());
        EXPECT_NE(item->text(), progId) << "shown by its command's caption";
        QString opened;
        QString layers;
        QTimer closer;
        closer.setInterval(20);
        QObject::connect(&closer, &QTimer::timeout, [&] {
            if (QWidget* modal = QApplication::activeModalWidget()) {
                opened = modal->objectName();
                if (auto* choice = modal->findChild<QComboBox*>(QStringLiteral("Cmb_layer"))) {
                    layers = choice->currentText();
                }
                modal->close();
            }
        });
        closer.start();
        item->trigger();
        EXPECT_EQ(opened, window);
        EXPECT_EQ(layers, QStringLiteral("parcels"));
    }
}

// The centre of a sample parcel (FID), and the colour the map shows there: the sample's parcels
// are the 100 m cells of a 20 x 20 grid, their corners moved less than 30 m, numbered row by row
// from the bottom left, so a cell's centre lies in its parcel.
ShapePoint ParcelCentre(const MapView& view, int fid) {
    const Extent full = view.FullExtent();
    return {std::round(full.minX / 100) * 100 + (fid % 20 + 0.5) * 100,
            std::round(full.minY / 100) * 100 + (fid / 20 + 0.5) * 100};
}

QRgb ParcelPixel(const MapView& view, int fid) {
    const ScreenPoint at = view.Viewport().ToScreen(ParcelCentre(view, fid));
    QApplication::processEvents();
    return const_cast<MapView&>(view).grab().toImage().pixel(static_cast<int>(at.x),
                                                             static_cast<int>(at.y));
}

TEST_F(HostWindowTest, aCriterionRunShowsInTheLegendTheTableAndWhatIdentifyFinds) {
    ASSERT_NE(m_window->FindLayer(QStringLiteral("parcels")), nullptr);
    EXPECT_EQ(m_window->View()->Layers().size(), 1u);
    EXPECT_FALSE(TableHeaders().contains(QStringLiteral("FZY_SLOPE")));
    EXPECT_EQ(m_window->AttributeModel()->rowCount(), 400);
    Screenshot("host_before");
    const QStringList boxes = ClickCommandAndDrive(RunTrapezoidOnSlope);
    ASSERT_EQ(boxes.size(), 1) << boxes.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(boxes.front().startsWith(QStringLiteral("Le critère a été calculé")))
        << boxes.front().toStdString();
    EXPECT_EQ(m_window->View()->LegendTitle(), QStringLiteral("FZY_SLOPE"));
    const auto legend = m_window->View()->Legend();
    ASSERT_EQ(legend.size(), 5u);
    EXPECT_EQ(legend.front().label, QStringLiteral("0 – 0.2"));
    EXPECT_EQ(legend.back().label, QStringLiteral("0.8 – 1"));
    EXPECT_TRUE(TableHeaders().contains(QStringLiteral("FZY_SLOPE")));
    EXPECT_EQ(m_window->FieldChoice()->currentText(), QStringLiteral("FZY_SLOPE"));
    // The calculator's message was shown, then cleared.
    EXPECT_EQ(m_window->StatusMessage(), QString());
    Screenshot("host_after");
    // Zoomed in on a few parcels, identify a click on parcel 191.
    const ShapePoint centre = ParcelCentre(*m_window->View(), 191);
    m_window->View()->ZoomToExtent(
        {centre.x - 450, centre.y - 300, centre.x + 450, centre.y + 300});
    m_window->findChild<QAction*>(QStringLiteral("identifyTool"))->trigger();
    const ScreenPoint at = m_window->View()->Viewport().ToScreen(centre);
    QTest::mouseClick(m_window->View(), Qt::LeftButton, {},
                      QPoint(static_cast<int>(at.x), static_cast<int>(at.y)));
    const IdentifyPanel& found = *m_window->Identified();
    EXPECT_TRUE(found.isVisible());
    EXPECT_EQ(found.ValueOf(QStringLiteral("FID")), QStringLiteral("191"))
        << found.Title().toStdString();
    const QString slope = found.ValueOf(QStringLiteral("SLOPE"));
    ASSERT_FALSE(slope.isEmpty());
    EXPECT_NEAR(found.ValueOf(QStringLiteral("FZY_SLOPE")).toDouble(),
                criterion::Membership(5, slope.toDouble(), 2, 5, 15, 25), 1e-9)
        << "SLOPE " << slope.toStdString();
    EXPECT_EQ(found.ValueOf(QStringLiteral("LANDUSE")).isEmpty(), false);
    Screenshot("host_identify");
}

TEST_F(HostWindowTest, aLayersSelectionIsDrawnAndMarkedInTheTableWhichCanShowItAlone) {
    const auto layer = m_window->FindLayer(QStringLiteral("parcels"));
    host::IFeatureSelection* selection = host::SelectionOf(layer);
    ASSERT_NE(selection, nullptr);
    const AttributeTableModel& model = *m_window->AttributeModel();
    const auto fidAt = [&](int row) {
        return model.data(model.index(row, 0), Qt::DisplayRole).toString();
    };
    const auto marked = [&](int row) {
        return model.data(model.index(row, 0), Qt::BackgroundRole).isValid();
    };
    const QRgb before191 = ParcelPixel(*m_window->View(), 191);
    const QRgb before100 = ParcelPixel(*m_window->View(), 100);

    // As a component selects, through the layer: the window hears it.
    selection->SelectFeatures({191, 5});
    QApplication::processEvents();
    EXPECT_NE(ParcelPixel(*m_window->View(), 191), before191);
    EXPECT_EQ(ParcelPixel(*m_window->View(), 100), before100);
    ASSERT_EQ(model.rowCount(), 400);
    EXPECT_TRUE(marked(191));
    EXPECT_TRUE(marked(5));
    EXPECT_FALSE(marked(190));
    EXPECT_EQ(m_window->SelectionCountText(), QStringLiteral("2 sélectionnée(s) sur 400"));

    m_window->SelectedOnlyBox()->setChecked(true);
    ASSERT_EQ(model.rowCount(), 2);
    EXPECT_EQ(fidAt(0), QStringLiteral("5"));
    EXPECT_EQ(fidAt(1), QStringLiteral("191"));
    Screenshot("host_selection");
    selection->SelectFeatures({7, 399, 400});
    QApplication::processEvents();
    ASSERT_EQ(model.rowCount(), 2) << "400 names no feature";
    EXPECT_EQ(fidAt(1), QStringLiteral("399"));

    m_window->findChild<QAction*>(QStringLiteral("clearSelection"))->trigger();
    QApplication::processEvents();
    EXPECT_TRUE(selection->SelectedIds().empty());
    EXPECT_EQ(model.rowCount(), 0);
    m_window->SelectedOnlyBox()->setChecked(false);
    EXPECT_EQ(model.rowCount(), 400);
    EXPECT_EQ(ParcelPixel(*m_window->View(), 191), before191);
}

// A document's PostGIS layer is drawn and tabled, its squares and rows in the order of their ids,
// even once an update has moved the first row to the end of the table on disk.
TEST_F(HostWindowTest, aPostgisLayerIsDrawnAndTabledInTheOrderOfItsIdsWithItsSelection) {
    const std::string source = testing::MakePostgisTable("roads", {"WIDTH"}, {{1.0}, {2.0}, {3.0}});
    test::PostgresCluster::Instance().Sql(test::PostgresCluster::DatabaseOf(source),
                                          "UPDATE roads SET \"WIDTH\" = 10 WHERE fid = 1");
    const fs::path document = m_folder / "roads.qmap";
    {
        std::ofstream out(document);
        out << "quorel-map\t1\nmap\tm\nlayer\troads\t" << source << "\tselectable\troads\n";
    }
    m_window->OpenDocumentFile(QString::fromStdString(document.string()));
    const auto layer = m_window->FindLayer(QStringLiteral("roads"));
    ASSERT_NE(layer, nullptr);
    host::SelectionOf(layer)->SelectFeatures({1});
    QApplication::processEvents();
    ASSERT_EQ(m_window->View()->Layers().size(), 1u);
    const DrawnLayer& drawn = m_window->View()->Layers().front();
    ASSERT_TRUE(drawn.geometry);
    ASSERT_EQ(drawn.geometry->FeatureCount(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(drawn.geometry->FeatureBox(i).minX, static_cast<double>(i));
    }
    ASSERT_TRUE(drawn.selected);
    EXPECT_EQ(*drawn.selected, (std::vector<std::uint8_t>{1, 0, 0}));
    // Its table lists the rows in the same order, and can show the selection alone.
    const AttributeTableModel& model = *m_window->AttributeModel();
    ASSERT_EQ(model.rowCount(), 3);
    ASSERT_EQ(model.columnCount(), 2);
    EXPECT_EQ(model.headerData(1, Qt::Horizontal, Qt::DisplayRole).toString(), "WIDTH");
    EXPECT_EQ(model.data(model.index(0, 0), Qt::DisplayRole).toString(), "1");
    EXPECT_EQ(model.data(model.index(0, 1), Qt::DisplayRole).toString(), "10");
    EXPECT_TRUE(model.data(model.index(0, 0), Qt::BackgroundRole).isValid());
    m_window->SelectedOnlyBox()->setChecked(true);
    ASSERT_EQ(model.rowCount(), 1);
    EXPECT_EQ(model.data(model.index(0, 1), Qt::DisplayRole).toString(), "10");
}

TEST_F(HostWindowTest, contentsFollowLayersAddedRenamedHiddenMadeUnselectableAndRemoved) {
    const auto added =
        m_window->AddShapefile(QString::fromStdString((m_folder / "parcels.shp").string()));
    m_window->RenameLayer(added, QStringLiteral("copie"));
    QTreeWidgetItem* root = m_window->Contents()->topLevelItem(0);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->text(0), QStringLiteral("Couches"));
    ASSERT_EQ(root->childCount(), 2);
    EXPECT_EQ(root->child(1)->text(0), QStringLiteral("copie"));
    const auto shown = [this](const std::shared_ptr<host::ILayer>& layer) {
        for (const DrawnLayer& drawn : m_window->View()->Layers()) {
            if (drawn.layer == layer) {
                return drawn.visible;
            }
        }
        ADD_FAILURE() << "not among the map's layers";
        return false;
    };
    // The check box hides and shows the layer; it leaves the selectable flag alone.
    root->child(1)->setCheckState(0, Qt::Unchecked);
    EXPECT_FALSE(shown(added));
    EXPECT_TRUE(added->Selectable());
    m_window->Contents()->topLevelItem(0)->child(1)->setCheckState(0, Qt::Checked);
    EXPECT_TRUE(shown(added));
    // Selectable is the context menu's.
    const auto menu =
        m_window->Contents()->ContextMenuFor(m_window->Contents()->topLevelItem(0)->child(1));
    ASSERT_NE(menu, nullptr);
    QAction* selectable = menu->findChild<QAction*>(QStringLiteral("selectable"));
    ASSERT_NE(selectable, nullptr);
    EXPECT_TRUE(selectable->isChecked());
    selectable->trigger();
    EXPECT_FALSE(added->Selectable());
    EXPECT_TRUE(shown(added));
    // The document file keeps the flag (its own tests); the window's title follows the save.
    m_window->SaveDocumentFile(QString::fromStdString((m_folder / "saved.qmap").string()));
    EXPECT_EQ(m_window->windowTitle(), QStringLiteral("saved.qmap — Quorel"));
    m_window->RemoveLayer(added);
    EXPECT_EQ(m_window->Contents()->topLevelItem(0)->childCount(), 1);
    EXPECT_EQ(m_window->FindLayer(QStringLiteral("copie")), nullptr);
}

TEST_F(HostWindowTest, aComponentThatFailsToLoadIsNamedWithItsReasonAndStaysDisabled) {
    component::ClassRegistry registry(component::ClassRegistry::DefaultPath());
    registry.RegisterClass("{6E0B5C1A-0000-4000-8000-000000000001}", "Broken.Command",
                           "/nonexistent/Broken.so");
    registry.Save();
    m_window = std::make_unique<MainWindow>(MainWindow::Options{
        registry.Path(), {kCommand.toStdString(), "Broken.Command", "Missing.Component"}});
    m_window->show();
    QApplication::processEvents();
    QMessageBox* box = m_window->LoadFailureMessage();
    ASSERT_NE(box, nullptr);
    EXPECT_TRUE(box->isVisible());
    EXPECT_TRUE(box->text().contains(
        QStringLiteral("Broken.Command : Cannot load the component /nonexistent/Broken.so")))
        << box->text().toStdString();
    EXPECT_TRUE(box->text().contains(QStringLiteral("Missing.Component : not registered")))
        << box->text().toStdString();
    box->accept();
    QMenu* failed = m_window->menuBar()->findChild<QMenu*>(QStringLiteral("failedComponents"));
    ASSERT_NE(failed, nullptr);
    QStringList items;
    for (QAction* item : failed->actions()) {
        EXPECT_FALSE(item->isEnabled());
        EXPECT_TRUE(item->isVisible());
        items << item->text();
    }
    EXPECT_EQ(items,
              (QStringList{QStringLiteral("Broken.Command"), QStringLiteral("Missing.Component")}));
    // The component that loaded works as ever.
    ASSERT_NE(m_window->CommandAction(kCommand), nullptr);
    EXPECT_TRUE(m_window->CommandAction(kCommand)->isEnabled());
}

} // namespace
} // namespace quorel::host_app
