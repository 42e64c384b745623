#pragma once

// What the identify tool found: the layer and FID of the feature clicked, then every field of
// its record with its value; the shaded field (a criterion's degrees, as a rule) stands out.

#include "apps/quorel-host/AttributeTableModel.h"

#include <QWidget>

class QLabel;
class QTreeWidget;

namespace quorel::host_app {

class IdentifyPanel final : public QWidget {
public:
    explicit IdentifyPanel(QWidget* parent = nullptr);

    // The feature of that row of the layer's table; emphasized names the field to stand out.
    void ShowFeature(const QString& layerName, const TableReader& table, std::size_t row,
                     const QString& emphasized);
    void ShowNothing();

    QString Title() const;
    // The value shown for a field (FID included), or a null string when it is not listed.
    QString ValueOf(const QString& field) const;
    QTreeWidget* Attributes() const { return m_attributes; }

private:
    QLabel* m_title = nullptr;
    QTreeWidget* m_attributes = nullptr;
};

} // namespace quorel::host_app
