// The definition dialog driven as a user drives it: mouse clicks on its lists and buttons,
// over real shapefiles in a GDAL-backed map.

#include "tests/dialog/DialogFixture.h"

#include "criterion/Preview.h"
#include "dialog/Pictures.h"
#include "dialog/PreviewView.h"
#include "fzy/AggregationRecords.h"
#include "host/shapefile/Application.h"
#include "tests/host/gpkg/TestGeoPackages.h"
#include "util/StringFunctions.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <array>
#include <filesystem>

namespace quorel::dialog::test {
namespace {

using Strings = std::vector<std::string>;

class FrmBackTest : public DialogTest {
protected:
    // Tests that set the user's decimal mark leave it as they found it.
    void TearDown() override { util::SetDecimalSeparator(std::nullopt); }

    static std::array<QLineEdit*, 4> Boxes(frm_back& d) {
        return {d.Txt_val_a, d.Txt_val_b, d.Txt_val_c, d.Txt_val_d};
    }
    static void Type(frm_back& d, const std::array<const char*, 4>& texts) {
        for (std::size_t i = 0; i < 4; ++i) {
            Boxes(d)[i]->setText(QString::fromUtf8(texts[i]));
        }
    }
    static void Choose(frm_back& d, const char* layer, const char* field) {
        ClickItem(*d.Lst_shapes, QString::fromUtf8(layer));
        ClickItem(*d.Lst_fields, QString::fromUtf8(field));
    }
    // What the metadata window shows of an aggregation of A and B by and.
    std::string AndOfAB(const std::string& field) const {
        std::string shown = Text(330);
        const Strings arguments = {field, "and", "A, B", "2026-11-24T15:00:00+01:00"};
        for (std::size_t i = arguments.size(); i-- > 0;) {
            shown.replace(shown.find("%" + std::to_string(i + 1)), 2, arguments[i]);
        }
        return shown;
    }
    static fzy::AggregationRecord AndRecord(const std::string& field) {
        return {field, {"A", "B"}, "and", std::nullopt, {}, "2026-11-24T15:00:00+01:00", "10.3.2"};
    }
    // The metadata window's text (and title) on clicking sum_table.
    static std::string Metadata(frm_back& d, std::string* title = nullptr) {
        std::string shown;
        const auto seen = OnNextModal([&](QWidget& window) {
            if (title != nullptr) {
                *title = window.windowTitle().toStdString();
            }
            shown = window.findChild<QPlainTextEdit*>()->toPlainText().toStdString();
        });
        Click(*d.sum_table);
        EXPECT_TRUE(*seen);
        return shown;
    }
};

TEST_F(FrmBackTest, loadListsSelectableTopLevelPolygonLayersOutsideMdbFolders) {
    AddLayer(WritePolygons("data", "parcels", {{"SLOPE", {1, 2}}}));
    AddLayer(WritePoints("data", "wells"));
    AddLayer(WritePolygons("data", "hidden", {{"SLOPE", {1}}}))->SetSelectable(false);
    const auto inner = AddLayer(WritePolygons("data", "inner", {{"SLOPE", {1}}}));
    const auto map = m_app->Document()->FocusMap();
    map->DeleteLayer(inner);
    auto group = std::make_shared<host::map::GroupLayer>();
    group->SetName("group");
    group->Add(inner);
    map->AddLayer(group);
    AddLayer(WritePolygons("base.mdb", "access", {{"SLOPE", {1}}}));
    AddLayer(WritePolygons("BASE.MDB", "upper", {{"SLOPE", {1}}}));
    frm_back& dialog = Dialog();
    EXPECT_EQ(Items(*dialog.Lst_shapes), (Strings{"parcels", "upper"}));
    EXPECT_EQ(dialog.ShapeList().ListIndex(), -1);
    EXPECT_EQ(dialog.Lst_fields->count(), 0);
    EXPECT_TRUE(m_ui.boxes.empty());
    for (int k = 0; k < 5; ++k) {
        EXPECT_FALSE(dialog.cmd_nf[static_cast<std::size_t>(k)]->icon().isNull());
    }
}

TEST_F(FrmBackTest, loadWithoutHostReportsTheStepReached) {
    m_session->SetApplication(nullptr);
    Dialog();
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].text,
              "91  Object variable or With block variable not setDebug= dans form_load");
}

