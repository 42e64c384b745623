#include "host/shapefile/Application.h"
#include "host/api/LayerList.h"

#include "host/shapefile/Calculator.h"
#include "host/shapefile/DataStatistics.h"
#include "host/shapefile/Shapefile.h"
#include "util/Error.h"

#include <algorithm>
#include <utility>

namespace quorel::host::shapefile {
namespace {

bool Matches(const std::string& uid, const std::shared_ptr<ILayer>& layer) {
    if (uid == kFeatureLayerInterfaceId) {
        return std::dynamic_pointer_cast<IFeatureLayer>(layer) != nullptr;
    }
    if (uid == kGroupLayerInterfaceId) {
        return std::dynamic_pointer_cast<IGroupLayer>(layer) != nullptr;
    }
    return true;
}

void Collect(const std::vector<std::shared_ptr<ILayer>>& layers, const std::string& uid,
             bool recursive, std::vector<std::shared_ptr<ILayer>>& found) {
    for (const auto& layer : layers) {
        if (Matches(uid, layer)) {
            found.push_back(layer);
        }
        const auto group = std::dynamic_pointer_cast<IGroupLayer>(layer);
        if (recursive && group) {
            std::vector<std::shared_ptr<ILayer>> children;
            for (std::int32_t i = 0; i < group->Count(); ++i) {
                children.push_back(group->Layer(i));
            }
            Collect(children, uid, recursive, found);
        }
    }
}

Error NoLayerAt(std::int32_t index, std::size_t count) {
    return Error(error_number::kHostInvalidIndex, "Map",
                 "No layer at position " + std::to_string(index) + " (the map has " +
                     std::to_string(count) + (count == 1 ? " layer)" : " layers)"));
}

} // namespace

void StatusBar::Message(std::int32_t pane, const std::string& text) {
    if (pane < 0) {
        throw Error(error_number::kHostInvalidIndex, "StatusBar",
                    "No status bar pane " + std::to_string(pane));
    }
    if (static_cast<std::size_t>(pane) >= m_panes.size()) {
        m_panes.resize(static_cast<std::size_t>(pane) + 1);
    }
    m_panes[static_cast<std::size_t>(pane)] = text;
    if (m_messageListener) {
        m_messageListener(pane, text);
    }
}

std::string StatusBar::MessageText(std::int32_t pane) const {
    if (pane < 0 || static_cast<std::size_t>(pane) >= m_panes.size()) {
        return "";
    }
    return m_panes[static_cast<std::size_t>(pane)];
}

void StatusBar::Progress(double fraction) {
    m_progress = fraction < 0 ? -1 : std::min(fraction, 1.0);
    if (m_progressListener) {
        m_progressListener(m_progress);
    }
}

std::shared_ptr<ICursor> FeatureLayer::Search(bool recycling) {
    if (!m_featureClass) {
        throw Error(error_number::kObjectRequired, "FeatureLayer",
                    "The layer " + m_name + " has no data");
    }
    return m_featureClass->Search(recycling);
}

std::shared_ptr<ILayer> GroupLayer::Layer(std::int32_t index) const {
    if (index < 0 || static_cast<std::size_t>(index) >= m_layers.size()) {
        throw NoLayerAt(index, m_layers.size());
    }
    return m_layers[static_cast<std::size_t>(index)];
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
    if (!uid.Value.empty() && uid.Value != kFeatureLayerInterfaceId &&
        uid.Value != kLayerInterfaceId && uid.Value != kGroupLayerInterfaceId) {
        throw Error(error_number::kHostInvalidIndex, "Map",
                    "Unknown layer interface id: " + uid.Value);
    }
    std::vector<std::shared_ptr<ILayer>> found;
    Collect(m_layers, uid.Value, recursive, found);
    return std::make_unique<LayerList>(std::move(found));
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

std::shared_ptr<IFieldEdit> ObjectFactory::NewField() {
    return std::make_shared<HostField>();
}

std::shared_ptr<ICalculator> ObjectFactory::NewCalculator() {
    return std::make_shared<Calculator>(m_application.StatusBar());
}

std::shared_ptr<IDataStatistics> ObjectFactory::NewDataStatistics() {
    return std::make_shared<DataStatistics>();
}

std::shared_ptr<IWorkspaceFactory> ObjectFactory::NewShapefileWorkspaceFactory() {
    return std::make_shared<ShapefileWorkspaceFactory>();
}

std::shared_ptr<IFeatureLayer> ObjectFactory::NewFeatureLayer() {
    return std::make_shared<FeatureLayer>();
}

Application::Application()
    : m_statusBar(std::make_shared<shapefile::StatusBar>()), m_editor(std::make_shared<Editor>()),
      m_factory(*this) {
    NewDocument();
}

std::shared_ptr<IExtension> Application::FindExtensionByCLSID(const UID& uid) const {
    if (uid.Value == kEditorExtensionId || uid.Value == kEditorClassId) {
        return m_editor;
    }
    return nullptr;
}

std::shared_ptr<MxDocument> Application::NewDocument() {
    auto document = std::make_shared<MxDocument>();
    m_documents.push_back(document);
    const auto previous = std::exchange(m_document, document);
    if (previous) {
        previous->RaiseNewDocument();
        RaiseFocusLeft(*previous);
    }
    return document;
}

void Application::OpenDocument(std::shared_ptr<MxDocument> document) {
    if (!document) {
        throw Error(error_number::kObjectRequired, "Application", "No document to open");
    }
    if (std::find(m_documents.begin(), m_documents.end(), document) == m_documents.end()) {
        m_documents.push_back(document);
    }
    const auto previous = std::exchange(m_document, std::move(document));
    if (previous) {
        previous->RaiseBeforeCloseDocument();
        previous->RaiseCloseDocument();
        previous->RaiseOpenDocument();
        RaiseFocusLeft(*previous);
    }
}

void Application::RaiseFocusLeft(const MxDocument& previous) const {
    // The view now shows another map: whoever listens to the old focus map hears it.
    if (const auto map = std::dynamic_pointer_cast<Map>(previous.FocusMap());
        map && map != m_document->FocusMap()) {
        map->RaiseFocusMapChanged();
    }
}

void Application::SetActiveDocument(std::shared_ptr<MxDocument> document) {
    if (std::find(m_documents.begin(), m_documents.end(), document) == m_documents.end()) {
        throw Error(error_number::kHostInvalidIndex, "Application",
                    "The document is not open in the application");
    }
    m_document = std::move(document);
}

std::unique_ptr<ILayerWriteLock> Application::LockLayerForWriting(const std::string& folder,
                                                                  const std::string& name) {
    // The layer's own shapefile: a layer renamed in the map keeps its data's name.
    std::string shpPath;
    const auto map = m_document ? m_document->FocusMap() : nullptr;
    const auto layers = map ? map->Layers(UID{kFeatureLayerInterfaceId}, true) : nullptr;
    for (auto layer = layers ? layers->Next() : nullptr; layer && shpPath.empty();
         layer = layers->Next()) {
        const auto featureLayer = std::dynamic_pointer_cast<IFeatureLayer>(layer);
        const auto shapefile =
            featureLayer
                ? std::dynamic_pointer_cast<ShapefileFeatureClass>(featureLayer->FeatureClass())
                : nullptr;
        if (shapefile && layer->Name() == name && shapefile->Folder() == folder) {
            shpPath = shapefile->ShpPath();
        }
    }
    if (shpPath.empty()) {
        std::string baseName = name;
        if (baseName.ends_with(".shp") || baseName.ends_with(".SHP")) {
            baseName.resize(baseName.size() - 4);
        }
        shpPath = folder + "/" + baseName + ".shp";
    }
    return std::make_unique<ShapefileWriteLock>(shpPath, m_writeLockWait);
}

std::shared_ptr<IFeatureLayer> Application::AddShapefileLayer(const std::string& shpPath) {
    const auto slash = shpPath.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : shpPath.substr(0, slash);
    std::string name = slash == std::string::npos ? shpPath : shpPath.substr(slash + 1);
    if (name.size() > 4 && (name.ends_with(".shp") || name.ends_with(".SHP"))) {
        name.resize(name.size() - 4);
    }
    const auto workspace = m_factory.NewShapefileWorkspaceFactory()->OpenFromFile(folder, 0);
    auto layer = m_factory.NewFeatureLayer();
    layer->SetFeatureClass(workspace->OpenFeatureClass(name));
    layer->SetName(layer->FeatureClass()->AliasName());
    m_document->FocusMap()->AddLayer(layer);
    return layer;
}

} // namespace quorel::host::shapefile
