#pragma once

// The one walk over a map's layers, shared by every host's IMap::Layers and by whoever lists a
// map's feature layers. Order: the map's (top of the contents first), each group before the
// layers inside it.

#include "host/api/Host.h"
#include "util/Error.h"

#include <memory>
#include <string>
#include <vector>

namespace quorel::host {

// Whether uid is one IMap::Layers understands; empty counts as the every-layer id.
inline bool IsLayerInterfaceId(const std::string& uid) {
    return uid.empty() || uid == kLayerInterfaceId || uid == kFeatureLayerInterfaceId ||
           uid == kGroupLayerInterfaceId;
}

inline bool LayerImplements(const std::shared_ptr<ILayer>& layer, const std::string& uid) {
    if (uid == kFeatureLayerInterfaceId) {
        return std::dynamic_pointer_cast<IFeatureLayer>(layer) != nullptr;
    }
    if (uid == kGroupLayerInterfaceId) {
        return std::dynamic_pointer_cast<IGroupLayer>(layer) != nullptr;
    }
    return layer != nullptr;
}

namespace detail {
inline void CollectLayers(const std::shared_ptr<ILayer>& layer, const std::string& uid,
                          bool recursive, std::vector<std::shared_ptr<ILayer>>& found) {
    if (LayerImplements(layer, uid)) {
        found.push_back(layer);
    }
    const auto group = std::dynamic_pointer_cast<IGroupLayer>(layer);
    if (recursive && group) {
        for (std::int32_t i = 0; i < group->Count(); ++i) {
            CollectLayers(group->Layer(i), uid, recursive, found);
        }
    }
}
} // namespace detail

// The layers among `layers` (and, when recursive, inside their groups) that implement the
// interface uid names. An id IsLayerInterfaceId refuses throws kHostInvalidIndex.
inline std::vector<std::shared_ptr<ILayer>>
LayersImplementing(const std::vector<std::shared_ptr<ILayer>>& layers, const std::string& uid,
                   bool recursive) {
    if (!IsLayerInterfaceId(uid)) {
        throw Error(error_number::kHostInvalidIndex, "Map", "Unknown layer interface id: " + uid);
    }
    std::vector<std::shared_ptr<ILayer>> found;
    for (const auto& layer : layers) {
        detail::CollectLayers(layer, uid, recursive, found);
    }
    return found;
}

// Every feature layer of a layer: itself, or a group's, groups opened.
inline std::vector<std::shared_ptr<IFeatureLayer>>
FeatureLayersOf(const std::shared_ptr<ILayer>& layer) {
    std::vector<std::shared_ptr<ILayer>> found;
    detail::CollectLayers(layer, kFeatureLayerInterfaceId, true, found);
    std::vector<std::shared_ptr<IFeatureLayer>> featureLayers;
    for (const auto& each : found) {
        featureLayers.push_back(std::dynamic_pointer_cast<IFeatureLayer>(each));
    }
    return featureLayers;
}

// Every feature layer of the map, groups opened.
inline std::vector<std::shared_ptr<IFeatureLayer>> FeatureLayersOf(const IMap& map) {
    std::vector<std::shared_ptr<IFeatureLayer>> found;
    for (std::int32_t i = 0; i < map.LayerCount(); ++i) {
        for (auto& layer : FeatureLayersOf(map.Layer(i))) {
            found.push_back(std::move(layer));
        }
    }
    return found;
}

} // namespace quorel::host
