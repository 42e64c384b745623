// "quorel aggregate" and "quorel query" as a user runs them: the selection against the degrees
// read back with GDAL, the saved GeoPackage, the refusals and usage errors, the record that
// "quorel meta" shows, and an aggregation killed at any moment.

#include "RunProgram.h"

#include "fzy/AggregationRecords.h"
#include "tests/host/gpkg/TestGeoPackages.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "tools/sample/SampleData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <thread>

namespace quorel::cli {
namespace {

namespace fs = std::filesystem;
using quorel::testing::ReadBytes;
using quorel::testing::ReadWithGdal;

class CliAggregateTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(m_scratch.File("config"));
        std::ofstream(m_scratch.File("config") + "/Ombrel_Brumalis.ini") << "[params]\nlang=en\n";
    }

    test::ProgramResult Quorel(const std::vector<std::string>& arguments) const {
        return test::RunProgram(QUOREL_CLI, arguments, {},
                                {{"XDG_CONFIG_HOME", m_scratch.File("config")}, {"LC_ALL", "C"}});
    }

    // A sample of `count` parcels with two criteria computed on it: FZY_SLOPE and FZY_POPULA.
    std::string MakeCriteria(const std::string& name, std::size_t count) const {
        fs::create_directories(m_scratch.File(name));
        const std::string shp = m_scratch.File(name) + "/p.shp";
        tools::WriteSampleShapefile(shp, count);
        EXPECT_EQ(Quorel({"run", shp, "--field", "SLOPE", "-k", "5", "-a", "2", "-b", "5", "-c",
                          "15", "-d", "25"})
                      .status,
                  0);
        EXPECT_EQ(
            Quorel({"run", shp, "--field", "POPULATION", "-k", "3", "-a", "0", "-b", "400"}).status,
            0);
        return shp;
    }

    testing::ScratchFolder m_scratch;
};

std::size_t FieldIndex(const testing::GdalTable& table, const std::string& name) {
    for (std::size_t f = 0; f < table.fields.size(); ++f) {
        if (table.fields[f].name == name) {
            return f;
        }
    }
    ADD_FAILURE() << "no field " << name;
    return 0;
}

TEST_F(CliAggregateTest, querySelectsWhatTheStoredAggregationHoldsAndSavesThoseFeatures) {
    const std::string shp = MakeCriteria("query", 400);
    const std::vector<std::string> combine = {
        "--fields", "FZY_SLOPE,FZY_POPULA", "--op", "mean", "--weights", "3,1"};
    std::vector<std::string> aggregate = {"aggregate", shp};
    aggregate.insert(aggregate.end(), combine.begin(), combine.end());
    const auto stored = Quorel(aggregate);
    ASSERT_EQ(stored.status, 0) << stored.err;
    EXPECT_EQ(stored.out, "added field FZY_AGG to " + shp + "\n");

    // The selection, computed here from what GDAL reads of the two inputs.
    const testing::GdalTable table = ReadWithGdal(shp);
    const std::size_t slope = FieldIndex(table, "FZY_SLOPE");
    const std::size_t population = FieldIndex(table, "FZY_POPULA");
    const std::size_t combined = FieldIndex(table, "FZY_AGG");
    const double alpha = 0.9;
    std::string expected;
    std::vector<std::size_t> selected;
    for (std::size_t r = 0; r < table.rows.size(); ++r) {
        const auto* s = std::get_if<double>(&table.rows[r][slope]);
        const auto* p = std::get_if<double>(&table.rows[r][population]);
        ASSERT_EQ(s && p, std::holds_alternative<double>(table.rows[r][combined])) << r;
        if (s && p) {
            EXPECT_NEAR(std::get<double>(table.rows[r][combined]), (3 * *s + *p) / 4, 1e-11);
            if ((3 * *s + *p) / 4 >= alpha) {
                expected += std::to_string(r) + "\n";
                selected.push_back(r);
            }
        }
    }
    ASSERT_GT(selected.size(), 10u);
    ASSERT_LT(selected.size(), table.rows.size() - 10);

    const std::string gpkg = m_scratch.File("query") + "/selected.gpkg";
    std::vector<std::string> query = {"query", shp, "--alpha", "0.9", "--save", gpkg};
    query.insert(query.end(), combine.begin(), combine.end());
    const auto r = Quorel(query);
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(r.err, std::to_string(selected.size()) + " features selected\n");

    // The saved features, each with its geometry.
    const auto saved =
        testing::Query(gpkg, "SELECT FZY_SLOPE FROM p WHERE geom IS NOT NULL ORDER BY fid");
    ASSERT_EQ(saved.size(), selected.size());
    for (std::size_t i = 0; i < selected.size(); ++i) {
        EXPECT_EQ(std::stod(saved[i][0]), std::get<double>(table.rows[selected[i]][slope]));
    }

    // The record of the stored aggregation, as meta shows it.
    const auto meta = Quorel({"meta", shp, "FZY_AGG"});
    EXPECT_EQ(meta.status, 0);
    EXPECT_EQ(meta.out.rfind("Results FZY_AGG: aggregation mean (weights 3, 1) of FZY_SLOPE, "
                             "FZY_POPULA, on ",
                             0),
              0u)
        << meta.out;
}

