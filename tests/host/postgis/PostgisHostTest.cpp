#include "criterion/Membership.h"
#include "criterion/Script.h"
#include "criterion/SqlExpression.h"
#include "host/postgis/PostGIS.h"
#include "tests/host/postgis/TestPostgis.h"
#include "tests/support/DegreeCases.h"
#include "tests/support/PostgresCluster.h"
#include "tests/support/Thrown.h"
#include "util/Error.h"
#include "util/NumberText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

namespace quorel::host::postgis {
namespace {

using test::DegreeCase;
using test::PostgresCluster;
using test::Thrown;

class PostgresExpressionTest : public ::testing::TestWithParam<DegreeCase> {
protected:
    static void SetUpTestSuite() {
        auto& cluster = PostgresCluster::Instance();
        s_source = cluster.Source(cluster.NewDatabase());
    }
    static std::string s_source;
};
std::string PostgresExpressionTest::s_source;

TEST_P(PostgresExpressionTest, givesTheScriptsDegreesBitForBit) {
    const DegreeCase c = test::Completed(GetParam());
    const std::string field = "we\"ird; --";
    const std::string expression = criterion::SqlExpression(criterion::kSqlDialectPostgresql,
                                                            c.kind, field, c.a, c.b, c.c, c.d);
    Connection connection(s_source);
    connection.Run("DROP TABLE IF EXISTS vals; CREATE TABLE vals (id serial, " +
                   connection.QuoteIdentifier(field) + " double precision)");
    std::vector<std::optional<double>> values{std::nullopt, NAN};
    for (const double v : test::DegreeValues(c)) {
        values.emplace_back(v);
    }
    for (const auto& value : values) {
        connection.Exec("INSERT INTO vals VALUES (DEFAULT, $1::double precision)",
                        {value ? std::optional<std::string>(
                                     std::isnan(*value) ? "NaN" : util::FormatRoundTrip(*value))
                               : std::nullopt});
    }
    const std::string query = "SELECT " + expression + " FROM vals ORDER BY id";
    if (c.fails) {
        const auto number = Thrown([&] { connection.Exec(query); }).Number();
        EXPECT_EQ(number, c.kind == 2 && c.a < -1e300 ? error_number::kOverflow
                                                      : error_number::kDivisionByZero);
        return;
    }
    const auto degrees = testing::Doubles(connection.Exec(query));
    ASSERT_EQ(degrees.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        SCOPED_TRACE(values[i] ? util::FormatRoundTrip(*values[i]) : "Null");
        const auto expected = test::ScriptDegree(c, values[i]);
        ASSERT_EQ(degrees[i].has_value(), expected.has_value());
        if (expected) {
            EXPECT_TRUE(test::SameBits(*degrees[i], *expected)) << *degrees[i] << " " << *expected;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, PostgresExpressionTest, ::testing::ValuesIn(test::DegreeCases()));

class PostgisHostTest : public ::testing::Test {
protected:
    std::shared_ptr<PostgisFeatureClass> Open(const std::string& source, const std::string& table) {
        const auto layer = m_app.AddLayer(source, table);
        return std::dynamic_pointer_cast<PostgisFeatureClass>(layer->FeatureClass());
    }

    void AddDouble(IFeatureClass& table, const std::string& name) {
        const auto field = m_app.NewField();
        field->SetName(name);
        field->SetType(kFieldTypeDouble);
        table.AddField(*field);
    }

    // The calculator as the run drives it: the script, and the SQL beside it.
    void Fill(const std::shared_ptr<PostgisFeatureClass>& table, const std::string& source,
              const std::string& out, int kind, double a, double b, double c, double d) {
        const auto calculator = m_app.NewCalculator();
        calculator->SetCursor(table->Search(true));
        calculator->SetPreExpression(*criterion::BuildPreExpression(kind, source, a, b, c, d));
        calculator->SetExpression("Val");
        calculator->SetField(out);
        dynamic_cast<ISqlCalculator&>(*calculator)
            .SetSqlExpression(criterion::SqlExpression(criterion::kSqlDialectPostgresql, kind,
                                                       source, a, b, c, d));
        calculator->Calculate();
    }

    static bool HasColumn(const std::string& source, const std::string& table,
                          const std::string& field) {
        Connection connection(source);
        return connection
                   .Exec("SELECT count(*) FROM information_schema.columns WHERE table_name = $1 "
                         "AND column_name = $2",
                         {table, field})
                   .Text(0, 0) == "1";
    }

    testing::PostgisTestApplication m_app;
};

const std::vector<std::vector<std::optional<double>>> kSlopes{{-1.0}, {2.5},  {std::nullopt},
                                                              {10.0}, {17.5}, {30.0}};

TEST_F(PostgisHostTest, namesHoldingQuotesSemicolonsAndDashesAreOnlyNames) {
    const std::string table = "par\"cels; DROP TABLE victim; --";
    const std::string field = "sl'o\"pe; --";
    const std::string out = "FZY \"x\"; DROP TABLE victim; --";
    const std::string source = testing::MakePostgisTable(table, {field}, kSlopes);
    testing::MakePostgisTable("victim", {"v"}, {{1.0}}, source);

    const auto parcels = Open(source, table);
    ASSERT_EQ(parcels->FindField(field), 2);
    {
        auto lock = m_app.LockLayerForWriting(source, table);
        AddDouble(*parcels, out);
        Fill(parcels, field, out, 5, 0, 5, 15, 25);
        CriterionRecord record{table,     out, field, 5, 0, 5, 15, 25, "2026-11-24T14:05:00+01:00",
                               "10.3.0.2"};
        parcels->WriteRecord(record);
        lock->Commit();
    }
    const auto degrees = testing::PostgisColumn(source, table, out);
    ASSERT_EQ(degrees.size(), kSlopes.size());
    for (std::size_t i = 0; i < kSlopes.size(); ++i) {
        EXPECT_EQ(degrees[i], test::ScriptDegree({5, 0, 5, 15, 25}, kSlopes[i][0]));
    }
    EXPECT_TRUE(HasColumn(source, "victim", "v"));
    const auto record = parcels->Record(out);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->sourceField, field);
    EXPECT_EQ(record->created, "2026-11-24T13:05:00+00:00");
    Connection connection(source);
    EXPECT_NE(
        connection
            .Exec("SELECT col_description($1::regclass, 4)", {connection.QuoteIdentifier(table)})
            .Text(0, 0)
            .find("trapezoid (kind 5) of " + field),
        std::string::npos);
}

// A table as ogr2ogr loads a shapefile's: numeric fields beside the geometry and its index.
class PostgisNumericSourceTest : public PostgisHostTest,
                                 public ::testing::WithParamInterface<DegreeCase> {
protected:
    static void SetUpTestSuite() {
        auto& cluster = PostgresCluster::Instance();
        s_source = cluster.Source(cluster.NewDatabase());
    }
    static std::string s_source;
};
std::string PostgisNumericSourceTest::s_source;

TEST_P(PostgisNumericSourceTest, givesTheScriptsDegreesInANewLastColumn) {
    const DegreeCase c = test::Completed(GetParam());
    const std::string table = "parcels " + std::to_string(c.kind) + " " +
                              util::FormatRoundTrip(c.a) + " " + util::FormatRoundTrip(c.c);
    const std::string field = "sl\"o pe";
    testing::MakePostgisTable(table, {field, "other"}, {}, s_source);
    Connection connection(s_source);
    const std::string name = connection.QuoteIdentifier(table);
    const std::string source = connection.QuoteIdentifier(field);
    connection.Run("ALTER TABLE " + name + " ALTER COLUMN " + source + " TYPE numeric, ALTER " +
                   "COLUMN other TYPE numeric(7, 2); CREATE INDEX ON " + name +
                   " USING gist (geom)");
    std::vector<double> values{NAN};
    for (const double v : test::DegreeValues(c)) {
        values.push_back(v);
    }
    for (const double v : values) {
        connection.Exec("INSERT INTO " + name + " (geom, " + source + ", other) VALUES (" +
                            "ST_MakeEnvelope(0, 0, 1, 1, 4326), $1::numeric, 1.5)",
                        {std::isnan(v)   ? std::string("NaN")
                         : std::isinf(v) ? std::string(v > 0 ? "Infinity" : "-Infinity")
                                         : util::FormatRoundTrip(v)});
    }
    connection.Run("INSERT INTO " + name + " (geom) VALUES (ST_MakeEnvelope(0, 0, 1, 1, 4326))");

    const auto parcels = Open(s_source, table);
    auto lock = m_app.LockLayerForWriting(s_source, table);
    AddDouble(*parcels, "FZY");
    if (c.fails) {
        EXPECT_EQ(Thrown([&] { Fill(parcels, field, "FZY", c.kind, c.a, c.b, c.c, c.d); }).Number(),
                  c.kind == 2 && c.a < -1e300 ? error_number::kOverflow
                                              : error_number::kDivisionByZero);
        return;
    }
    Fill(parcels, field, "FZY", c.kind, c.a, c.b, c.c, c.d);
    lock->Commit();

    const Result rows = connection.Exec("SELECT CAST(" + source +
                                        " AS double precision), \"FZY\" "
                                        "FROM " +
                                        name + " ORDER BY fid");
    ASSERT_EQ(rows.Rows(), static_cast<int>(values.size()) + 1);
    for (int i = 0; i < rows.Rows(); ++i) {
        const auto value = rows.Optional(i, 0);
        const auto degree = rows.Optional(i, 1);
        SCOPED_TRACE(value.value_or("Null"));
        const auto expected = test::ScriptDegree(
            c, value ? std::optional<double>(std::strtod(value->c_str(), nullptr)) : std::nullopt);
        ASSERT_EQ(degree.has_value(), expected.has_value());
        if (expected) {
            const double got = std::strtod(degree->c_str(), nullptr);
            EXPECT_TRUE(test::SameBits(got, *expected)) << got << " " << *expected;
        }
    }
    // The degrees are the last column, and nothing else shows.
    EXPECT_EQ(
        connection
            .Exec("SELECT string_agg(attname || ':' || attgenerated::text, ',' ORDER BY attnum) "
                  "FROM pg_attribute WHERE attrelid = $1::regclass AND attnum > 0 AND NOT "
                  "attisdropped",
                  {name})
            .Text(0, 0),
        "fid:,geom:," + field + ":,other:,FZY:");
}

INSTANTIATE_TEST_SUITE_P(Kinds, PostgisNumericSourceTest, ::testing::ValuesIn(test::DegreeCases()));

TEST_F(PostgisHostTest, aColumnAViewUsesIsFilledByUpdateAndAnIntegerOneToo) {
    const std::string source = testing::MakePostgisTable("parcels", {"slope"}, kSlopes);
    Connection connection(source);
    connection.Run("ALTER TABLE parcels ADD COLUMN used double precision, ADD COLUMN whole "
                   "integer; CREATE VIEW uses AS SELECT used FROM parcels");
    const auto parcels = Open(source, "parcels");
    Fill(parcels, "slope", "used", 3, 0, 10, 0, 0);
    Fill(parcels, "slope", "whole", 1, 10, 0, 0, 0);
    const auto used = testing::PostgisColumn(source, "parcels", "used");
    const auto whole = testing::PostgisColumn(source, "parcels", "whole");
    for (std::size_t i = 0; i < kSlopes.size(); ++i) {
        const double slope = kSlopes[i][0].value_or(NAN);
        EXPECT_EQ(used[i], test::ScriptDegree(test::Completed({3, 0, 10, 0, 0}), kSlopes[i][0]));
        EXPECT_EQ(whole[i], std::optional<double>(std::isnan(slope) || slope == 10 ? 1 : 0));
    }
}

TEST_F(PostgisHostTest, aLockDroppedWithoutCommitOrALostConnectionLeavesNothingWritten) {
    const std::string source = testing::MakePostgisTable("parcels", {"slope"}, kSlopes);
    const auto parcels = Open(source, "parcels");
    {
        auto lock = m_app.LockLayerForWriting(source, "parcels");
        AddDouble(*parcels, "FZY_SLOPE");
        Fill(parcels, "slope", "FZY_SLOPE", 2, 0, 10, 20, 0);
        parcels->WriteRecord({"parcels", "FZY_SLOPE", "slope", 2, 0, 10, 20, 1e15,
                              "2026-11-24T14:05:00+01:00", "10.3.0.2"});
    }
    EXPECT_FALSE(HasColumn(source, "parcels", "FZY_SLOPE"));
    EXPECT_FALSE(parcels->Record("FZY_SLOPE"));

    // The server ends the writer's session halfway, as a lost connection or a killed server
    // process would.
    auto lock = m_app.LockLayerForWriting(source, "parcels");
    AddDouble(*parcels, "FZY_SLOPE");
    Connection other(source);
    other.Exec("SELECT pg_terminate_backend($1)",
               {std::to_string(parcels->SharedConnection().BackendPid())});
    EXPECT_EQ(Thrown([&] { Fill(parcels, "slope", "FZY_SLOPE", 2, 0, 10, 20, 0); }).Number(),
              error_number::kHostFailure);
    EXPECT_THROW(lock->Commit(), Error);
    lock.reset();
    EXPECT_FALSE(HasColumn(source, "parcels", "FZY_SLOPE"));
}

TEST_F(PostgisHostTest, validationRemovesTheRecordsOfColumnsThatAreGone) {
    const std::string source = testing::MakePostgisTable("parcels", {"slope"}, kSlopes);
    const auto parcels = Open(source, "parcels");
    EXPECT_TRUE(parcels->Records().empty());
    parcels->RemoveRecordsOfMissingColumns(); // no table of records yet
    for (const char* column : {"KEPT", "GONE"}) {
        AddDouble(*parcels, column);
        parcels->WriteRecord({"parcels", column, "slope", 4, -1e16, -1e15, 0, 10,
                              "2026-11-24T14:05:00+01:00", "10.3.0.2"});
    }
    Connection(source).Run("ALTER TABLE parcels DROP COLUMN \"GONE\"");
    parcels->RemoveRecordsOfMissingColumns();
    const auto records = parcels->Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].column, "KEPT");
    EXPECT_EQ(records[0].a, -1e16);
    EXPECT_EQ(records[0].d, 10);
}

TEST_F(PostgisHostTest, oneWriterAtATimeAndOnlyTheOwnerWrites) {
    const std::string source = testing::MakePostgisTable("parcels", {"slope"}, kSlopes);
    auto& cluster = PostgresCluster::Instance();
    const std::string database = PostgresCluster::DatabaseOf(source);
    auto held = m_app.LockLayerForWriting(source, "parcels");
    // Another process's writer: another connection to the same table.
    const std::string elsewhere = cluster.Source(database) + " ";
    EXPECT_EQ(Thrown([&] {
                  PostgisWriteLock(elsewhere, "parcels", std::chrono::milliseconds(50));
              }).Number(),
              error_number::kHostLayerLocked);
    held.reset();
    cluster.Sql(database, "CREATE ROLE reader LOGIN; GRANT SELECT ON parcels TO reader");
    EXPECT_EQ(Thrown([&] {
                  PostgisWriteLock(cluster.Source(database, "reader"), "parcels",
                                   std::chrono::milliseconds(0));
              }).Number(),
              error_number::kHostLayerReadOnly);
}

TEST_F(PostgisHostTest, refusedConnectionsSayWhy) {
    auto& cluster = PostgresCluster::Instance();
    const auto noServer = Thrown([] { Connection("PG:dbname=x host=/nonexistent port=5432"); });
    EXPECT_NE(noServer.Description().find("Cannot connect to PG:dbname=x"), std::string::npos);
    const std::string database = cluster.NewDatabase();
    const auto refused = Thrown(
        [&] { Connection(cluster.Source(database, PostgresCluster::kPasswordUser, "wrong")); });
    EXPECT_NE(refused.Description().find("password authentication failed"), std::string::npos)
        << refused.Description();
    EXPECT_NO_THROW(Connection(cluster.Source(database, PostgresCluster::kPasswordUser, "right")));
    EXPECT_NE(Thrown([&] { m_app.AddLayer(cluster.Source(database), "missing"); })
                  .Description()
                  .find("No table 'missing'"),
              std::string::npos);
}

} // namespace
} // namespace quorel::host::postgis
