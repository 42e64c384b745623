#include "dialog/QtListControl.h"

#include <QListWidget>
#include <QObject>

namespace quorel::dialog {

QtListControl::QtListControl(QListWidget& list) : m_list(list) {
    // The selection, not the current row: a list given the focus makes its first row current
    // without selecting it, which is no click.
    m_connection = QObject::connect(&m_list, &QListWidget::itemSelectionChanged, &m_list, [this] {
        if (!m_settingIndex && m_onClick) {
            m_onClick();
        }
    });
}

QtListControl::~QtListControl() {
    QObject::disconnect(m_connection);
}

void QtListControl::SetClickHandler(std::function<void()> handler) {
    m_onClick = std::move(handler);
}

int QtListControl::ListCount() const {
    return m_list.count();
}

std::string QtListControl::List(int index) const {
    const QListWidgetItem* item = m_list.item(index);
    return item == nullptr ? std::string() : item->text().toStdString();
}

int QtListControl::ListIndex() const {
    const QListWidgetItem* current = m_list.currentItem();
    return current != nullptr && current->isSelected() ? m_list.currentRow() : -1;
}

void QtListControl::SetListIndex(int index) {
    m_settingIndex = true;
    m_list.setCurrentRow(index);
    m_settingIndex = false;
    if (m_onClick) {
        m_onClick();
    }
}

void QtListControl::AddItem(const std::string& text) {
    m_list.addItem(QString::fromStdString(text));
}

void QtListControl::Clear() {
    m_settingIndex = true;
    m_list.clear();
    m_settingIndex = false;
}

} // namespace quorel::dialog
