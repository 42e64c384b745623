#include "apps/quorel-host/IdentifyPanel.h"

#include <QHeaderView>
#include <QLabel>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace quorel::host_app {

IdentifyPanel::IdentifyPanel(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("identifyPanel"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    m_title = new QLabel(this);
    m_title->setWordWrap(true);
    m_attributes = new QTreeWidget(this);
    m_attributes->setObjectName(QStringLiteral("identifiedAttributes"));
    m_attributes->setColumnCount(2);
    m_attributes->setHeaderLabels({QStringLiteral("Champ"), QStringLiteral("Valeur")});
    m_attributes->setRootIsDecorated(false);
    m_attributes->setAlternatingRowColors(true);
    m_attributes->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    layout->addWidget(m_title);
    layout->addWidget(m_attributes, 1);
    ShowNothing();
}

void IdentifyPanel::ShowFeature(const QString& layerName, const TableReader& table, std::size_t row,
                                const QString& emphasized) {
    m_attributes->clear();
    const QString fid = QString::number(static_cast<qulonglong>(table.RecordOf(row)));
    m_title->setText(QStringLiteral("<b>%1</b> — entité %2").arg(layerName.toHtmlEscaped(), fid));
    const auto add = [this](const QString& field, const QString& value) {
        auto* item = new QTreeWidgetItem(m_attributes, QStringList{field, value});
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        return item;
    };
    add(QStringLiteral("FID"), fid);
    for (std::size_t c = 0; c < table.ColumnCount(); ++c) {
        const QString name = QString::fromStdString(table.ColumnName(c));
        QTreeWidgetItem* item = add(name, CellText(table.Value(row, c)));
        if (name == emphasized) {
            QFont bold = item->font(0);
            bold.setBold(true);
            item->setFont(0, bold);
            item->setFont(1, bold);
            item->setToolTip(0, QStringLiteral("Champ représenté sur la carte"));
        }
    }
}

void IdentifyPanel::ShowNothing() {
    m_attributes->clear();
    m_title->setText(QStringLiteral("Outil Identifier : cliquer sur une entité de la carte."));
}

QString IdentifyPanel::Title() const {
    return m_title->text();
}

QString IdentifyPanel::ValueOf(const QString& field) const {
    for (int i = 0; i < m_attributes->topLevelItemCount(); ++i) {
        if (m_attributes->topLevelItem(i)->text(0) == field) {
            return m_attributes->topLevelItem(i)->text(1);
        }
    }
    return {};
}

} // namespace quorel::host_app
