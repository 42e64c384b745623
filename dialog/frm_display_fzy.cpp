#include "dialog/frm_display_fzy.h"

#include "dialog/QtLabelledForm.h"
#include "lang/clsResourceMDB.h"

#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace quorel::dialog {

frm_display_fzy::frm_display_fzy(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frm_display_fzy"));
    SetTag(*this, "160");
    setWindowTitle(QStringLiteral("Métadonnées d'un critère souple"));
    setFont(FormFont());

    Txt_infofield = new QPlainTextEdit(this);
    Txt_infofield->setObjectName(QStringLiteral("Txt_infofield"));
    Txt_infofield->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    Txt_infofield->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);

    cmdQuit = new QPushButton(QStringLiteral("Sortir"), this);
    cmdQuit->setObjectName(QStringLiteral("cmdQuit"));
    SetTag(*cmdQuit, "118");
    cmdQuit->setAutoDefault(false);
    connect(cmdQuit, &QPushButton::clicked, this, [this] { cmdQuit_Click(); });

    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(cmdQuit);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Txt_infofield, 1);
    layout->addLayout(buttons);
    resize(600, 260);
}

void frm_display_fzy::Form_Load(const lang::clsResourceMDB* resource) noexcept {
    try {
        if (resource != nullptr) {
            QtLabelledForm form(*this);
            resource->LoadFormLanguageText(form, false);
        }
    } catch (...) {
        // The window keeps its design-time texts.
    }
}

void frm_display_fzy::cmdQuit_Click() {
    close();
}

void InfoWindow::ShowModal(const std::string& text) {
    frm_display_fzy window;
    window.Form_Load(m_resource ? m_resource() : nullptr);
    window.Txt_infofield->setPlainText(QString::fromStdString(text).remove(QLatin1Char('\r')));
    window.setWindowModality(Qt::ApplicationModal);
    window.exec();
}

} // namespace quorel::dialog
