#pragma once

#include <QWidget>

class QLabel;

namespace quorel::dialog {

// The hidden form that holds the command's picture (71 x 62) in Picture2. Never shown.
class frm_ress final : public QWidget {
    Q_OBJECT

public:
    explicit frm_ress(QWidget* parent = nullptr);

    QLabel* Picture2;
};

} // namespace quorel::dialog
