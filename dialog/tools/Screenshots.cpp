// Writes the component's pictures and a screenshot of each window, in French and in English,
// to the folder given as the only argument: the definition dialog with a shape chosen, a field
// selected and the live preview of the typed values, the statistics window, the metadata
// window, and the aggregation and query windows over two criteria computed first. Runs on the
// offscreen platform over a sample shapefile made on the spot.

#include "criterion/PlainRunDialog.h"
#include "dialog/DialogSession.h"
#include "dialog/FrmAggregation.h"
#include "dialog/FrmQuery.h"
#include "dialog/Pictures.h"
#include "dialog/frm_back.h"
#include "host/shapefile/Application.h"
#include "lang/SettingsStore.h"
#include "tools/sample/SampleData.h"
#include "util/ListControl.h"
#include "util/MessageUi.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QString>
#include <QTemporaryDir>
#include <QTimer>

#include <array>
#include <cstdlib>
#include <iostream>

namespace {

using quorel::dialog::LoadResPicture;

// All pictures on one sheet, the small ones enlarged three times pixel for pixel, so that a
// reviewer sees every pixel of the button faces.
void WriteSheet(const QString& path) {
    QImage sheet(5 * 190 + 10, 200 + 2 * 197 + 10, QImage::Format_RGB32);
    sheet.fill(QColor(236, 236, 236));
    QPainter painter(&sheet);
    for (int k = 0; k < 5; ++k) {
        const QPixmap face = LoadResPicture(101 + k);
        painter.drawPixmap(10 + k * 190, 10, face.scaled(180, 180));
    }
    for (int k = 0; k < 5; ++k) {
        painter.drawPixmap(10 + (k % 3) * 290, 200 + (k / 3) * 197, LoadResPicture(106 + k));
    }
    const QPixmap command = quorel::dialog::CommandPicture();
    painter.drawPixmap(10 + 2 * 290, 200 + 197, command.scaled(command.size() * 3));
    painter.end();
    sheet.save(path);
}

void WritePictures(const QDir& folder) {
    for (int id = 101; id <= 110; ++id) {
        LoadResPicture(id).save(folder.filePath(QStringLiteral("bitmap%1.png").arg(id)));
    }
    quorel::dialog::CommandPicture().save(folder.filePath(QStringLiteral("frm_ress.png")));
    WriteSheet(folder.filePath(QStringLiteral("pictures-zoomed.png")));
}

// The next modal window that opens is saved to path and closed.
void GrabNextModal(const QString& path) {
    QTimer::singleShot(150, [path] {
        if (QWidget* window = QApplication::activeModalWidget()) {
            window->grab().save(path);
            window->close();
        } else {
            std::cerr << "no window to grab for " << path.toStdString() << "\n";
        }
    });
}

// A criterion computed on the sample as Calculer computes it, for the combining windows.
void RunCriterion(quorel::dialog::DialogSession& session, const char* field, int kind,
                  const std::array<const char*, 4>& boxes, const char* output) {
    quorel::criterion::PlainRunDialog controls;
    controls.fieldList = {field};
    controls.selected = 0;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        controls.boxes[i] = boxes[i];
    }
    controls.newName = output;
    session.state.kind = static_cast<std::int16_t>(kind);
    quorel::criterion::CriterionRun(session.state, controls, session.context.ui, session.texts,
                                    session.fzy, session.log)
        .RunCriterion();
}

void CombiningWindows(quorel::dialog::DialogSession& session, const QDir& folder,
                      const QString& suffix) {
    const auto choose = [](quorel::dialog::CombinationForm& form, const char* op) {
        form.Cmb_op->setCurrentIndex(form.Cmb_op->findData(QString::fromLatin1(op)));
    };
    quorel::util::ConsoleMessageUi ui;
    quorel::dialog::FrmAggregation aggregation(session.state, session.texts, ui, session.log);
    aggregation.CheckInputs({"GENTLE", "NEAR_ROAD"});
    choose(aggregation, "gamma");
    aggregation.Txt_gamma->setText(QStringLiteral("0.7"));
    aggregation.Txt_out->setText(QStringLiteral("SUITABLE"));
    aggregation.show();
    QApplication::processEvents();
    aggregation.grab().save(folder.filePath(QStringLiteral("FrmAggregation") + suffix));

    quorel::dialog::FrmQuery query(session.state, session.texts);
    query.CheckInputs({"GENTLE", "NEAR_ROAD"});
    choose(query, "and");
    query.SetAlpha(0.6);
    query.show();
    QApplication::processEvents();
    query.grab().save(folder.filePath(QStringLiteral("FrmQuery") + suffix));
}

