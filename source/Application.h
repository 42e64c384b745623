#pragma once

// The one host application over every source at once (a map may mix shapefiles and GeoPackage
// layers): the shared map objects with a factory whose calculator works on whichever source's
// cursor it is given, and the write lock of whichever source holds the layer. Each source is its
// own host folder and knows nothing of the others; this is where they meet.

#include "host/api/Host.h"
#include "host/map/Application.h"

#include <chrono>
#include <memory>
#include <string>

namespace quorel::source {

class Application;

class ObjectFactory final : public host::IObjectFactory {
public:
    explicit ObjectFactory(Application& application) : m_application(application) {}

    std::shared_ptr<host::IFieldEdit> NewField() override;
    // A calculator that hands the work to the calculator of its cursor's source.
    std::shared_ptr<host::ICalculator> NewCalculator() override;
    std::shared_ptr<host::IDataStatistics> NewDataStatistics() override;
    std::shared_ptr<host::IWorkspaceFactory> NewShapefileWorkspaceFactory() override;
    std::shared_ptr<host::IFeatureLayer> NewFeatureLayer() override;

private:
    Application& m_application;
};

class Application final : public host::map::Application {
public:
    Application() : m_factory(*this) {}

    host::IObjectFactory& Factory() override { return m_factory; }
    // folder names the source: a .gpkg file locks the GeoPackage (one transaction, committed by
    // the lock's Commit), a PG: connection the table `name` (a server transaction, likewise);
    // anything else the shapefile, as the shapefile host does.
    std::unique_ptr<host::ILayerWriteLock> LockLayerForWriting(const std::string& folder,
                                                               const std::string& name) override;
    // How long LockLayerForWriting waits for another writer.
    void SetWriteLockWait(std::chrono::milliseconds wait) { m_writeLockWait = wait; }
    std::chrono::milliseconds WriteLockWait() const { return m_writeLockWait; }

    // Opens a shapefile and adds it to the focus map as a layer named after it.
    std::shared_ptr<host::IFeatureLayer> AddShapefileLayer(const std::string& shpPath);

private:
    ObjectFactory m_factory;
    // Enough for another run on a table of ordinary size to end, short enough not to look hung.
    std::chrono::milliseconds m_writeLockWait{3000};
};

} // namespace quorel::source
