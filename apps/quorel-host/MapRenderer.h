#pragma once

// Draws polygon layers into an image as a viewport sees them, fast enough for a million
// features: only the features whose box meets the view are looked at; a feature under two
// pixels wide is one small block of pixels; vertices closer than a pixel to the last drawn one
// are skipped; outlines are drawn only around features large enough to show them.

#include "apps/quorel-host/LayerGeometry.h"
#include "apps/quorel-host/MapViewport.h"

#include <QImage>

#include <cstdint>
#include <span>
#include <vector>

namespace quorel::host_app {

struct RenderLayer {
    const LayerGeometry* geometry = nullptr;
    QRgb fill = 0;
    // When shaded: each feature's class (ShadingState::kNoClass for none), the colour of each
    // class, and the colour of features without one.
    const std::vector<std::uint8_t>* classes = nullptr;
    std::span<const QRgb> classColors;
    QRgb noValue = 0;
    // A mark per feature, non-zero for the selected ones; they are drawn over every layer.
    const std::vector<std::uint8_t>* selected = nullptr;
};

// The colour selected features are drawn in: their outline, and their fill half seen through.
inline constexpr QRgb kSelectionColor = 0xFF00B4FFu;

// Draws the layers, the first at the bottom, over what the image holds, then the selected
// features of every layer. The image is the viewport's size, in QImage::Format_RGB32.
void RenderMap(QImage& image, const MapViewport& viewport, const std::vector<RenderLayer>& layers,
               QRgb outline);

} // namespace quorel::host_app
