#include "apps/quorel-host/ShadingState.h"

#include <algorithm>

namespace quorel::host_app {

ShadingState::ShadingState(const std::shared_ptr<const host::ILayer>& layer, std::string field,
                           const std::vector<std::optional<double>>& values)
    : m_layer(layer), m_field(std::move(field)) {
    bool any = false;
    for (const auto& value : values) {
        if (value) {
            m_low = any ? std::min(m_low, *value) : *value;
            m_high = any ? std::max(m_high, *value) : *value;
            any = true;
        }
    }
    // Degrees of membership keep their 0-1 scale, whatever values this layer happens to hold.
    if (!any || (m_low >= 0 && m_high <= 1)) {
        m_low = 0;
        m_high = 1;
    }
    m_classes.reserve(values.size());
    for (const auto& value : values) {
        m_classes.push_back(ClassOf(value));
    }
}

bool ShadingState::Shades(const host::ILayer& layer) const {
    return m_layer.lock().get() == &layer;
}

std::uint8_t ShadingState::ClassOf(const std::optional<double>& value) const {
    if (!value) {
        return kNoClass;
    }
    const double span = m_high - m_low;
    const double t = std::clamp(span > 0 ? (*value - m_low) / span : 1.0, 0.0, 1.0);
    return static_cast<std::uint8_t>(std::min(kClasses - 1, static_cast<int>(t * kClasses)));
}

std::vector<ShadingState::ClassRange> ShadingState::Legend() const {
    std::vector<ClassRange> ranges;
    const double step = (m_high - m_low) / kClasses;
    for (int i = 0; i < kClasses; ++i) {
        const double from = m_low + step * i;
        ranges.push_back({from, i + 1 == kClasses ? m_high : from + step});
    }
    return ranges;
}

} // namespace quorel::host_app
