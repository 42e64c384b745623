#include "dialog/Pictures.h"

#include <QFont>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>

#include <algorithm>
#include <cmath>
#include <vector>

namespace quorel::dialog {

namespace {

const QColor kCurveColour(31, 95, 168);
const QColor kFillColour(31, 95, 168, 40);
const QColor kAxisColour(60, 60, 60);
const QColor kGuideColour(150, 150, 150);

// A shape as the corners of its degree line, x from 0 to 1 across the plot, degree 0 or 1,
// and the letters written under its break points.
struct Shape {
    std::vector<QPointF> corners;
    std::vector<std::pair<double, char>> breaks;
};

Shape ShapeOfKind(int kind) {
    switch (kind) {
    case 1: // the spike has no width: the value a alone has degree 1
        return {{{0, 0}, {0.5, 0}, {0.5, 1}, {0.5, 0}, {1, 0}}, {{0.5, 'a'}}};
    case 2:
        return {{{0, 0}, {0.2, 0}, {0.5, 1}, {0.8, 0}, {1, 0}},
                {{0.2, 'a'}, {0.5, 'b'}, {0.8, 'c'}}};
    case 3:
        return {{{0, 0}, {0.3, 0}, {0.66, 1}, {1, 1}}, {{0.3, 'a'}, {0.66, 'b'}}};
    case 4:
        return {{{0, 1}, {0.34, 1}, {0.7, 0}, {1, 0}}, {{0.34, 'a'}, {0.7, 'b'}}};
    case 5:
        return {{{0, 0}, {0.14, 0}, {0.38, 1}, {0.62, 1}, {0.86, 0}, {1, 0}},
                {{0.14, 'a'}, {0.38, 'b'}, {0.62, 'c'}, {0.86, 'd'}}};
    default:
        return {};
    }
}

// The degree of the shape at a break point: where the guide line from the axis ends.
double DegreeAt(const Shape& shape, double x) {
    double degree = 0;
    for (const QPointF& corner : shape.corners) {
        if (corner.x() == x) {
            degree = std::max(degree, corner.y());
        }
    }
    return degree;
}

QFont PictureFont(int pixelSize, bool bold = false, bool italic = false) {
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(pixelSize);
    font.setBold(bold);
    font.setItalic(italic);
    return font;
}

// Maps the shape's unit square onto a plot rectangle (degree 1 at the top).
QPointF ToPlot(const QRectF& plot, QPointF unit) {
    return {plot.left() + unit.x() * plot.width(), plot.bottom() - unit.y() * plot.height()};
}

void DrawCurve(QPainter& painter, const QRectF& plot, const Shape& shape, double width) {
    QPolygonF line;
    for (const QPointF& corner : shape.corners) {
        line << ToPlot(plot, corner);
    }
    QPolygonF area = line;
    area << QPointF(plot.right(), plot.bottom()) << QPointF(plot.left(), plot.bottom());
    painter.setPen(Qt::NoPen);
    painter.setBrush(kFillColour);
    painter.drawPolygon(area);

    QPen pen(kCurveColour, width);
    pen.setJoinStyle(Qt::MiterJoin);
    pen.setCapStyle(Qt::FlatCap);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    painter.drawPolyline(line);
}

void DrawArrowHead(QPainter& painter, QPointF tip, QPointF direction) {
    const QPointF side(-direction.y(), direction.x());
    QPolygonF head;
    head << tip << tip - direction * 7 + side * 3.5 << tip - direction * 7 - side * 3.5;
    painter.setPen(Qt::NoPen);
    painter.setBrush(kAxisColour);
    painter.drawPolygon(head);
}

QPixmap ButtonFace(int kind) {
    QPixmap pixmap(kButtonFaceSize, kButtonFaceSize);
    pixmap.fill(Qt::white);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);

    const QRectF plot(9, 14, 43, 34);
    painter.setPen(QPen(kAxisColour, 1));
    painter.drawLine(QPointF(6.5, plot.bottom() + 0.5), QPointF(55, plot.bottom() + 0.5));
    painter.drawLine(QPointF(6.5, 8), QPointF(6.5, plot.bottom() + 0.5));
    QPen guide(kGuideColour, 1, Qt::DotLine);
    painter.setPen(guide);
    painter.drawLine(QPointF(7, plot.top() + 0.5), QPointF(55, plot.top() + 0.5));