// A program copied without its export module (nor an installed tree beside it) still selects,
// then says it cannot save and fails, writing nothing.
TEST_F(CliAggregateTest, querySaveWithoutTheExportModuleFailsClearly) {
    const std::string shp = MakeCriteria("alone", 50);
    const fs::path bin = m_scratch.File("alone") + "/bin";
    fs::create_directories(bin);
    fs::copy_file(QUOREL_CLI, bin / "quorel");
    fs::copy_file(fs::path(QUOREL_CLI).parent_path() / "text.mdb", bin / "text.mdb");
    const std::string gpkg = m_scratch.File("alone") + "/selected.gpkg";
    const auto r =
        test::RunProgram((bin / "quorel").string(),
                         {"query", shp, "--fields", "FZY_SLOPE,FZY_POPULA", "--op", "or", "--alpha",
                          "0", "--save", gpkg},
                         {}, {{"XDG_CONFIG_HOME", m_scratch.File("config")}, {"LC_ALL", "C"}});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cannot load the export module: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find((bin / "quorel-export.so").string()), std::string::npos) << r.err;
    EXPECT_NE(r.out, ""); // the selection, printed before the save
    EXPECT_FALSE(fs::exists(gpkg));
}

TEST_F(CliAggregateTest, aGeoPackageIsQueriedAsItsShapefileAndItsAggregationRecordedInIt) {
    const std::string shp = MakeCriteria("gpkg", 200);
    const std::string gpkg = m_scratch.File("gpkg") + "/p.gpkg";
    const auto made = test::RunProgram("/usr/bin/ogr2ogr", {"-f", "GPKG", gpkg, shp});
    ASSERT_EQ(made.status, 0) << made.err;
    const std::vector<std::string> combine = {
        "--fields", "FZY_SLOPE,FZY_POPULA", "--op", "gamma", "--gamma", "0.3", "--alpha", "0.2"};
    std::vector<std::string> onShapefile = {"query", shp};
    onShapefile.insert(onShapefile.end(), combine.begin(), combine.end());
    std::vector<std::string> onGeoPackage = {"query", gpkg, "--layer", "p"};
    onGeoPackage.insert(onGeoPackage.end(), combine.begin(), combine.end());
    const auto fromShapefile = Quorel(onShapefile);
    const auto fromGeoPackage = Quorel(onGeoPackage);
    ASSERT_EQ(fromShapefile.status, 0) << fromShapefile.err;
    ASSERT_EQ(fromGeoPackage.status, 0) << fromGeoPackage.err;
    EXPECT_EQ(fromGeoPackage.err, fromShapefile.err);
    // The same features: a GeoPackage numbers them from 1, a shapefile from 0.
    std::istringstream shapefileIds(fromShapefile.out);
    std::istringstream geoPackageIds(fromGeoPackage.out);
    long a = 0;
    long b = 0;
    int count = 0;
    while (shapefileIds >> a) {
        ASSERT_TRUE(geoPackageIds >> b);
        EXPECT_EQ(b, a + 1);
        ++count;
    }
    EXPECT_GT(count, 0);
    EXPECT_FALSE(geoPackageIds >> b);

    const auto aggregated =
        Quorel({"aggregate", gpkg, "--fields", "FZY_SLOPE,FZY_POPULA", "--op", "and"});
    ASSERT_EQ(aggregated.status, 0) << aggregated.err;
    EXPECT_EQ(testing::Query(gpkg, "SELECT m.md_scope, r.column_name FROM gpkg_metadata m JOIN "
                                   "gpkg_metadata_reference r ON r.md_file_id = m.id WHERE "
                                   "m.metadata LIKE '{\"inputs\":[\"FZY_SLOPE\",\"FZY_POPULA\"],"
                                   "\"operator\":\"and\",%'"),
              (std::vector<std::vector<std::string>>{{"attributeType", "FZY_AGG"}}));
    const auto meta = Quorel({"meta", gpkg, "FZY_AGG"});
    EXPECT_EQ(meta.status, 0) << meta.err;
    EXPECT_EQ(meta.out.rfind("Results FZY_AGG: aggregation and of FZY_SLOPE, FZY_POPULA, on ", 0),
              0u)
        << meta.out;
}