void SelectRow(QListWidget& list, const QString& text) {
    const auto items = list.findItems(text, Qt::MatchExactly);
    if (!items.isEmpty()) {
        list.setCurrentItem(items.front());
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: quorel_dialog_screenshots FOLDER\n";
        return 64;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    QTemporaryDir scratch;
    if (!folder.mkpath(QStringLiteral(".")) || !scratch.isValid()) {
        std::cerr << "cannot create " << argv[1] << " or a scratch folder\n";
        return 1;
    }
    WritePictures(folder);

    const std::string data = scratch.path().toStdString();
    quorel::tools::WriteSampleShapefile(data + "/parcels.shp", 400);
    quorel::lang::IniSettingsStore settings(data);
    quorel::util::ConsoleMessageUi ui; // the messages, if any, on standard error
    quorel::dialog::DialogSession session(ui, settings, QUOREL_TEXT_DB_FOLDER,
                                          {data, "quorel", "10.3.2"});
    const auto app = std::make_shared<quorel::host::shapefile::Application>();
    app->AddShapefileLayer(data + "/parcels.shp");
    session.SetApplication(app);

    // A recorded criterion, so that the metadata window has something to show.
    std::string layerName = "parcels";
    session.fzy.fzy_io_open(data, layerName);
    session.fzy.fzy_io_writenumber("SLOPE", "SLOPE", 5, 2, 5, 10, 15, data, "parcels");
    session.fzy.fzy_io_close();

    quorel::dialog::frm_back dialog(session.context);
    dialog.Form_Load();
    dialog.show();
    // Two criteria for the combining windows: gentle slopes, and near the road.
    session.state.g_layer_name = "parcels";
    session.state.g_layer_path = data;
    session.state.g_layer_index = 0;
    RunCriterion(session, "SLOPE", 4, {"5", "20", "", ""}, "GENTLE");
    RunCriterion(session, "DISTANCE", 4, {"100", "800", "", ""}, "NEAR_ROAD");
    for (const char* language : {"fr", "en"}) {
        quorel::util::SelectListItem(dialog.LanguageList(), language);
        SelectRow(*dialog.Lst_shapes, QStringLiteral("parcels"));
        dialog.Lst_shapes_MouseUp();
        SelectRow(*dialog.Lst_fields, QStringLiteral("SLOPE"));
        dialog.Lst_fields_MouseUp();
        dialog.SelectKind(5);
        dialog.ShowKindExplanation(5);
        dialog.Txt_val_a->setText(QStringLiteral("2"));
        dialog.Txt_val_b->setText(QStringLiteral("5"));
        dialog.Txt_val_c->setText(QStringLiteral("10"));
        dialog.Txt_val_d->setText(QStringLiteral("15"));
        // The live preview reads the field's values on its own thread.
        while (dialog.PreviewReading()) {
            QApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        QApplication::processEvents();
        const QString suffix = QStringLiteral("_%1.png").arg(QLatin1String(language));
        dialog.grab().save(folder.filePath(QStringLiteral("frm_back") + suffix));

        GrabNextModal(folder.filePath(QStringLiteral("Statistiques") + suffix));
        dialog.cmdStats_Click();
        GrabNextModal(folder.filePath(QStringLiteral("frm_display_fzy") + suffix));
        dialog.sum_table_Click();
        session.state.g_layer_name = "parcels";
        CombiningWindows(session, folder, suffix);
    }
    return EXIT_SUCCESS;
}
