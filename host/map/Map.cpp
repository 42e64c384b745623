#include "host/map/Map.h"

#include "host/api/LayerList.h"
#include "host/api/LayerWalk.h"
#include "util/Error.h"

#include <algorithm>
#include <utility>

namespace quorel::host::map {
namespace {

Error NoLayerAt(std::int32_t index, std::size_t count) {
    return Error(error_number::kHostInvalidIndex, "Map",
                 "No layer at position " + std::to_string(index) + " (the map has " +
                     std::to_string(count) + (count == 1 ? " layer)" : " layers)"));
}

} // namespace

std::shared_ptr<ICursor> FeatureLayer::Search(bool recycling) {
    if (!m_featureClass) {
        throw Error(error_number::kObjectRequired, "FeatureLayer",
                    "The layer " + m_name + " has no data");
    }
    return m_featureClass->Search(recycling);
}

void FeatureLayer::SetFeatureClass(std::shared_ptr<IFeatureClass> featureClass) {
    if (featureClass != m_featureClass) {
        Clear();
    }
    m_featureClass = std::move(featureClass);
}

void FeatureLayer::SelectFeatures(std::vector<std::int64_t> objectIds) {
    std::sort(objectIds.begin(), objectIds.end());
    objectIds.erase(std::unique(objectIds.begin(), objectIds.end()), objectIds.end());
    if (objectIds == m_selected) {
        return;
    }
    m_selected = std::move(objectIds);
    m_selectionHandlers.Raise([](ISelectionEvents& h) { h.SelectionChanged(); });
}

bool FeatureLayer::IsSelected(std::int64_t objectId) const {
    return std::binary_search(m_selected.begin(), m_selected.end(), objectId);
}

std::shared_ptr<ILayer> GroupLayer::Layer(std::int32_t index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= m_layers.size()) {
        throw NoLayerAt(index, m_layers.size());
    }
    return m_layers[static_cast<std::size_t>(index)];
}

void GroupLayer::Add(std::shared_ptr<ILayer> layer) {
    if (!layer) {
        throw Error(error_number::kObjectRequired, "GroupLayer", "No layer to add");
    }
    m_layers.push_back(std::move(layer));
}

bool GroupLayer::Remove(const std::shared_ptr<ILayer>& layer) {
    return std::erase(m_layers, layer) > 0;
}

std::shared_ptr<ILayer> Map::Layer(std::int32_t index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= m_layers.size()) {
        throw NoLayerAt(index, m_layers.size());
    }
    return m_layers[static_cast<std::size_t>(index)];
}

void Map::AddLayer(std::shared_ptr<ILayer> layer) {
    if (!layer) {
        throw Error(error_number::kObjectRequired, "Map", "No layer to add");
    }
    m_layers.push_back(layer);
    m_handlers.Raise([&](IMapActiveViewEvents& h) { h.ItemAdded(layer); });
}

void Map::DeleteLayer(const std::shared_ptr<ILayer>& layer) {
    const auto found = std::find(m_layers.begin(), m_layers.end(), layer);
    if (found == m_layers.end()) {
        return;
    }
    // Kept alive for the handlers even when the caller passed the map's own reference.
    const std::shared_ptr<ILayer> deleted = *found;
    m_layers.erase(found);
    m_handlers.Raise([&](IMapActiveViewEvents& h) { h.ItemDeleted(deleted); });
}

void Map::MoveLayer(const std::shared_ptr<ILayer>& layer, std::int32_t toIndex) {
    const auto found = std::find(m_layers.begin(), m_layers.end(), layer);
    if (found == m_layers.end()) {
        throw Error(error_number::kHostInvalidIndex, "Map", "The layer is not in the map");
    }
    const std::shared_ptr<ILayer> moved = *found;
    m_layers.erase(found);
    const auto index = std::clamp<std::int32_t>(toIndex, 0, LayerCount());
    m_layers.insert(m_layers.begin() + index, moved);
    m_handlers.Raise([&](IMapActiveViewEvents& h) { h.ItemReordered(moved, index); });
}

void Map::ClearLayers() {
    m_layers.clear();
    m_handlers.Raise([](IMapActiveViewEvents& h) { h.ContentsCleared(); });
}

void Map::RaiseFocusMapChanged() const {
    m_handlers.Raise([](IMapActiveViewEvents& h) { h.FocusMapChanged(); });
}

void Map::RaiseContentsChanged() const {
    m_handlers.Raise([](IMapActiveViewEvents& h) { h.ContentsChanged(); });
}

void Map::RaiseViewRefreshed() const {
    m_handlers.Raise([](IMapActiveViewEvents& h) {
        h.ViewRefreshed();
        h.AfterDraw();
    });
}

std::unique_ptr<IEnumLayer> Map::Layers(const UID& uid, bool recursive) const {
    return std::make_unique<LayerList>(LayersImplementing(m_layers, uid.Value, recursive));
}

MxDocument::MxDocument() : m_focusMap(std::make_shared<Map>()) {
    m_maps.push_back(m_focusMap);
}

void MxDocument::AddMap(std::shared_ptr<IMap> map) {
    if (!map) {
        throw Error(error_number::kObjectRequired, "MxDocument", "No map to add");
    }
    m_maps.push_back(std::move(map));
    m_handlers.Raise([](IDocumentEvents& h) { h.MapsChanged(); });
}

void MxDocument::SetFocusMap(std::shared_ptr<IMap> map) {
    if (std::find(m_maps.begin(), m_maps.end(), map) == m_maps.end()) {
        throw Error(error_number::kHostInvalidIndex, "MxDocument",
                    "The map is not one of the document's maps");
    }
    if (map == m_focusMap) {
        return;
    }
    const auto previous = std::exchange(m_focusMap, std::move(map));
    // The handlers listen to the map that had the focus; they follow it to the new one.
    if (const auto source = std::dynamic_pointer_cast<Map>(previous)) {
        source->RaiseFocusMapChanged();
    }
    m_handlers.Raise([](IDocumentEvents& h) { h.ActiveViewChanged(); });
}

void MxDocument::RaiseNewDocument() const {
    m_handlers.Raise([](IDocumentEvents& h) { h.NewDocument(); });
}

void MxDocument::RaiseOpenDocument() const {
    m_handlers.Raise([](IDocumentEvents& h) { h.OpenDocument(); });
}

void MxDocument::RaiseBeforeCloseDocument() const {
    m_handlers.Raise([](IDocumentEvents& h) { h.BeforeCloseDocument(); });
}

void MxDocument::RaiseCloseDocument() const {
    m_handlers.Raise([](IDocumentEvents& h) { h.CloseDocument(); });
}

} // namespace quorel::host::map
