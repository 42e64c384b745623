#pragma once

// The field a map shades and how: the scale of its values (a criterion's degrees keep their
// 0-1 scale, any other field goes from its least to its greatest value), cut into equal
// classes, and the class of every feature. No Qt: the map view only picks the colours.

#include "host/api/Host.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host_app {

class ShadingState {
public:
    static constexpr int kClasses = 5;
    // The class of an empty value, and of a feature the values do not reach.
    static constexpr std::uint8_t kNoClass = 255;

    struct ClassRange {
        double from = 0;
        double to = 0;
    };

    // values: one per feature of the layer, in feature order.
    ShadingState(const std::shared_ptr<const host::ILayer>& layer, std::string field,
                 const std::vector<std::optional<double>>& values);

    // Whether this is the shading of that layer (the very object, whatever its name).
    bool Shades(const host::ILayer& layer) const;
    const std::string& Field() const { return m_field; }
    double Low() const { return m_low; }
    double High() const { return m_high; }

    std::uint8_t ClassOf(const std::optional<double>& value) const;
    const std::vector<std::uint8_t>& FeatureClasses() const { return m_classes; }
    // The classes' bounds, low to high; the last ends exactly at High.
    std::vector<ClassRange> Legend() const;

private:
    std::weak_ptr<const host::ILayer> m_layer;
    std::string m_field;
    double m_low = 0;
    double m_high = 1;
    std::vector<std::uint8_t> m_classes;
};

} // namespace quorel::host_app
