#include "dialog/PreviewPicture.h"

#include <QCoreApplication>
#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QString>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

namespace quorel::dialog {

namespace {

const QColor kBarColour(205, 212, 222);
const QColor kBarEdgeColour(172, 182, 198);
const QColor kCurveColour(31, 95, 168);
const QColor kAxisColour(60, 60, 60);
const QColor kGuideColour(160, 160, 160);
const QColor kMarkColour(176, 96, 16);
const QColor kProblemColour(176, 32, 32);

QFont PreviewFont(double pixelSize, bool bold = false) {
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setStyleHint(QFont::SansSerif);
    font.setPixelSize(static_cast<int>(std::lround(pixelSize)));
    font.setBold(bold);
    return font;
}

QString ToQString(const std::string& text) {
    return QString::fromStdString(text);
}

// Maps field values and degrees onto the plot rectangle.
class PlotMap {
public:
    PlotMap(const QRectF& plot, double low, double high) : m_plot(plot), m_low(low), m_high(high) {}

    double X(double value) const {
        const double span = m_high > m_low ? m_high - m_low : 1.0;
        return m_plot.left() + (value - m_low) / span * m_plot.width();
    }
    double Y(double degree) const { return m_plot.bottom() - degree * m_plot.height(); }
    const QRectF& Plot() const { return m_plot; }

private:
    QRectF m_plot;
    double m_low;
    double m_high;
};

void DrawHistogram(QPainter& painter, const PlotMap& map, const criterion::Histogram& histogram) {
    if (histogram.bins.empty()) {
        return;
    }
    const std::size_t tallest = *std::max_element(histogram.bins.begin(), histogram.bins.end());
    if (tallest == 0) {
        return;
    }
    // The tallest bar stops short of degree 1, so the curve's top stays clear of the bars.
    const double fullHeight = map.Plot().height() * 0.9;
    painter.setPen(QPen(kBarEdgeColour, 1));
    painter.setBrush(kBarColour);
    const std::size_t count = histogram.bins.size();
    const double span = histogram.high - histogram.low;
    for (std::size_t i = 0; i < count; ++i) {
        if (histogram.bins[i] == 0) {
            continue;
        }
        double left = 0;
        double right = 0;
        if (span > 0) {
            left =
                map.X(histogram.low + span * static_cast<double>(i) / static_cast<double>(count));
            right = map.X(histogram.low +
                          span * static_cast<double>(i + 1) / static_cast<double>(count));
        } else {
            // One distinct value: one narrow bar at it.
            const double middle = map.X(histogram.low);
            left = middle - map.Plot().width() / 80;
            right = middle + map.Plot().width() / 80;
        }
        const double height =
            fullHeight * static_cast<double>(histogram.bins[i]) / static_cast<double>(tallest);
        painter.drawRect(QRectF(QPointF(left, map.Plot().bottom() - height),
                                QPointF(right, map.Plot().bottom())));
    }
}

void DrawCurve(QPainter& painter, const PlotMap& map,
               const std::vector<criterion::CurvePoint>& curve, double width) {
    QPainterPath path;
    bool drawing = false;
    for (const criterion::CurvePoint& point : curve) {
        if (std::isnan(point.degree)) {
            drawing = false;
            continue;
        }
        const QPointF at(map.X(point.x), map.Y(std::clamp(point.degree, -0.05, 1.05)));
        if (drawing) {
            path.lineTo(at);
        } else {
            path.moveTo(at);
            drawing = true;
        }
    }
    QPen pen(kCurveColour, width);
    pen.setJoinStyle(Qt::RoundJoin);
    pen.setCapStyle(Qt::RoundCap);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(path);
}

// The break points: a dashed line through the plot and the box's letter and value above it, on
// a second row where it would cover its neighbour. A point outside the value axis is shown at
// the edge, with an arrow towards it.
void DrawMarks(QPainter& painter, const PlotMap& map, const criterion::PreviewFigure& figure,
               const QRectF& band, const QFont& font) {
    std::vector<criterion::PreviewFigure::Mark> marks = figure.marks;
    std::stable_sort(marks.begin(), marks.end(),
                     [](const auto& x, const auto& y) { return x.value < y.value; });
    const QFontMetricsF metrics(font);
    const double rowHeight = band.height() / 2;
    std::array<double, 2> rowEnds = {-1e9, -1e9};
    painter.setFont(font);
    for (const auto& mark : marks) {
        double x = map.X(mark.value);
        QString label = ToQString(mark.label);
        const bool below = x < map.Plot().left();
        const bool above = x > map.Plot().right();
        if (below) {
            label = QStringLiteral("\u25C2 ") + label;
            x = map.Plot().left();
        } else if (above) {
            label += QStringLiteral(" \u25B8");
            x = map.Plot().right();
        } else {
            QPen dashed(kMarkColour, 1.2, Qt::DashLine);
            painter.setPen(dashed);
            painter.drawLine(QPointF(x, map.Plot().top() - 2), QPointF(x, map.Plot().bottom()));
        }
        const double width = metrics.horizontalAdvance(label) + 6;
        double left = below ? x : above ? x - width : x - width / 2;
        // Inside the band where it fits; from its left edge where it is wider.
        left = std::max(band.left(), std::min(left, band.right() - width));
        // The first row with room; when neither has any, the label goes right of the row that
        // ends first.
        std::size_t row = left >= rowEnds[0] ? 0 : left >= rowEnds[1] ? 1 : 2;
        if (row == 2) {
            row = rowEnds[0] <= rowEnds[1] ? 0 : 1;
            left = std::min(rowEnds[row], band.right() - width);
        }
        rowEnds[row] = left + width;
        painter.setPen(kMarkColour);
        painter.drawText(
            QRectF(left, band.top() + static_cast<double>(row) * rowHeight, width, rowHeight),
            Qt::AlignCenter, label);
    }
}

} // namespace

void PaintPreview(QPainter& painter, const QRectF& area, const criterion::PreviewFigure& figure) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.fillRect(area, Qt::white);

