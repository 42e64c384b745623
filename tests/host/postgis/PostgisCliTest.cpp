// quorel run, aggregate, stats and meta on PostGIS tables, as a user types them.

#include "host/postgis/Connection.h"
#include "tests/apps/RunProgram.h"
#include "tests/host/postgis/TestPostgis.h"
#include "tests/support/DegreeCases.h"
#include "tests/support/PostgresCluster.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

namespace quorel::host::postgis {
namespace {

using test::PostgresCluster;

test::ProgramResult Quorel(const std::vector<std::string>& arguments) {
    return test::RunProgram(
        QUOREL_CLI, arguments, {},
        {{"XDG_CONFIG_HOME", ::testing::TempDir() + "quorel-pg-cli-" + std::to_string(getpid())},
         {"LC_ALL", "C"}});
}

const std::vector<std::vector<std::optional<double>>> kSlopes{
    {-1.0}, {2.5}, {std::nullopt}, {7.25}, {15.0}, {22.5}, {40.0}};

std::string Count(const std::string& source, const std::string& sql) {
    Connection connection(source);
    return connection.Exec(sql).Text(0, 0);
}

TEST(PostgisCliTest, runFillsTheFieldOnTheServerAndRecordsTheCriterion) {
    const std::string table = "par\"cels; --";
    const std::string source = testing::MakePostgisTable(table, {"SLOPE"}, kSlopes);
    testing::MakePostgisTable("roads", {"WIDTH"}, {{1.0}}, source);

    // Two layers: the run needs --layer, and lists them.
    const auto unnamed =
        Quorel({"run", source, "--field", "SLOPE", "--kind", "5", "-a", "2", "-b", "5"});
    EXPECT_EQ(unnamed.status, 64);
    EXPECT_NE(unnamed.err.find(table), std::string::npos) << unnamed.err;
    EXPECT_NE(unnamed.err.find("roads"), std::string::npos) << unnamed.err;

    const auto run = Quorel({"--lang", "fr", "run", source, "--layer", table, "--field", "SLOPE",
                             "--kind", "5", "-a", "2", "-b", "5,5", "-c", "15", "-d", "25"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("FZY_SLOPE"), std::string::npos) << run.out;
    const auto degrees = testing::PostgisColumn(source, table, "FZY_SLOPE");
    ASSERT_EQ(degrees.size(), kSlopes.size());
    for (std::size_t i = 0; i < kSlopes.size(); ++i) {
        const auto expected = test::ScriptDegree({5, 2, 5.5, 15, 25}, kSlopes[i][0]);
        ASSERT_EQ(degrees[i].has_value(), expected.has_value()) << i;
        if (expected) {
            EXPECT_TRUE(test::SameBits(*degrees[i], *expected)) << i;
        }
    }
    EXPECT_EQ(Count(source, "SELECT count(*) FROM quorel_criteria WHERE \"column\" = "
                            "'FZY_SLOPE' AND kind = 5 AND b = 5.5"),
              "1");
    const auto meta = Quorel({"--lang", "fr", "meta", source, "--layer", table, "FZY_SLOPE"});
    EXPECT_EQ(meta.status, 0) << meta.err;
    EXPECT_NE(meta.out.find("5.5"), std::string::npos) << meta.out;
    // The column's comment is the record as meta shows it, in the run's language (up to its
    // time, which the record keeps in UTC).
    const std::string comments = "SELECT string_agg(col_description(attrelid, attnum), ' | ') "
                                 "FROM pg_attribute WHERE attname LIKE 'FZY%'";
    const std::string comment = Count(source, comments);
    const auto untimed = [](const std::string& text) { return text.substr(0, text.rfind(' ')); };
    EXPECT_EQ(untimed(comment), untimed(meta.out)) << comment;

    // Run by a user who gives a password, the comment names the source without it.
    const std::string database = PostgresCluster::DatabaseOf(source);
    const std::string user = PostgresCluster::kPasswordUser;
    Connection(source).Run("ALTER TABLE " + Connection(source).QuoteIdentifier(table) +
                           " OWNER TO " + user + "; GRANT ALL ON quorel_criteria TO " + user +
                           "; GRANT CREATE ON SCHEMA public TO " + user);
    const auto byPassword =
        Quorel({"--lang", "en", "run", PostgresCluster::Instance().Source(database, user, "right"),
                "--layer", table, "--field", "SLOPE", "--kind", "3", "-a", "2", "-b", "5", "--out",
                "FZY_2"});
    ASSERT_EQ(byPassword.status, 0) << byPassword.err;
    EXPECT_EQ(Count(source, comments).find("right"), std::string::npos) << Count(source, comments);
    EXPECT_NE(Count(source, comments).find("Results FZY_2"), std::string::npos)
        << Count(source, comments);

    const auto stats = Quorel({"stats", source, "--layer", table, "SLOPE"});
    EXPECT_EQ(stats.status, 0) << stats.err;
    EXPECT_NE(stats.out.find("22.5"), std::string::npos) << stats.out;
}

TEST(PostgisCliTest, aggregateFillsTheFieldAndRecordsItUntilTheColumnIsDropped) {
    const std::string table = "agg\"regated; --";
    const std::string quoted = "B \"q\" \\";
    const std::vector<std::vector<std::optional<double>>> degrees{
        {0.25, 1.0}, {std::nullopt, 0.5}, {0.0, 0.125}, {1.0, 0.75}};
    const std::string source = testing::MakePostgisTable(table, {"A", quoted}, degrees);
    const auto run = Quorel({"--lang", "fr", "aggregate", source, "--fields", "A," + quoted, "--op",
                             "mean", "--weights", "3,1", "--out", "MIX"});
    ASSERT_EQ(run.status, 0) << run.err;
    const auto mixed = testing::PostgisColumn(source, table, "MIX");
    ASSERT_EQ(mixed.size(), degrees.size());
    for (std::size_t i = 0; i < degrees.size(); ++i) {
        ASSERT_EQ(mixed[i].has_value(), degrees[i][0].has_value()) << i;
        if (mixed[i]) {
            EXPECT_EQ(*mixed[i], (3 * *degrees[i][0] + *degrees[i][1]) / 4) << i;
        }
    }
    Connection connection(source);
    const Result record =
        connection.Exec("SELECT inputs[2], operator, gamma IS NULL, weights::text, version, "
                        "col_description($1::regclass, 5) FROM quorel_aggregations WHERE "
                        "\"table\" = $2 AND \"column\" = 'MIX'",
                        {connection.QuoteIdentifier(table), table});
    ASSERT_EQ(record.Rows(), 1);
    EXPECT_EQ(record.Text(0, 0), quoted);
    EXPECT_EQ(record.Text(0, 1), "mean");
    EXPECT_EQ(record.Text(0, 2), "t");
    EXPECT_EQ(record.Text(0, 3), "{3,1}");
    EXPECT_FALSE(record.Text(0, 4).empty());
    const auto meta = Quorel({"--lang", "fr", "meta", source, "MIX"});
    EXPECT_EQ(meta.status, 0) << meta.err;
    EXPECT_EQ(meta.out.rfind("Résultats MIX : agrégation mean (poids 3, 1) de A, " + quoted, 0), 0u)
        << meta.out;
    // The column's comment is the record as meta shows it, in the run's language (up to its
    // time, which the record keeps in UTC).
    const auto untimed = [](const std::string& text) { return text.substr(0, text.rfind(' ')); };
    EXPECT_EQ(untimed(record.Text(0, 5)), untimed(meta.out)) << record.Text(0, 5);

    // The next run's validation drops the record of a column another program dropped.
    connection.Run("ALTER TABLE " + connection.QuoteIdentifier(table) + " DROP COLUMN \"MIX\"");
    ASSERT_EQ(Quorel({"aggregate", source, "--fields", "A," + quoted, "--op", "or"}).status, 0);
    EXPECT_EQ(Count(source, "SELECT string_agg(\"column\" || ' ' || operator, ',') FROM "
                            "quorel_aggregations"),
              "FZY_AGG or");
}

TEST(PostgisCliTest, badInputIsRefusedWithItsMessageAndNothingWritten) {
    auto& cluster = PostgresCluster::Instance();
    const std::string source = testing::MakePostgisTable("parcels", {"SLOPE"}, kSlopes);
    Connection(source).Run("ALTER TABLE parcels ADD COLUMN name text, ADD COLUMN \"FZY\" "
                           "double precision");
    const std::string columns = "SELECT count(*) FROM information_schema.columns WHERE "
                                "table_name = 'parcels'";
    const std::string before = Count(source, columns);
    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    };
    const std::vector<Case> cases{
        {{"--field", "MISSING"}, 2, "MISSING"},
        {{"--field", "name"}, 2, "name"},
        {{"--field", "SLOPE", "--out", "FZY"}, 1, "FZY"},
        {{"--field", "SLOPE", "-a", "3", "-b", "3"}, 1, "Division by zero"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments{"run", source, "--kind", "3"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        if (c.arguments.size() == 2 || c.arguments[2] == "--out") {
            arguments.insert(arguments.end(), {"-a", "0", "-b", "10"});
        }
        const auto r = Quorel(arguments);
        EXPECT_EQ(r.status, c.status) << c.message << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(Count(source, columns), before) << c.message;
    }
    const std::string database = PostgresCluster::DatabaseOf(source);
    for (const auto& refused : {cluster.Source(database, PostgresCluster::kPasswordUser, "wrong"),
                                std::string("PG:\"dbname=") + database + " host=/nonexistent\""}) {
        const auto r = Quorel({"run", refused, "--layer", "parcels", "--field", "SLOPE", "--kind",
                               "3", "-a", "0", "-b", "10"});
        EXPECT_EQ(r.status, 1) << r.err;
        EXPECT_NE(r.err.find("Cannot connect"), std::string::npos) << r.err;
    }
}

} // namespace
} // namespace quorel::host::postgis
