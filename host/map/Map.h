#pragma once

// The map objects every host shares: feature and group layers, maps and documents. They hold
// layers and deliver the view and document events; what a layer's data are is the host's.

#include "host/api/Events.h"
#include "host/api/Host.h"
#include "host/api/Selection.h"

#include <memory>
#include <string>
#include <vector>

namespace quorel::host::map {

// A feature layer keeps its own selection: two layers over one feature class select apart. The
// selection names features of the layer's data, so giving the layer other data empties it.
class FeatureLayer final : public IFeatureLayer, public IFeatureSelection {
public:
    std::string Name() const override { return m_name; }
    void SetName(const std::string& name) override { m_name = name; }
    std::shared_ptr<IFeatureClass> FeatureClass() const override { return m_featureClass; }
    void SetFeatureClass(std::shared_ptr<IFeatureClass> featureClass) override;
    bool Selectable() const override { return m_selectable; }
    void SetSelectable(bool selectable) override { m_selectable = selectable; }
    std::shared_ptr<ICursor> Search(bool recycling) override;

    void SelectFeatures(std::vector<std::int64_t> objectIds) override;
    void Clear() override { SelectFeatures({}); }
    const std::vector<std::int64_t>& SelectedIds() const override { return m_selected; }
    bool IsSelected(std::int64_t objectId) const override;
    void Advise(ISelectionEvents* handler) override { m_selectionHandlers.Advise(handler); }
    void Unadvise(ISelectionEvents* handler) override { m_selectionHandlers.Unadvise(handler); }

private:
    std::string m_name;
    std::shared_ptr<IFeatureClass> m_featureClass;
    bool m_selectable = true;
    std::vector<std::int64_t> m_selected; // ascending, each once
    EventHandlers<ISelectionEvents> m_selectionHandlers;
};

class GroupLayer final : public IGroupLayer {
public:
    std::string Name() const override { return m_name; }
    void SetName(const std::string& name) override { m_name = name; }
    std::int32_t Count() const override { return static_cast<std::int32_t>(m_layers.size()); }
    std::shared_ptr<ILayer> Layer(std::int32_t index) const override;
    void Add(std::shared_ptr<ILayer> layer) override;
    // Whether the layer was one of the group's (and is now removed).
    bool Remove(const std::shared_ptr<ILayer>& layer);

private:
    std::string m_name;
    std::vector<std::shared_ptr<ILayer>> m_layers;
};

// A map delivers its view events to connected handlers: items added, deleted and reordered,
// contents cleared, and (through the document) the focus moving away from it.
class Map final : public IMap, public IMapEventSource {
public:
    explicit Map(std::string name = "Layers") : m_name(std::move(name)) {}

    std::string Name() const override { return m_name; }
    void SetName(std::string name) { m_name = std::move(name); }
    std::int32_t LayerCount() const override { return static_cast<std::int32_t>(m_layers.size()); }
    std::shared_ptr<ILayer> Layer(std::int32_t index) const override;
    void AddLayer(std::shared_ptr<ILayer> layer) override;
    void DeleteLayer(const std::shared_ptr<ILayer>& layer) override;
    std::unique_ptr<IEnumLayer> Layers(const UID& uid, bool recursive) const override;
    // Moves a top-level layer to toIndex (clamped to the map's positions).
    void MoveLayer(const std::shared_ptr<ILayer>& layer, std::int32_t toIndex);
    void ClearLayers();

    void Advise(IMapActiveViewEvents* handler) override { m_handlers.Advise(handler); }
    void Unadvise(IMapActiveViewEvents* handler) override { m_handlers.Unadvise(handler); }
    void SetViewActive(bool active) override { m_viewActive = active; }
    bool ViewActive() const override { return m_viewActive; }
    const EventHandlers<IMapActiveViewEvents>& Handlers() const { return m_handlers; }
    // For the document and the front end: the view was redrawn, the focus moved away, the
    // contents changed in place (a layer renamed, a field added).
    void RaiseFocusMapChanged() const;
    void RaiseContentsChanged() const;
    void RaiseViewRefreshed() const;

private:
    std::string m_name;
    std::vector<std::shared_ptr<ILayer>> m_layers;
    EventHandlers<IMapActiveViewEvents> m_handlers;
    bool m_viewActive = false;
};

// A document delivers its document events; changing the focus map raises FocusMapChanged to
// the handlers of the map that had the focus (they then follow the new one).
class MxDocument final : public IMxDocument, public IDocumentEventSource {
public:
    MxDocument();

    std::shared_ptr<IMap> FocusMap() const override { return m_focusMap; }
    void AddMap(std::shared_ptr<IMap> map);
    // The map must be one of the document's. Setting the map that has the focus changes
    // nothing.
    void SetFocusMap(std::shared_ptr<IMap> map);
    const std::vector<std::shared_ptr<IMap>>& Maps() const { return m_maps; }

    void Advise(IDocumentEvents* handler) override { m_handlers.Advise(handler); }
    void Unadvise(IDocumentEvents* handler) override { m_handlers.Unadvise(handler); }
    const EventHandlers<IDocumentEvents>& Handlers() const { return m_handlers; }
    void RaiseNewDocument() const;
    void RaiseOpenDocument() const;
    void RaiseBeforeCloseDocument() const;
    void RaiseCloseDocument() const;

private:
    std::vector<std::shared_ptr<IMap>> m_maps;
    std::shared_ptr<IMap> m_focusMap;
    EventHandlers<IDocumentEvents> m_handlers;
};

} // namespace quorel::host::map