struct RefusalCase {
    const char* name;
    std::vector<std::string> options;
    int status;
    const char* message; // part of standard error
};

class CliAggregateRefusalTest : public CliAggregateTest,
                                public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(CliAggregateRefusalTest, changesNothing) {
    const std::string shp = MakeCriteria("refusals", 50);
    const std::string dbf = ReadBytes(m_scratch.File("refusals") + "/p.dbf");
    for (const char* command : {"aggregate", "query"}) {
        SCOPED_TRACE(command);
        std::vector<std::string> arguments = {command, shp};
        arguments.insert(arguments.end(), GetParam().options.begin(), GetParam().options.end());
        if (std::string(command) == "query") {
            arguments.insert(arguments.end(), {"--alpha", "0.5"});
        }
        const auto r = Quorel(arguments);
        EXPECT_EQ(r.status, GetParam().status) << r.err;
        EXPECT_NE(r.err.find(GetParam().message), std::string::npos) << r.err;
        EXPECT_EQ(r.out, "");
    }
    EXPECT_EQ(ReadBytes(m_scratch.File("refusals") + "/p.dbf"), dbf);
    EXPECT_FALSE(fs::exists(m_scratch.File("refusals") + "/p.fzy.json"));
}

// The two criteria combined by the operator and the options that follow it.
std::vector<std::string> Op(std::vector<std::string> operatorAndOptions) {
    operatorAndOptions.insert(operatorAndOptions.begin(),
                              {"--fields", "FZY_SLOPE,FZY_POPULA", "--op"});
    return operatorAndOptions;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CliAggregateRefusalTest,
    ::testing::Values(
        // SLOPE is no degree: 0 to 45 degrees.
        RefusalCase{
            "outOfRange", {"--fields", "FZY_SLOPE,SLOPE", "--op", "or"}, 2, "The field SLOPE has "},
        RefusalCase{"weightsNotFitting", Op({"owa", "--weights", "1,2,3"}), 2,
                    "3 weights for 2 fields"},
        RefusalCase{"weightsForAnd", Op({"and", "--weights", "1,2"}), 2,
                    "The operator and takes no weights."},
        RefusalCase{"gammaAboveOne", Op({"gamma", "--gamma", "2"}), 2, "between 0 and 1: 2"},
        RefusalCase{"missingField",
                    {"--fields", "FZY_SLOPE,NOPE", "--op", "sum"},
                    2,
                    "no numeric field NOPE"},
        RefusalCase{"unknownOperator", Op({"min"}), 64, "unknown operator 'min'"},
        RefusalCase{"gammaWithoutGamma", Op({"sum", "--gamma", "0.5"}), 64, "--gamma"},
        RefusalCase{"weightNotANumber", Op({"mean", "--weights", "1,x"}), 64, "not a number: 'x'"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(CliAggregateTest, queryRefusesAnAlphaOutOfRange) {
    const std::string shp = MakeCriteria("alpha", 20);
    const auto r =
        Quorel({"query", shp, "--fields", "FZY_SLOPE,FZY_POPULA", "--op", "and", "--alpha", "1.5"});
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("alpha"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
}

bool HoldsTemporaries(const std::string& folder) {
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().find(".quorel-") != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_F(CliAggregateTest, anAggregationKilledAtAnyMomentLeavesTheOldTableOrTheNewOne) {
    const std::string original = MakeCriteria("original", 100000);
    // A record of a field the table lacks: each run replaces the records' file to drop it, so
    // that the kills find that replacement under way too.
    fzy::AggregationRecord gone{
        "GONE", {"A", "B"}, "and", std::nullopt, {}, "2026-01-01T00:00:00+00:00", ""};
    std::ofstream(m_scratch.File("original") + "/p.fzy.json")
        << fzy::AggregationRecordsToJson({gone});
    const std::vector<std::string> kExtensions = {".shp", ".shx", ".dbf",     ".cpg",
                                                  ".prj", ".fzy", ".fzy.json"};
    const auto copy = [&](const std::string& to) {
        fs::remove_all(m_scratch.File(to));
        fs::create_directories(m_scratch.File(to));
        for (const auto& extension : kExtensions) {
            fs::copy_file(m_scratch.File("original") + "/p" + extension,
                          m_scratch.File(to) + "/p" + extension);
        }
        return m_scratch.File(to) + "/p.shp";
    };
    const auto aggregate = [](const std::string& shp) {
        return std::vector<std::string>{"aggregate", shp,   "--fields",  "FZY_SLOPE,FZY_POPULA",
                                        "--op",      "owa", "--weights", "2,1"};
    };
    const std::string oldTable = ReadBytes(m_scratch.File("original") + "/p.dbf");
    const std::string oldRecords = ReadBytes(m_scratch.File("original") + "/p.fzy.json");

    const std::string whole = copy("whole");
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Quorel(aggregate(whole)).status, 0);
    const auto duration = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    const std::string newTable = ReadBytes(m_scratch.File("whole") + "/p.dbf");

    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::int64_t> moment(0, duration.count() * 5 / 4);
    int olds = 0;
    for (int kill = 0; kill < 30; ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        const std::string shp = copy("killed");
        const pid_t run =
            test::StartProgram(QUOREL_CLI, aggregate(shp), m_scratch.File("output"),
                               {{"XDG_CONFIG_HOME", m_scratch.File("config")}, {"LC_ALL", "C"}});
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
        ::kill(run, SIGKILL);
        test::WaitProgram(run);

        const std::string table = ReadBytes(m_scratch.File("killed") + "/p.dbf");
        const bool old = table == oldTable;
        olds += old ? 1 : 0;
        // The new table, but for its date of update.
        ASSERT_TRUE(old || (table.size() == newTable.size() &&
                            std::equal(table.begin() + 4, table.end(), newTable.begin() + 4)));
        // The records whole: the old file, or one that parses.
        const std::string records = ReadBytes(m_scratch.File("killed") + "/p.fzy.json");
        ASSERT_TRUE(records == oldRecords ||
                    !fzy::AggregationRecordsFromJson(records, "p.fzy.json").empty() ||
                    records.find("\"aggregations\": []") != std::string::npos)
            << records;

        // The next run goes through and clears what the killed one left.
        const auto next = Quorel(aggregate(shp));
        ASSERT_EQ(next.status, 0) << next.err;
        ASSERT_FALSE(HoldsTemporaries(m_scratch.File("killed")));
    }
    std::cout << "[          ] " << olds << " old tables, " << 30 - olds << " new ones\n";
}

} // namespace
} // namespace quorel::cli
