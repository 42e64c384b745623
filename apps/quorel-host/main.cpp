// quorel-host: a small desktop GIS over shapefiles that loads Quorel components.
//
//   quorel-host [--component PROGID]... [--registry FILE] [DOCUMENT.qmap]
//
// Without --component it loads every class of the class registry.

#include "apps/quorel-host/MainWindow.h"
#include "component/registry/ClassRegistry.h"

#include <QApplication>
#include <QMessageBox>

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace {

constexpr const char* kUsage =
    "usage: quorel-host [--component PROGID]... [--registry FILE] [DOCUMENT.qmap]";

} // namespace

int main(int argc, char** argv) {
    // The usage is printed before Qt starts, since Qt without a display aborts.
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) {
            std::puts(kUsage);
            return 0;
        }
    }
    QApplication qt(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quorel"));
    quorel::host_app::MainWindow::Options options;
    options.registryPath = quorel::component::ClassRegistry::DefaultPath();
    std::string document;
    const QStringList args = QApplication::arguments();
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString& arg = args[i];
        if ((arg == QLatin1String("--component") || arg == QLatin1String("--registry")) &&
            i + 1 < args.size()) {
            const std::string value = args[++i].toStdString();
            if (arg == QLatin1String("--component")) {
                options.progIds.push_back(value);
            } else {
                options.registryPath = value;
            }
        } else if (arg.startsWith(QLatin1String("--")) || !document.empty()) {
            std::fprintf(stderr, "quorel-host: unexpected argument %s\n", qPrintable(arg));
            return 64;
        } else {
            document = arg.toStdString();
        }
    }
    quorel::host_app::MainWindow window(options);
    for (const auto& failure : window.Components().Failures()) {
        std::fprintf(stderr, "quorel-host: %s not loaded: %s\n", failure.progId.c_str(),
                     failure.reason.c_str());
    }
    if (!document.empty()) {
        try {
            window.OpenDocumentFile(QString::fromStdString(document));
        } catch (const std::exception& e) {
            QMessageBox::warning(&window, QStringLiteral("Ouvrir"), QString::fromUtf8(e.what()));
        }
    }
    window.show();
    return QApplication::exec();
}
