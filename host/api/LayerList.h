#pragma once

#include "host/api/Host.h"

#include <memory>
#include <vector>

namespace quorel::host {

// An enumeration over a snapshot of layers, taken when it is made: hosts hand it out from
// IMap::Layers.
class LayerList final : public IEnumLayer {
public:
    explicit LayerList(std::vector<std::shared_ptr<ILayer>> layers) : m_layers(std::move(layers)) {}

    void Reset() override { m_next = 0; }
    std::shared_ptr<ILayer> Next() override {
        return m_next < m_layers.size() ? m_layers[m_next++] : nullptr;
    }

private:
    std::vector<std::shared_ptr<ILayer>> m_layers;
    std::size_t m_next = 0;
};

} // namespace quorel::host
