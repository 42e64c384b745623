#include "dialog/PreviewView.h"

#include "dialog/PreviewPicture.h"

#include <QPainter>

namespace quorel::dialog {

PreviewView::PreviewView(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void PreviewView::SetFigure(criterion::PreviewFigure figure) {
    m_figure = std::move(figure);
    // Screen readers say what the picture's last line says.
    setAccessibleDescription(QString::fromStdString(m_figure.statusLine));
    update();
}

void PreviewView::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    PaintPreview(painter, QRectF(rect()).adjusted(1, 1, -1, -1), m_figure);
    painter.setPen(QColor(160, 160, 160));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
}

} // namespace quorel::dialog