    const Shape shape = ShapeOfKind(kind);
    DrawCurve(painter, plot, shape, 2.5);
    if (kind == 1) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(kCurveColour);
        painter.drawEllipse(ToPlot(plot, {0.5, 1}), 3, 3);
    }
    painter.setPen(QPen(QColor(190, 190, 190), 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(QRectF(0.5, 0.5, kButtonFaceSize - 1, kButtonFaceSize - 1));
    return pixmap;
}

QPixmap Diagram(int kind) {
    QPixmap pixmap(kDiagramWidth, kDiagramHeight);
    pixmap.fill(Qt::white);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);

    // Origin at (38, 146); degree 1 at y = 38; the curve runs to x = 258.
    const double originX = 38.5;
    const double originY = 146.5;
    const QRectF plot(originX, 38.5, 222, originY - 38.5);

    // Guides first, so the axes and the curve lie over them.
    const Shape shape = ShapeOfKind(kind);
    painter.setPen(QPen(kGuideColour, 1, Qt::DashLine));
    painter.drawLine(QPointF(originX, plot.top()), QPointF(plot.right() + 8, plot.top()));
    for (const auto& [x, letter] : shape.breaks) {
        const QPointF top = ToPlot(plot, {x, DegreeAt(shape, x)});
        painter.drawLine(QPointF(std::round(top.x()) + 0.5, top.y()),
                         QPointF(std::round(top.x()) + 0.5, originY));
    }

    DrawCurve(painter, plot, shape, 3);
    if (kind == 1) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(kCurveColour);
        painter.drawEllipse(ToPlot(plot, {0.5, 1}), 4.5, 4.5);
    }

    // Axes with arrows: degree upwards, value to the right.
    painter.setPen(QPen(kAxisColour, 1.2));
    painter.drawLine(QPointF(originX, originY), QPointF(272, originY));
    painter.drawLine(QPointF(originX, originY), QPointF(originX, 14));
    DrawArrowHead(painter, QPointF(276, originY), QPointF(1, 0));
    DrawArrowHead(painter, QPointF(originX, 10), QPointF(0, -1));
    painter.setPen(QPen(kAxisColour, 1.2));
    painter.drawLine(QPointF(originX - 4, plot.top()), QPointF(originX, plot.top()));
    for (const auto& [x, letter] : shape.breaks) {
        const double tickX = std::round(ToPlot(plot, {x, 0}).x()) + 0.5;
        painter.drawLine(QPointF(tickX, originY), QPointF(tickX, originY + 4));
    }

    painter.setPen(kAxisColour);
    painter.setFont(PictureFont(13));
    painter.drawText(QRectF(8, plot.top() - 9, 24, 18), Qt::AlignRight | Qt::AlignVCenter,
                     QStringLiteral("1"));
    painter.drawText(QRectF(8, originY - 9, 24, 18), Qt::AlignRight | Qt::AlignVCenter,
                     QStringLiteral("0"));
    painter.setFont(PictureFont(15, false, true));
    painter.drawText(QRectF(originX + 6, 2, 30, 20), Qt::AlignLeft | Qt::AlignVCenter,
                     QString(QChar(0x03BC)));
    painter.drawText(QRectF(250, originY + 6, 26, 20), Qt::AlignRight | Qt::AlignVCenter,
                     QStringLiteral("x"));

    painter.setPen(QColor(20, 20, 20));
    painter.setFont(PictureFont(16, true, true));
    for (const auto& [x, letter] : shape.breaks) {
        const double letterX = ToPlot(plot, {x, 0}).x();
        painter.drawText(QRectF(letterX - 12, originY + 7, 24, 22), Qt::AlignCenter,
                         QString(QChar(letter)));
    }
    return pixmap;
}

} // namespace

QPixmap LoadResPicture(int id) {
    if (id >= 101 && id <= 105) {
        return ButtonFace(id - 100);
    }
    if (id >= 106 && id <= 110) {
        return Diagram(id - 105);
    }
    return {};
}

QPixmap CommandPicture() {
    QPixmap pixmap(kCommandPictureWidth, kCommandPictureHeight);
    pixmap.fill(Qt::white);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);

    // A row of parcels shaded by their degree, under the trapezoid that gives it.
    const Shape shape = ShapeOfKind(5);
    const QRectF plot(5, 6, 61, 28);
    painter.setPen(QPen(kAxisColour, 1));
    painter.drawLine(QPointF(3, plot.bottom() + 0.5), QPointF(68, plot.bottom() + 0.5));
    DrawCurve(painter, plot, shape, 2.5);

    constexpr int kParcels = 7;
    const double parcelWidth = 61.0 / kParcels;
    for (int i = 0; i < kParcels; ++i) {
        // Each parcel takes the degree of the value under its middle.
        const double x = (i + 0.5) / kParcels;
        const double degree = std::clamp(std::min((x - 0.14) / 0.24, (0.86 - x) / 0.24), 0.0, 1.0);
        QColor colour = QColor::fromRgbF(static_cast<float>(1 - 0.85 * degree),
                                         static_cast<float>(1 - 0.55 * degree),
                                         static_cast<float>(1 - 0.2 * degree));
        const double left = 5 + i * parcelWidth;
        // Slanted sides make the row read as land parcels rather than bars.
        QPolygonF parcel;
        parcel << QPointF(left + 1.5, 41) << QPointF(left + parcelWidth + 1.5, 41)
               << QPointF(left + parcelWidth - 0.5, 57) << QPointF(left - 0.5, 57);
        painter.setPen(QPen(QColor(90, 90, 90), 0.8));
        painter.setBrush(colour);
        painter.drawPolygon(parcel);
    }
    return pixmap;
}

} // namespace quorel::dialog
