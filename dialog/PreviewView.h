#pragma once

#include "criterion/Preview.h"

#include <QWidget>

namespace quorel::dialog {

// The dialog's live preview: draws its figure as "quorel preview --png" does.
class PreviewView final : public QWidget {
public:
    explicit PreviewView(QWidget* parent = nullptr);

    void SetFigure(criterion::PreviewFigure figure);
    const criterion::PreviewFigure& Figure() const { return m_figure; }

    QSize sizeHint() const override { return {470, 250}; }
    QSize minimumSizeHint() const override { return {400, 230}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    criterion::PreviewFigure m_figure;
};

} // namespace quorel::dialog
