#pragma once

// The host application over shapefiles: documents with maps and layers, the editor extension,
// a status bar, and the factory of host objects (fields, calculator, data statistics,
// workspace factory, feature layers).

#include "host/api/Events.h"
#include "host/api/Host.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace quorel::host::shapefile {

class StatusBar final : public IStatusBar {
public:
    using MessageListener = std::function<void(std::int32_t pane, const std::string& text)>;
    using ProgressListener = std::function<void(double fraction)>;

    void Message(std::int32_t pane, const std::string& text) override;
    std::string MessageText(std::int32_t pane) const override;
    void Progress(double fraction) override;

    double CurrentProgress() const { return m_progress; }
    // Lets a front end (the command line, a window) show what the status bar shows.
    void SetMessageListener(MessageListener listener) { m_messageListener = std::move(listener); }
    void SetProgressListener(ProgressListener listener) {
        m_progressListener = std::move(listener);
    }

private:
    std::vector<std::string> m_panes;
    double m_progress = -1;
    MessageListener m_messageListener;
    ProgressListener m_progressListener;
};

// The editor extension, registered as "esriEditor.Editor". The host application (or a test)
// starts and stops editing.
class Editor final : public IEditor {
public:
    std::string Name() const override { return "Editor"; }
    std::int32_t EditState() const override { return m_state; }
    void SetEditState(std::int32_t state) { m_state = state; }

private:
    std::int32_t m_state = kEditStateNotEditing;
};

class FeatureLayer final : public IFeatureLayer {
public:
    std::string Name() const override { return m_name; }
    void SetName(const std::string& name) override { m_name = name; }
    std::shared_ptr<IFeatureClass> FeatureClass() const override { return m_featureClass; }
    void SetFeatureClass(std::shared_ptr<IFeatureClass> featureClass) override {
        m_featureClass = std::move(featureClass);
    }
    bool Selectable() const override { return m_selectable; }
    void SetSelectable(bool selectable) override { m_selectable = selectable; }
    std::shared_ptr<ICursor> Search(bool recycling) override;

private:
    std::string m_name;
    std::shared_ptr<IFeatureClass> m_featureClass;
    bool m_selectable = true;
};

class GroupLayer final : public IGroupLayer {
public:
    std::string Name() const override { return m_name; }
    void SetName(const std::string& name) override { m_name = name; }
    std::int32_t Count() const override { return static_cast<std::int32_t>(m_layers.size()); }
    std::shared_ptr<ILayer> Layer(std::int32_t index) const override;
    void Add(std::shared_ptr<ILayer> layer) override { m_layers.push_back(std::move(layer)); }
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

class Application;

class ObjectFactory final : public IObjectFactory {
public:
    explicit ObjectFactory(Application& application) : m_application(application) {}

    std::shared_ptr<IFieldEdit> NewField() override;
    std::shared_ptr<ICalculator> NewCalculator() override;
    std::shared_ptr<IDataStatistics> NewDataStatistics() override;
    std::shared_ptr<IWorkspaceFactory> NewShapefileWorkspaceFactory() override;
    std::shared_ptr<IFeatureLayer> NewFeatureLayer() override;

private:
    Application& m_application;
};

// Holds the documents (one active), the status bar and the editor extension.
class Application final : public IApplication {
public:
    Application();

    std::shared_ptr<IMxDocument> Document() const override { return m_document; }
    std::shared_ptr<IStatusBar> StatusBar() const override { return m_statusBar; }
    std::shared_ptr<IExtension> FindExtensionByCLSID(const UID& uid) const override;
    IObjectFactory& Factory() override { return m_factory; }
    // The shapefile of the focus map's feature layer of that name in that folder, else
    // folder/name.shp, locked by a ShapefileWriteLock.
    std::unique_ptr<ILayerWriteLock> LockLayerForWriting(const std::string& folder,
                                                         const std::string& name) override;
    // How long LockLayerForWriting waits for another writer.
    void SetWriteLockWait(std::chrono::milliseconds wait) { m_writeLockWait = wait; }

    // A new document becomes the active one. The handlers of the document that was active
    // hear NewDocument, as for a document that is emptied and started afresh, then those of
    // its focus map hear FocusMapChanged.
    std::shared_ptr<MxDocument> NewDocument();
    // An opened (already filled) document becomes the active one; the handlers of the
    // document that was active hear BeforeCloseDocument, CloseDocument and OpenDocument, then
    // those of its focus map hear FocusMapChanged.
    void OpenDocument(std::shared_ptr<MxDocument> document);
    const std::vector<std::shared_ptr<MxDocument>>& Documents() const { return m_documents; }
    void SetActiveDocument(std::shared_ptr<MxDocument> document);
    const std::shared_ptr<Editor>& EditorExtension() const { return m_editor; }
    const std::shared_ptr<shapefile::StatusBar>& Bar() const { return m_statusBar; }

    // Opens folder/baseName.shp and adds it to the focus map as a layer named after it.
    std::shared_ptr<IFeatureLayer> AddShapefileLayer(const std::string& shpPath);

private:
    void RaiseFocusLeft(const MxDocument& previous) const;

    std::vector<std::shared_ptr<MxDocument>> m_documents;
    std::shared_ptr<MxDocument> m_document;
    std::shared_ptr<shapefile::StatusBar> m_statusBar;
    std::shared_ptr<Editor> m_editor;
    ObjectFactory m_factory;
    // Enough for another run on a table of ordinary size to end, short enough not to look hung.
    std::chrono::milliseconds m_writeLockWait{3000};
};

// Interface ids the map's layer enumeration understands.
inline constexpr const char* kLayerInterfaceId = "{34C20002-4D3C-11D0-92D8-00805F7C28B0}";
inline constexpr const char* kGroupLayerInterfaceId = "{EDAD6644-1810-11D1-86AE-0000F8751720}";
// The editor extension's class id, accepted besides its ProgID.
inline constexpr const char* kEditorClassId = "{F8842F20-BB23-11D0-802B-0000F8037368}";

} // namespace quorel::host::shapefile