TEST_F(FrmBackTest, keyboardMovesInTheLayerListChooseNothing) {
    AddLayer(WritePolygons("data", "roads", {{"WIDTH", {1}}}));
    AddLayer(WritePolygons("data", "parcels", {{"SLOPE", {1}}}));
    frm_back& dialog = Dialog();
    ClickItem(*dialog.Lst_shapes, QStringLiteral("roads"));
    dialog.Lst_shapes->setFocus();
    QTest::keyClick(dialog.Lst_shapes, Qt::Key_Down);
    EXPECT_EQ(dialog.Lst_shapes->currentRow(), 1);
    EXPECT_EQ(Items(*dialog.Lst_fields), (Strings{"WIDTH"}));
    EXPECT_EQ(m_session->state.g_layer_name, "roads");
}

// Any mouse button chooses; of two layers of one name, the last in the map is the one chosen.
TEST_F(FrmBackTest, choosingALayerListsItsNumericFieldsAndRecordsTheLastOfItsName) {
    AddLayer(WritePolygons("first", "parcels", {{"WIDTH", {1}}}));
    AddLayer(WritePolygons("second", "parcels", {{"SLOPE", {1}}, {"POP", {2}}}));
    frm_back& dialog = Dialog();
    dialog.Txt_new_name->setText(QStringLiteral("old"));
    ASSERT_EQ(Items(*dialog.Lst_shapes), (Strings{"parcels", "parcels"}));
    QTest::mouseClick(dialog.Lst_shapes->viewport(), Qt::RightButton, {},
                      dialog.Lst_shapes->visualItemRect(dialog.Lst_shapes->item(0)).center());
    EXPECT_EQ(Items(*dialog.Lst_fields), (Strings{"SLOPE", "POP"}));
    EXPECT_EQ(dialog.Txt_new_name->text(), QString());
    EXPECT_EQ(m_session->state.g_layer_name, "parcels");
    EXPECT_EQ(m_session->state.g_layer_path, Folder("second"));
    EXPECT_EQ(m_session->state.g_layer_index, 1);
}

// Cancelled first, then chosen.
TEST_F(FrmBackTest, addingShapefileListsItAndItsFieldsAndAddsItToTheMapAndCancellingNothing) {
    const std::string roads = WritePolygons("disk", "roads", {{"WIDTH", {3}}, {"LANES", {2}}});
    std::string title;
    Strings filters;
    std::optional<std::string> chosen;
    m_session->context.chooseFile = [&](const std::string& t, const Strings& f) {
        title = t;
        filters = f;
        return chosen;
    };
    m_session->state.g_layer_name = "previous";
    m_session->state.g_shape_name = "older";
    frm_back& dialog = Dialog();
    Click(*dialog.cmd_open_shape);
    EXPECT_EQ(dialog.Lst_shapes->count(), 0);
    EXPECT_EQ(m_session->state.g_shape_name, "");
    chosen = roads;
    Click(*dialog.cmd_open_shape);
    EXPECT_EQ(title, "Définir le fichier shape contenant la donnée à traiter");
    EXPECT_EQ(filters, (Strings{"Fichiers shape (*.shp)", "Tous les fichiers (*.*)",
                                "GeoPackage (*.gpkg)"}));
    EXPECT_EQ(Items(*dialog.Lst_shapes), (Strings{"roads"}));
    EXPECT_EQ(Items(*dialog.Lst_fields), (Strings{"WIDTH", "LANES"}));
    const auto map = m_app->Document()->FocusMap();
    ASSERT_EQ(map->LayerCount(), 1);
    EXPECT_EQ(map->Layer(0)->Name(), "roads");
    EXPECT_EQ(m_session->state.g_shape_folder, Folder("disk"));
    EXPECT_EQ(m_session->state.g_layer_name, "previous");
    EXPECT_TRUE(m_ui.boxes.empty());
}