    // Text grows with the picture, within what stays readable.
    const double textSize = std::clamp(area.height() / 26.0, 11.0, 18.0);
    const QFont text = PreviewFont(textSize);
    const QFont small = PreviewFont(textSize * 0.92);
    const QFont bold = PreviewFont(textSize, true);
    const double line = QFontMetricsF(text).height();
    const double smallLine = QFontMetricsF(small).height();
    const double margin = std::max(8.0, textSize * 0.6);

    const QRectF title(area.left() + margin, area.top() + margin / 2, area.width() - 2 * margin,
                       line);
    const QRectF status(area.left() + margin, area.bottom() - margin / 2 - line,
                        area.width() - 2 * margin, line);
    const QRectF band(area.left() + margin, title.bottom() + 2, area.width() - 2 * margin,
                      2 * smallLine);
    const double degreeLabels = QFontMetricsF(small).horizontalAdvance(QStringLiteral("0")) + 10;
    const QRectF plot(QPointF(area.left() + margin + degreeLabels, band.bottom() + 6),
                      QPointF(area.right() - margin - 6, status.top() - smallLine - 10));
    const PlotMap map(plot, figure.low, figure.high);

    painter.setPen(kAxisColour);
    painter.setFont(bold);
    painter.drawText(
        title, Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetricsF(bold).elidedText(ToQString(figure.title), Qt::ElideRight, title.width()));

    DrawHistogram(painter, map, figure.histogram);

    // Degree 1 as a dotted guide, the axes over the bars.
    painter.setPen(QPen(kGuideColour, 1, Qt::DotLine));
    painter.drawLine(QPointF(plot.left(), map.Y(1)), QPointF(plot.right(), map.Y(1)));
    painter.setPen(QPen(kAxisColour, 1.2));
    painter.drawLine(plot.bottomLeft(), plot.bottomRight());
    painter.drawLine(plot.bottomLeft(), QPointF(plot.left(), plot.top() - 4));
    painter.setFont(small);
    for (const double degree : {0.0, 1.0}) {
        painter.drawLine(QPointF(plot.left() - 4, map.Y(degree)),
                         QPointF(plot.left(), map.Y(degree)));
        painter.drawText(QRectF(area.left(), map.Y(degree) - smallLine / 2,
                                plot.left() - 6 - area.left(), smallLine),
                         Qt::AlignRight | Qt::AlignVCenter,
                         degree == 0 ? QStringLiteral("0") : QStringLiteral("1"));
    }

    // The field's smallest and largest values under the axis.
    if (!figure.histogram.bins.empty()) {
        const QRectF labels(plot.left(), plot.bottom() + 5, plot.width(), smallLine);
        const double lowX = map.X(figure.histogram.low);
        const double highX = map.X(figure.histogram.high);
        painter.drawLine(QPointF(lowX, plot.bottom()), QPointF(lowX, plot.bottom() + 4));
        painter.drawLine(QPointF(highX, plot.bottom()), QPointF(highX, plot.bottom() + 4));
        painter.drawText(QRectF(lowX - 4, labels.top(), labels.width() / 2, smallLine),
                         Qt::AlignLeft | Qt::AlignVCenter, ToQString(figure.lowLabel));
        painter.drawText(
            QRectF(highX + 4 - labels.width() / 2, labels.top(), labels.width() / 2, smallLine),
            Qt::AlignRight | Qt::AlignVCenter, ToQString(figure.highLabel));
    }

    DrawMarks(painter, map, figure, band, small);
    painter.save();
    painter.setClipRect(plot.adjusted(-2, -textSize, 2, 2));
    DrawCurve(painter, map, figure.curve, std::max(2.5, textSize / 5));
    painter.restore();

    painter.setFont(text);
    painter.setPen(figure.statusIsProblem ? kProblemColour : kAxisColour);
    painter.drawText(status, Qt::AlignLeft | Qt::AlignVCenter,
                     QFontMetricsF(text).elidedText(ToQString(figure.statusLine), Qt::ElideRight,
                                                    status.width()));
    painter.restore();
}

QImage RenderPreview(const criterion::PreviewFigure& figure, int width, int height) {
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    PaintPreview(painter, QRectF(0, 0, width, height), figure);
    painter.end();
    return image;
}

bool WritePreviewPng(const criterion::PreviewFigure& figure, const std::string& path, int width,
                     int height) {
    // Fonts need a GUI application; without a display the offscreen platform serves.
    std::unique_ptr<QGuiApplication> application;
    QtMessageHandler previousHandler = nullptr;
    if (QCoreApplication::instance() == nullptr) {
        // The platform's notices (runtime folder, fonts) mean nothing to a command-line user.
        previousHandler =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        static int argc = 3;
        static char name[] = "quorel";
        static char platformOption[] = "-platform";
        static char platform[] = "offscreen";
        static char* argv[] = {name, platformOption, platform, nullptr};
        application = std::make_unique<QGuiApplication>(argc, argv);
    }
    const bool written =
        RenderPreview(figure, width, height).save(QString::fromStdString(path), "PNG");
    if (application) {
        application.reset();
        qInstallMessageHandler(previousHandler);
    }
    return written;
}

} // namespace quorel::dialog
