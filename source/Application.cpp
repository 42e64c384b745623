#include "source/Application.h"

#include "host/gpkg/GeoPackage.h"
#include "host/map/DataStatistics.h"
#include "host/map/Map.h"
#include "host/postgis/PostGIS.h"
#include "host/shapefile/Application.h"
#include "host/shapefile/Calculator.h"
#include "host/shapefile/Shapefile.h"

#include <optional>

namespace quorel::source {
namespace {

// Keeps what the run sets, then hands it to the calculator of the cursor's source when asked to
// calculate. It takes the degree as SQL where the cursor's source computes in its database
// (PostGIS); SqlDialect is empty for the others. Shapefiles check value ranges as they fill.
class SourceCalculator final : public host::ICalculator,
                               public host::ISqlCalculator,
                               public host::IRangeCheckingCalculator {
public:
    explicit SourceCalculator(std::shared_ptr<host::IStatusBar> statusBar)
        : m_statusBar(std::move(statusBar)) {}

    void SetCursor(std::shared_ptr<host::ICursor> cursor) override { m_cursor = std::move(cursor); }
    void SetPreExpression(const std::string& script) override { m_preExpression = script; }
    void SetExpression(const std::string& expression) override { m_expression = expression; }
    void SetField(const std::string& fieldName) override { m_field = fieldName; }

    std::string SqlDialect() const override {
        return dynamic_cast<host::postgis::PostgisCursor*>(m_cursor.get()) ? "postgresql" : "";
    }
    void SetSqlExpression(const std::string& expression) override { m_sql = expression; }

    bool ChecksRangeOf(const host::IFeatureClass& table) const override {
        return dynamic_cast<const host::shapefile::ShapefileFeatureClass*>(&table) != nullptr;
    }
    void SetRangeCheck(const std::vector<std::string>& fields, double low, double high) override {
        m_rangeCheck = host::shapefile::DbfRangeCheck{fields, low, high};
    }

    void Calculate() override {
        std::shared_ptr<host::ICalculator> calculator;
        if (dynamic_cast<host::postgis::PostgisCursor*>(m_cursor.get())) {
            auto postgis = std::make_shared<host::postgis::Calculator>();
            if (m_sql) {
                postgis->SetSqlExpression(*m_sql);
            }
            calculator = postgis;
        } else if (dynamic_cast<host::gpkg::GeoPackageCursor*>(m_cursor.get())) {
            calculator = std::make_shared<host::gpkg::Calculator>(m_statusBar);
        } else {
            auto shapefile = std::make_shared<host::shapefile::Calculator>(m_statusBar);
            if (m_rangeCheck) {
                shapefile->SetRangeCheck(m_rangeCheck->fields, m_rangeCheck->low,
                                         m_rangeCheck->high);
            }
            calculator = shapefile;
        }
        calculator->SetCursor(m_cursor);
        calculator->SetPreExpression(m_preExpression);
        calculator->SetExpression(m_expression);
        calculator->SetField(m_field);
        calculator->Calculate();
    }

private:
    std::shared_ptr<host::IStatusBar> m_statusBar;
    std::shared_ptr<host::ICursor> m_cursor;
    std::string m_preExpression;
    std::string m_expression;
    std::string m_field;
    std::optional<std::string> m_sql;
    std::optional<host::shapefile::DbfRangeCheck> m_rangeCheck;
};

} // namespace

std::shared_ptr<host::IFieldEdit> ObjectFactory::NewField() {
    return std::make_shared<host::map::Field>();
}

std::shared_ptr<host::ICalculator> ObjectFactory::NewCalculator() {
    return std::make_shared<SourceCalculator>(m_application.StatusBar());
}

std::shared_ptr<host::IDataStatistics> ObjectFactory::NewDataStatistics() {
    return std::make_shared<host::map::DataStatistics>();
}

std::shared_ptr<host::IWorkspaceFactory> ObjectFactory::NewShapefileWorkspaceFactory() {
    return std::make_shared<host::shapefile::ShapefileWorkspaceFactory>();
}

std::shared_ptr<host::IFeatureLayer> ObjectFactory::NewFeatureLayer() {
    return std::make_shared<host::map::FeatureLayer>();
}

std::unique_ptr<host::ILayerWriteLock> Application::LockLayerForWriting(const std::string& folder,
                                                                        const std::string& name) {
    if (host::gpkg::IsGeoPackagePath(folder)) {
        return std::make_unique<host::gpkg::GeoPackageWriteLock>(folder, m_writeLockWait);
    }
    if (host::postgis::IsPostgresSource(folder)) {
        return std::make_unique<host::postgis::PostgisWriteLock>(folder, name, m_writeLockWait);
    }
    return host::shapefile::LockShapefileLayer(*this, folder, name, m_writeLockWait);
}

std::shared_ptr<host::IFeatureLayer> Application::AddShapefileLayer(const std::string& shpPath) {
    return host::shapefile::AddShapefileLayerTo(*this, shpPath);
}

} // namespace quorel::source