TEST_F(FrmBackTest, aGeoPackageAsksForItsTableAndShowsItsRecordsInTheMetadata) {
    const std::string path = Folder("disk") + "/two.gpkg";
    testing::MakeGeoPackage(path, {{"roads", {"WIDTH"}, {{3.0}}},
                                   {"zones", {"SLOPE", "MIX"}, {{1.0, 0.5}, {5.0, 0.25}}}});
    m_session->context.chooseFile = [&](const std::string&, const Strings&) {
        return std::optional<std::string>(path);
    };
    Strings offered;
    m_session->context.chooseLayer = [&](const std::string&, const Strings& layers) {
        offered = layers;
        return std::optional<std::string>("zones");
    };
    frm_back& dialog = Dialog();
    Click(*dialog.cmd_open_shape);
    EXPECT_EQ(offered, (Strings{"roads", "zones"}));
    EXPECT_EQ(Items(*dialog.Lst_shapes), (Strings{"zones"}));
    EXPECT_EQ(Items(*dialog.Lst_fields), (Strings{"SLOPE", "MIX"}));
    const auto layer =
        std::dynamic_pointer_cast<host::IFeatureLayer>(m_app->Document()->FocusMap()->Layer(0));
    ASSERT_TRUE(layer);
    auto& records = dynamic_cast<host::ICriterionRecords&>(*layer->FeatureClass());
    records.WriteRecord(
        {"zones", "SLOPE", "SLOPE", 3, 0, 10, 1e14, 1e15, "2026-11-24T15:00:00+01:00", "10.3.2"});
    records.WriteAggregationRecord(AndRecord("MIX"));
    Choose(dialog, "zones", "MIX");
    EXPECT_EQ(Metadata(dialog), AndOfAB("MIX"));
    Choose(dialog, "zones", "SLOPE");
    const std::string shown = Metadata(dialog);
    EXPECT_EQ(shown.rfind(Text(147) + " SLOPE(", 0), 0u) << shown;
    EXPECT_NE(shown.find("\n Val_b = 10\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find(path + "/zones " + Text(156) + " 2026-11-24T15:00:00+01:00"),
              std::string::npos)
        << shown;
    EXPECT_TRUE(m_ui.boxes.empty());
}

TEST_F(FrmBackTest, addingAFileThatCannotBeOpenedKeepsTheEntryAndReportsAndLogs) {
    const std::string missing = Folder("disk") + "/ghost.shp";
    m_session->context.chooseFile = [&](const std::string&, const Strings&) {
        return std::optional<std::string>(missing);
    };
    frm_back& dialog = Dialog();
    Click(*dialog.cmd_open_shape);
    EXPECT_EQ(Items(*dialog.Lst_shapes), (Strings{"ghost"}));
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].icon, util::MessageIcon::Critical);
    EXPECT_NE(m_ui.boxes[0].text.find(" - cmd_open_shape_Click"), std::string::npos);
    EXPECT_NE(m_ui.boxes[0].text.find("\r\nDebug=\r\n"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(m_scratch.path().toStdString() + "/quorel.log"));
}

TEST_F(FrmBackTest, choosingFieldProposesOutputNameWarnsOfDuplicateAndEmptiesBoxes) {
    AddLayer(WritePolygons("data", "parcels", {{"SLOPE", {1}}, {"FZY_SLOPE", {0}}}));
    frm_back& dialog = Dialog();
    ClickItem(*dialog.Lst_shapes, QStringLiteral("parcels"));
    Type(dialog, {"4", "4", "4", "4"});
    ClickItem(*dialog.Lst_fields, QStringLiteral("SLOPE"));
    EXPECT_EQ(dialog.Txt_new_name->text(), QStringLiteral("FZY_SLOPE"));
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].text, Text(157));
    EXPECT_EQ(m_ui.boxes[0].title, Text(158));
    EXPECT_EQ(m_ui.boxes[0].icon, util::MessageIcon::None);
    for (QLineEdit* box : Boxes(dialog)) {
        EXPECT_TRUE(box->text().isEmpty());
    }
    ClickItem(*dialog.Lst_fields, QStringLiteral("FZY_SLOPE"));
    EXPECT_EQ(dialog.Txt_new_name->text(), QStringLiteral("FZY_FZY_SLOPE"));
    EXPECT_EQ(m_ui.boxes.size(), 1u);
}

