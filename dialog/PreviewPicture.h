#pragma once

// The preview's picture: the histogram of the field's values, the membership curve over it, the
// break points and the status line (the counts, or why there are none). The dialog draws it in
// its preview and "quorel preview --png" writes it, so both show the same picture.

#include "criterion/Preview.h"

#include <QImage>
#include <QRectF>

#include <string>

class QPainter;

namespace quorel::dialog {

// The smallest picture "quorel preview --png" writes.
inline constexpr int kPreviewPngWidth = 800;
inline constexpr int kPreviewPngHeight = 500;

void PaintPreview(QPainter& painter, const QRectF& area, const criterion::PreviewFigure& figure);

QImage RenderPreview(const criterion::PreviewFigure& figure, int width, int height);

// Renders offscreen (it makes the GUI application it needs when there is none, on the
// offscreen platform) and writes a PNG file; false when the file cannot be written.
bool WritePreviewPng(const criterion::PreviewFigure& figure, const std::string& path,
                     int width = kPreviewPngWidth, int height = kPreviewPngHeight);

} // namespace quorel::dialog
