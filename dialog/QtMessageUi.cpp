#include "dialog/QtMessageUi.h"

#include <QApplication>
#include <QMessageBox>
#include <QString>

namespace quorel::dialog {

namespace {

QMessageBox::Icon ToQt(util::MessageIcon icon) {
    switch (icon) {
    case util::MessageIcon::Critical:
        return QMessageBox::Critical;
    case util::MessageIcon::Exclamation:
        return QMessageBox::Warning;
    case util::MessageIcon::Information:
        return QMessageBox::Information;
    case util::MessageIcon::Question:
        return QMessageBox::Question;
    case util::MessageIcon::None:
        break;
    }
    return QMessageBox::NoIcon;
}

} // namespace

QtMessageUi::~QtMessageUi() {
    SetBusy(false);
}

void QtMessageUi::MessageBox(const std::string& text, util::MessageIcon icon,
                             const std::optional<std::string>& title) {
    // The reports hold CR LF line ends; Qt would show the CR as a box.
    const QString shown = QString::fromStdString(text).remove(QLatin1Char('\r'));
    QMessageBox box(ToQt(icon), QString::fromStdString(title.value_or(util::kDefaultTitle)), shown,
                    QMessageBox::Ok, QApplication::activeModalWidget());
    box.setTextFormat(Qt::PlainText);
    box.setObjectName(QStringLiteral("QuorelMessageBox"));
    // A message read while the wait cursor is up would look as if the program were stuck.
    const bool wasBusy = m_busy;
    if (wasBusy) {
        QApplication::setOverrideCursor(Qt::ArrowCursor);
    }
    box.exec();
    if (wasBusy) {
        QApplication::restoreOverrideCursor();
    }
}

void QtMessageUi::Beep() {
    QApplication::beep();
}

void QtMessageUi::SetBusy(bool busy) {
    if (busy == m_busy) {
        return;
    }
    m_busy = busy;
    if (busy) {
        QApplication::setOverrideCursor(Qt::WaitCursor);
    } else {
        QApplication::restoreOverrideCursor();
    }
}

} // namespace quorel::dialog