// Each shape's button: its diagram and boxes, its explanation on hovering, and the same shape
// pressed when the dialog opens again.
TEST_F(FrmBackTest, kindButtonsShowDiagramAndBoxesExplainAndAreRemembered) {
    using Shown = std::array<bool, 4>;
    int kind = 0;
    for (const Shown& shown : {Shown{true, false, false, false}, Shown{true, true, true, false},
                               Shown{true, true, false, false}, Shown{true, true, false, false},
                               Shown{true, true, true, true}}) {
        ++kind;
        SCOPED_TRACE("kind " + std::to_string(kind));
        const auto expectShown = [&](frm_back& dialog) {
            for (std::size_t i = 0; i < 4; ++i) {
                EXPECT_EQ(Boxes(dialog)[i]->isVisibleTo(&dialog), shown[i]) << "box " << i;
                EXPECT_EQ(Boxes(dialog)[i]->isEnabled(), shown[i]) << "box " << i;
            }
            EXPECT_EQ(dialog.Picture1->pixmap().toImage(), LoadResPicture(105 + kind).toImage());
            EXPECT_EQ(m_session->state.kind, kind);
        };
        frm_back& dialog = Dialog();
        QToolButton& button = *dialog.cmd_nf[static_cast<std::size_t>(kind - 1)];
        EXPECT_EQ(button.objectName().toStdString(), "cmd_nf_" + std::to_string(kind));
        Click(button);
        expectShown(dialog);
        QMouseEvent move(QEvent::MouseMove, QPointF(5, 5), button.mapToGlobal(QPointF(5, 5)),
                         Qt::NoButton, Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(&button, &move);
        EXPECT_EQ(dialog.Txt_explique->toPlainText().toStdString(), Text(134 + kind));
        m_dialog.reset();
        frm_back& reopened = Dialog();
        for (int k = 1; k <= 5; ++k) {
            EXPECT_EQ(reopened.cmd_nf[static_cast<std::size_t>(k - 1)]->isChecked(), k == kind)
                << "button " << k;
        }
        expectShown(reopened);
        m_dialog.reset();
    }
}

// Waits for the preview to have read the selected field's values.
void WaitForPreview(frm_back& dialog) {
    for (int i = 0; i < 500 && dialog.PreviewReading(); ++i) {
        QTest::qWait(10);
    }
    ASSERT_FALSE(dialog.PreviewReading());
    QApplication::processEvents();
}

std::string CountsLine(const std::string& text, int zero, int partial, int one, int null) {
    return criterion::FillPlaceholders(text, {std::to_string(zero), std::to_string(partial),
                                              std::to_string(one), std::to_string(null)});
}

TEST_F(FrmBackTest, previewCountsTheDegreesAsTheUserTypesAndSuggestsFromPercentiles) {
    // W is longer: V is Null on the fifth feature.
    AddLayer(WritePolygons("data", "parcels", {{"V", {0, 5, 10, 20}}, {"W", {1, 1, 1, 1, 1}}}));
    util::SetDecimalSeparator(',');
    frm_back& dialog = Dialog();
    EXPECT_EQ(dialog.Pic_preview->Figure().statusLine, Text(264));
    Choose(dialog, "parcels", "V");
    Click(*dialog.cmd_nf[2]);
    WaitForPreview(dialog);
    Type(dialog, {"0", "10", "", ""});
    QApplication::processEvents();
    const criterion::PreviewFigure& figure = dialog.Pic_preview->Figure();
    EXPECT_EQ(figure.statusLine, CountsLine(Text(268), 1, 1, 2, 1));
    EXPECT_EQ(figure.histogram.low, 0);
    EXPECT_EQ(figure.histogram.high, 20);
    EXPECT_FALSE(figure.curve.empty());
    dialog.Txt_val_b->setText(QStringLiteral("20"));
    QApplication::processEvents();
    EXPECT_EQ(dialog.Pic_preview->Figure().statusLine, CountsLine(Text(268), 1, 2, 1, 1));
    // The 25th and 75th percentiles of 0, 5, 10, 20, with the user's decimal mark.
    Click(*dialog.cmd_suggest);
    EXPECT_EQ(dialog.Txt_val_a->text(), QStringLiteral("3,75"));
    EXPECT_EQ(dialog.Txt_val_b->text(), QStringLiteral("12,5"));
    EXPECT_TRUE(m_ui.boxes.empty());
}

// Parameters the run would refuse: the preview says why in one line, and Calculer still refuses.
TEST_F(FrmBackTest, previewSaysWhyInOneLineAndCalculerStillRefuses) {
    AddLayer(WritePolygons("data", "parcels", {{"V", {0, 5, 10, 20}}}));
    util::SetDecimalSeparator('.');
    frm_back& dialog = Dialog();
    Choose(dialog, "parcels", "V");
    Click(*dialog.cmd_nf[0]);
    WaitForPreview(dialog);
    using Typed = std::array<const char*, 4>;
    for (const auto& [kind, typed, text, detail] :
         {std::tuple{3, Typed{"5", "2", "", ""}, 262, "b = 2 < a = 5"},
          std::tuple{4, Typed{"10", "0", "", ""}, 262, "b = 0 < a = 10"},
          std::tuple{2, Typed{"1", "x", "3", ""}, 261, "b"},
          std::tuple{5, Typed{"1", "2", "", "4"}, 261, "c"}}) {
        SCOPED_TRACE(detail);
        Click(*dialog.cmd_nf[static_cast<std::size_t>(kind - 1)]);
        Type(dialog, typed);
        QApplication::processEvents();
        const criterion::PreviewFigure& figure = dialog.Pic_preview->Figure();
        EXPECT_EQ(figure.statusLine,
                  criterion::FillPlaceholders(Text(static_cast<std::int16_t>(text)), {detail}));
        EXPECT_TRUE(figure.statusIsProblem);
        EXPECT_TRUE(figure.curve.empty());
        EXPECT_TRUE(m_ui.boxes.empty());
        Click(*dialog.cmd_go);
        ASSERT_EQ(m_ui.boxes.size(), 1u);
        EXPECT_EQ(m_ui.boxes[0].text.rfind(Text(132) + ":", 0), 0u) << m_ui.boxes[0].text;
        m_ui.boxes.clear();
    }
}

// The degrees stored are the run's tests'; here, that the dialog hands the run what it shows.
TEST_F(FrmBackTest, calculerAddsTheFieldAndMetadataShowsItsEntry) {
    AddLayer(WritePolygons("data", "parcels", {{"SLOPE", {0, 5, 10, 20}}}));
    frm_back& dialog = Dialog();
    Choose(dialog, "parcels", "SLOPE");
    Click(*dialog.cmd_nf[2]);
    Type(dialog, {"0", "10", "", ""});
    Click(*dialog.cmd_go);
    ASSERT_EQ(m_ui.boxes.size(), 1u) << m_ui.boxes[0].text;
    EXPECT_EQ(m_ui.boxes[0].text, Text(162));
    EXPECT_EQ(Items(*dialog.Lst_fields), (Strings{"SLOPE", "FZY_SLOPE"}));
    EXPECT_EQ(dialog.FieldList().ListIndex(), -1);
    ClickItem(*dialog.Lst_fields, QStringLiteral("FZY_SLOPE"));
    std::string title;
    const std::string shown = Metadata(dialog, &title);
    EXPECT_EQ(title, Text(160));
    EXPECT_EQ(shown.rfind(Text(147) + " FZY_SLOPE(", 0), 0u) << shown;
    EXPECT_NE(shown.find("\n Val_a = 0\n Val_b = 10\n Val_c = 100000000000000\n"),
              std::string::npos)
        << shown;
}

TEST_F(FrmBackTest, metadataShowsText153OrTheAggregationAndWritesNothing) {
    AddLayer(WritePolygons("data", "parcels", {{"SLOPE", {1}}, {"MIX", {0.5}}}));
    fzy::AggregationSidecar(Folder("data"), "parcels").Append(AndRecord("MIX"));
    frm_back& dialog = Dialog();
    const bool rootFileBefore = std::filesystem::exists("/.fzy");
    // No layer chosen yet: there is no metadata file to look into.
    EXPECT_EQ(Metadata(dialog), Text(153));
    EXPECT_EQ(std::filesystem::exists("/.fzy"), rootFileBefore);
    Choose(dialog, "parcels", "SLOPE");
    EXPECT_EQ(Metadata(dialog), Text(153));
    Choose(dialog, "parcels", "MIX");
    EXPECT_EQ(Metadata(dialog), AndOfAB("MIX"));
    EXPECT_FALSE(std::filesystem::exists(Folder("data") + "/parcels.fzy"));
    EXPECT_TRUE(m_ui.boxes.empty());
}

TEST_F(FrmBackTest, statsListsDistinctValuesInOrderAndShowsTheSummary) {
    AddLayer(WritePolygons("data", "parcels", {{"V", {3, -2, 7.5, 3}}}));
    util::SetDecimalSeparator(',');
    Choose(Dialog(), "parcels", "V");
    std::string title;
    Strings values;
    std::string summary;
    const auto seen = OnNextModal([&](QWidget& window) {
        title = window.windowTitle().toStdString();
        values = Items(*window.findChild<QListWidget*>(QStringLiteral("List1")));
        summary =
            window.findChild<QPlainTextEdit*>(QStringLiteral("Text1"))->toPlainText().toStdString();
    });
    Click(*Dialog().cmdStats);
    ASSERT_TRUE(*seen);
    EXPECT_EQ(title, Text(161));
    EXPECT_EQ(values, (Strings{"-2", "3", "7,5"}));
    // The summary's CR LF line ends shown as the window's line breaks.
    EXPECT_EQ(summary.rfind(Text(140) + " : \nV\n\n" + Text(141) + " : -2\n", 0), 0u);
    EXPECT_TRUE(summary.ends_with("\n" + Text(145) + " : 4\n" + Text(146) + " : 3"));
    EXPECT_TRUE(m_ui.boxes.empty());
}

TEST_F(FrmBackTest, statsOfAFieldWithoutLayerEntryIsReportedWithItsStep) {
    const std::string path = WritePolygons("data", "parcels", {{"V", {1}}});
    m_session->context.chooseFile = [&](const std::string&, const Strings&) {
        return std::optional<std::string>(path);
    };
    frm_back& dialog = Dialog();
    Click(*dialog.cmd_open_shape);
    ClickItem(*dialog.Lst_fields, QStringLiteral("V"));
    dialog.cmdStats_Click();
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_NE(m_ui.boxes[0].text.find(" - cmdStats_Click"), std::string::npos);
    EXPECT_NE(m_ui.boxes[0].text.find("\r\nDebug=4\r\n"), std::string::npos);
}

// The relabelling itself is the language module's tests'; here, the dialog's wiring of it.
TEST_F(FrmBackTest, languageListRelabelsTheDialogAndIsRemembered) {
    frm_back& dialog = Dialog();
    EXPECT_EQ(Items(*dialog.listlang1), (Strings{"fr", "en"}));
    const std::string frenchGo = Text(127);
    ClickItem(*dialog.listlang1, QStringLiteral("en"));
    EXPECT_NE(Text(127), frenchGo);
    EXPECT_EQ(dialog.windowTitle().toStdString(), Text(119));
    EXPECT_EQ(dialog.cmd_go->text().toStdString(), " " + Text(127));
    EXPECT_EQ(m_settings->GetSetting("Ombrel_Brumalis", "params", "lang"), "en");
    m_dialog.reset();
    EXPECT_EQ(Dialog().cmd_sortie->text().toStdString(), " " + Text(118));
    EXPECT_EQ(Dialog().listlang1->currentItem()->text(), QStringLiteral("en"));
}

// Enter in a box runs nothing; Sortir closes the dialog and keeps the choices.
TEST_F(FrmBackTest, enterInABoxRunsNothingAndSortirClosesTheDialogKeepingTheChoice) {
    AddLayer(WritePolygons("data", "parcels", {{"SLOPE", {1}}}));
    frm_back& dialog = Dialog();
    Choose(dialog, "parcels", "SLOPE");
    Click(*dialog.cmd_nf[1]);
    dialog.Txt_new_name->setFocus();
    QTest::keyClick(dialog.Txt_new_name, Qt::Key_Return);
    QTest::keyClick(dialog.Txt_new_name, Qt::Key_Enter);
    EXPECT_TRUE(m_ui.boxes.empty());
    EXPECT_EQ(Items(*dialog.Lst_fields), (Strings{"SLOPE"}));
    EXPECT_TRUE(dialog.isVisible());
    Click(*dialog.cmd_sortie);
    EXPECT_FALSE(dialog.isVisible());
    EXPECT_EQ(m_session->state.g_layer_name, "parcels");
    EXPECT_EQ(m_session->state.kind, 2);
}

// Controls at the dialog's smallest size and at a large one: none covers another.
TEST_F(FrmBackTest, controlsNeverOverlapWhenTheDialogIsResized) {
    frm_back& dialog = Dialog();
    for (const QSize size : {dialog.minimumSizeHint(), QSize(1200, 900)}) {
        dialog.resize(size);
        QApplication::processEvents();
        std::vector<QWidget*> controls;
        for (QWidget* widget : dialog.findChildren<QWidget*>()) {
            if (widget->parentWidget() == &dialog && widget->isVisible() &&
                !widget->objectName().isEmpty()) {
                controls.push_back(widget);
            }
        }
        ASSERT_GT(controls.size(), 20u);
        for (std::size_t i = 0; i < controls.size(); ++i) {
            EXPECT_TRUE(dialog.rect().contains(controls[i]->geometry()))
                << controls[i]->objectName().toStdString();
            for (std::size_t j = i + 1; j < controls.size(); ++j) {
                EXPECT_FALSE(controls[i]->geometry().intersects(controls[j]->geometry()))
                    << controls[i]->objectName().toStdString() << " and "
                    << controls[j]->objectName().toStdString() << " at " << size.width() << " x "
                    << size.height();
            }
        }
    }
}

} // namespace
} // namespace quorel::dialog::test
