#include "host/shapefile/Application.h"

#include "host/api/LayerWalk.h"
#include "host/map/DataStatistics.h"
#include "host/shapefile/Calculator.h"
#include "host/shapefile/Shapefile.h"

#include <utility>

namespace quorel::host::shapefile {

std::shared_ptr<IFieldEdit> ObjectFactory::NewField() {
    return std::make_shared<map::Field>();
}

std::shared_ptr<ICalculator> ObjectFactory::NewCalculator() {
    return std::make_shared<Calculator>(m_application.StatusBar());
}

std::shared_ptr<IDataStatistics> ObjectFactory::NewDataStatistics() {
    return std::make_shared<map::DataStatistics>();
}

std::shared_ptr<IWorkspaceFactory> ObjectFactory::NewShapefileWorkspaceFactory() {
    return std::make_shared<ShapefileWorkspaceFactory>();
}

std::shared_ptr<IFeatureLayer> ObjectFactory::NewFeatureLayer() {
    return std::make_shared<map::FeatureLayer>();
}

std::unique_ptr<ILayerWriteLock> Application::LockLayerForWriting(const std::string& folder,
                                                                  const std::string& name) {
    return LockShapefileLayer(*this, folder, name, m_writeLockWait);
}

std::unique_ptr<ILayerWriteLock> LockShapefileLayer(const IApplication& app,
                                                    const std::string& folder,
                                                    const std::string& name,
                                                    std::chrono::milliseconds wait) {
    // The layer's own shapefile: a layer renamed in the map keeps its data's name.
    std::string shpPath;
    const auto document = app.Document();
    const auto focusMap = document ? document->FocusMap() : nullptr;
    for (const auto& layer :
         focusMap ? FeatureLayersOf(*focusMap) : std::vector<std::shared_ptr<IFeatureLayer>>()) {
        const auto shapefile =
            std::dynamic_pointer_cast<ShapefileFeatureClass>(layer->FeatureClass());
        if (shapefile && layer->Name() == name && shapefile->Folder() == folder) {
            shpPath = shapefile->ShpPath();
            break;
        }
    }
    if (shpPath.empty()) {
        std::string baseName = name;
        if (baseName.ends_with(".shp") || baseName.ends_with(".SHP")) {
            baseName.resize(baseName.size() - 4);
        }
        shpPath = folder + "/" + baseName + ".shp";
    }
    return std::make_unique<ShapefileWriteLock>(shpPath, wait);
}

std::shared_ptr<IFeatureLayer> AddShapefileLayerTo(IApplication& app, const std::string& shpPath) {
    const auto slash = shpPath.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : shpPath.substr(0, slash);
    std::string name = slash == std::string::npos ? shpPath : shpPath.substr(slash + 1);
    if (name.size() > 4 && (name.ends_with(".shp") || name.ends_with(".SHP"))) {
        name.resize(name.size() - 4);
    }
    const auto workspace = app.Factory().NewShapefileWorkspaceFactory()->OpenFromFile(folder, 0);
    auto layer = app.Factory().NewFeatureLayer();
    layer->SetFeatureClass(workspace->OpenFeatureClass(name));
    layer->SetName(layer->FeatureClass()->AliasName());
    app.Document()->FocusMap()->AddLayer(layer);
    return layer;
}

std::shared_ptr<IFeatureLayer> Application::AddShapefileLayer(const std::string& shpPath) {
    return AddShapefileLayerTo(*this, shpPath);
}

} // namespace quorel::host::shapefile
