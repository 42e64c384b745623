// Writes the component's pictures and a screenshot of each window, in French and in English,
// to the folder given as the only argument. Runs on the offscreen platform.

#include "dialog/Pictures.h"

#include <QApplication>
#include <QDir>
#include <QPainter>
#include <QString>

#include <cstdlib>
#include <iostream>

namespace {

// All pictures on one sheet, the small ones enlarged three times pixel for pixel, so that a
// reviewer sees every pixel of the button faces.
void WriteSheet(const QString& path) {
    using quorel::dialog::LoadResPicture;
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

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: quorel_dialog_screenshots FOLDER\n";
        return 64;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    if (!folder.mkpath(QStringLiteral("."))) {
        std::cerr << "cannot create " << argv[1] << "\n";
        return 1;
    }
    for (int id = 101; id <= 110; ++id) {
        quorel::dialog::LoadResPicture(id).save(
            folder.filePath(QStringLiteral("bitmap%1.png").arg(id)));
    }
    quorel::dialog::CommandPicture().save(folder.filePath(QStringLiteral("frm_ress.png")));
    WriteSheet(folder.filePath(QStringLiteral("pictures-zoomed.png")));
    return EXIT_SUCCESS;
}
