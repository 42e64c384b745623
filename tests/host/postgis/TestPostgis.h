#pragma once

// PostGIS tables for the tests, in databases of the throwaway cluster, and an application over
// them.

#include "host/api/Host.h"
#include "host/map/Application.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::host::postgis {
class Result;
}

namespace quorel::testing {

// A table of squares (fid serial key, geom polygon) with numeric fields of double precision, one
// row per entry of rows (nullopt: Null), in a new database of the cluster; its source text.
std::string MakePostgisTable(const std::string& table, const std::vector<std::string>& fields,
                             const std::vector<std::vector<std::optional<double>>>& rows,
                             std::string source = {});

// The first column of rows as numbers (nullopt: Null), and a column of a table in fid order.
std::vector<std::optional<double>> Doubles(const host::postgis::Result& rows);
std::vector<std::optional<double>>
PostgisColumn(const std::string& source, const std::string& table, const std::string& field);

// A PostGIS-only host application: postgis calculators and write locks.
class PostgisTestApplication final : public host::map::Application, host::IObjectFactory {
public:
    host::IObjectFactory& Factory() override { return *this; }
    std::unique_ptr<host::ILayerWriteLock> LockLayerForWriting(const std::string& folder,
                                                               const std::string& name) override;
    std::shared_ptr<host::IFieldEdit> NewField() override;
    std::shared_ptr<host::ICalculator> NewCalculator() override;
    std::shared_ptr<host::IDataStatistics> NewDataStatistics() override;
    std::shared_ptr<host::IWorkspaceFactory> NewShapefileWorkspaceFactory() override;
    std::shared_ptr<host::IFeatureLayer> NewFeatureLayer() override;

    // Adds the table as a layer of the focus map.
    std::shared_ptr<host::IFeatureLayer> AddLayer(const std::string& source,
                                                  const std::string& table);

    std::chrono::milliseconds wait{0};
};

} // namespace quorel::testing
