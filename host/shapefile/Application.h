#pragma once

// The host application over shapefiles: the shared map objects (host/map) with a factory of
// shapefile objects (fields, the calculator, workspaces) and the shapefiles' write lock.

#include "host/api/Host.h"
#include "host/map/Application.h"

#include <chrono>
#include <memory>
#include <string>

namespace quorel::host::shapefile {

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

// The write lock of a shapefile layer's data: the shapefile of app's focus-map feature layer of
// that name in that folder, else folder/name.shp, locked by a ShapefileWriteLock.
// Opens the shapefile at shpPath (with or without ".shp") through app's factory and adds it as a
// layer, named after its feature class, at the end of app's focus map.
std::shared_ptr<IFeatureLayer> AddShapefileLayerTo(IApplication& app, const std::string& shpPath);

std::unique_ptr<ILayerWriteLock> LockShapefileLayer(const IApplication& app,
                                                    const std::string& folder,
                                                    const std::string& name,
                                                    std::chrono::milliseconds wait);

class Application final : public map::Application {
public:
    Application() : m_factory(*this) {}

    IObjectFactory& Factory() override { return m_factory; }
    // The shapefile of the focus map's feature layer of that name in that folder, else
    // folder/name.shp, locked by a ShapefileWriteLock.
    std::unique_ptr<ILayerWriteLock> LockLayerForWriting(const std::string& folder,
                                                         const std::string& name) override;
    // How long LockLayerForWriting waits for another writer.
    void SetWriteLockWait(std::chrono::milliseconds wait) { m_writeLockWait = wait; }

    // Opens folder/baseName.shp and adds it to the focus map as a layer named after it.
    std::shared_ptr<IFeatureLayer> AddShapefileLayer(const std::string& shpPath);

private:
    ObjectFactory m_factory;
    // Enough for another run on a table of ordinary size to end, short enough not to look hung.
    std::chrono::milliseconds m_writeLockWait{3000};
};

} // namespace quorel::host::shapefile
