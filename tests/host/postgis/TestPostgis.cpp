#include "tests/host/postgis/TestPostgis.h"

#include "host/map/DataStatistics.h"
#include "host/map/Field.h"
#include "host/map/Map.h"
#include "host/postgis/PostGIS.h"
#include "tests/support/PostgresCluster.h"
#include "util/NumberText.h"

#include <cstdlib>

namespace quorel::testing {

std::vector<std::optional<double>> Doubles(const host::postgis::Result& rows) {
    std::vector<std::optional<double>> values;
    for (int i = 0; i < rows.Rows(); ++i) {
        values.push_back(rows.IsNull(i, 0) ? std::nullopt
                                           : std::optional<double>(
                                                 std::strtod(rows.Text(i, 0).c_str(), nullptr)));
    }
    return values;
}

std::vector<std::optional<double>>
PostgisColumn(const std::string& source, const std::string& table, const std::string& field) {
    host::postgis::Connection connection(source);
    return Doubles(connection.Exec("SELECT " + connection.QuoteIdentifier(field) + " FROM " +
                                   connection.QuoteIdentifier(table) + " ORDER BY fid"));
}

std::string MakePostgisTable(const std::string& table, const std::vector<std::string>& fields,
                             const std::vector<std::vector<std::optional<double>>>& rows,
                             std::string source) {
    auto& cluster = test::PostgresCluster::Instance();
    if (source.empty()) {
        source = cluster.Source(cluster.NewDatabase());
    }
    host::postgis::Connection connection(source);
    std::string columns;
    for (const auto& field : fields) {
        columns += ", " + connection.QuoteIdentifier(field) + " double precision";
    }
    const std::string name = connection.QuoteIdentifier(table);
    connection.Run("CREATE TABLE " + name +
                   " (fid serial PRIMARY KEY, geom geometry(Polygon, 4326)" + columns + ")");
    for (std::size_t r = 0; r < rows.size(); ++r) {
        std::string values;
        for (const auto& value : rows[r]) {
            values += ", " + (value ? "'" + util::FormatRoundTrip(*value) + "'::float8"
                                    : std::string("NULL"));
        }
        const std::string x = std::to_string(r);
        connection.Run("INSERT INTO " + name + " VALUES (DEFAULT, ST_MakeEnvelope(" + x + ", 0, " +
                       x + " + 1, 1, 4326)" + values + ")");
    }
    return source;
}

std::unique_ptr<host::ILayerWriteLock>
PostgisTestApplication::LockLayerForWriting(const std::string& folder, const std::string& name) {
    return std::make_unique<host::postgis::PostgisWriteLock>(folder, name, wait);
}

std::shared_ptr<host::IFieldEdit> PostgisTestApplication::NewField() {
    return std::make_shared<host::map::Field>();
}

std::shared_ptr<host::ICalculator> PostgisTestApplication::NewCalculator() {
    return std::make_shared<host::postgis::Calculator>();
}

std::shared_ptr<host::IDataStatistics> PostgisTestApplication::NewDataStatistics() {
    return std::make_shared<host::map::DataStatistics>();
}

std::shared_ptr<host::IWorkspaceFactory> PostgisTestApplication::NewShapefileWorkspaceFactory() {
    return std::make_shared<host::postgis::PostgisWorkspaceFactory>();
}

std::shared_ptr<host::IFeatureLayer> PostgisTestApplication::NewFeatureLayer() {
    return std::make_shared<host::map::FeatureLayer>();
}

std::shared_ptr<host::IFeatureLayer> PostgisTestApplication::AddLayer(const std::string& source,
                                                                      const std::string& table) {
    const auto workspace = host::postgis::PostgisWorkspaceFactory().OpenFromFile(source, 0);
    auto layer = NewFeatureLayer();
    layer->SetFeatureClass(workspace->OpenFeatureClass(table));
    layer->SetName(table);
    Document()->FocusMap()->AddLayer(layer);
    return layer;
}

} // namespace quorel::testing
