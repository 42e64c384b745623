#include "dialog/Statistiques.h"

#include "dialog/QtLabelledForm.h"
#include "lang/clsResourceMDB.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace quorel::dialog {

Statistiques::Statistiques(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("Statistiques"));
    SetTag(*this, "161");
    setWindowTitle(QStringLiteral("Statistiques du champ"));
    setFont(FormFont());

    Frame1 = new QGroupBox(QStringLiteral("Valeurs"), this);
    Frame1->setObjectName(QStringLiteral("Frame1"));
    List1 = new QListWidget(Frame1);
    List1->setObjectName(QStringLiteral("List1"));
    List1->setMinimumWidth(140);
    auto* valuesLayout = new QVBoxLayout(Frame1);
    valuesLayout->addWidget(List1);

    Frame2 = new QGroupBox(this);
    Frame2->setObjectName(QStringLiteral("Frame2"));
    Label1 = new QLabel(QStringLiteral("Résultats"), Frame2);
    Label1->setObjectName(QStringLiteral("Label1"));
    SetTag(*Label1, "147");
    Text1 = new QPlainTextEdit(Frame2);
    Text1->setObjectName(QStringLiteral("Text1"));
    Text1->setReadOnly(true);
    Text1->setMinimumWidth(280);
    Label1->setBuddy(Text1);
    auto* resultsLayout = new QVBoxLayout(Frame2);
    resultsLayout->addWidget(Label1);
    resultsLayout->addWidget(Text1);

    Command1 = new QPushButton(QStringLiteral("Quitter"), this);
    Command1->setObjectName(QStringLiteral("Command1"));
    SetTag(*Command1, "116");
    Command1->setAutoDefault(false);
    connect(Command1, &QPushButton::clicked, this, [this] { Command1_Click(); });

    auto* panes = new QHBoxLayout;
    panes->addWidget(Frame1, 2);
    panes->addWidget(Frame2, 3);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(Command1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(panes, 1);
    layout->addLayout(buttons);
    resize(560, 360);
}

void Statistiques::Form_Load(const lang::clsResourceMDB* resource) {
    if (resource != nullptr) {
        QtLabelledForm form(*this);
        resource->LoadFormLanguageText(form, false);
    }
}

void Statistiques::Fill(const std::vector<std::string>& lines, const std::string& summary) {
    List1->clear();
    for (const std::string& line : lines) {
        auto* item = new QListWidgetItem(QString::fromStdString(line), List1);
        item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    }
    // Text1 shows CR LF as one line break.
    Text1->setPlainText(QString::fromStdString(summary).remove(QLatin1Char('\r')));
}

void Statistiques::Command1_Click() {
    close();
}

} // namespace quorel::dialog
