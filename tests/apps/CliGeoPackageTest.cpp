// "quorel run" and its companions on GeoPackages: bad input refused with a clear message and
// nothing written, and a run killed at any moment leaving the old layer or the new one. Real
// processes on files GDAL made.

#include "RunProgram.h"

#include "tests/host/gpkg/TestGeoPackages.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/Unprivileged.h"
#include "tools/sample/SampleData.h"

#include <sqlite3.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace quorel::cli {
namespace {

namespace fs = std::filesystem;
using test::ReadBytes;

struct Outcome {
    int status;
    std::string output;
};

class CliGeoPackageTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Reachable by the unprivileged runs.
        fs::permissions(m_scratch.Path(),
                        fs::perms::all & ~fs::perms::others_write & ~fs::perms::group_write);
        fs::create_directories(m_scratch.File("config"));
        std::ofstream(m_scratch.File("config/Ombrel_Brumalis.ini")) << "[params]\nlang=en\n";
    }

    // A GeoPackage of the sample's parcels, made by GDAL from the sample shapefile.
    std::string Sample(const std::string& name, std::size_t features) const {
        const std::string folder = m_scratch.File(name + "-shp");
        fs::create_directories(folder);
        tools::WriteSampleShapefile(folder + "/parcels.shp", features);
        const std::string path = m_scratch.File(name + ".gpkg");
        const test::ProgramResult made =
            test::RunProgram("/usr/bin/ogr2ogr", {"-f", "GPKG", path, folder + "/parcels.shp"});
        EXPECT_EQ(made.status, 0) << made.err;
        return path;
    }

    Outcome Quorel(const std::vector<std::string>& arguments, bool unprivileged = false) const {
        const std::string output = m_scratch.File("output");
        const pid_t pid = test::StartProgram(
            QUOREL_CLI, arguments, output,
            {{"XDG_CONFIG_HOME", m_scratch.File("config")}, {"LC_ALL", "C"}}, unprivileged);
        const int status = test::WaitProgram(pid);
        return {status, ReadBytes(output)};
    }

    test::ScratchFolder m_scratch;
};

const std::vector<std::string> kTrapezoidOnSlope = {"--field", "SLOPE", "-k", "5",  "-a", "2",
                                                    "-b",      "5",     "-c", "15", "-d", "25"};

std::vector<std::string> RunOn(const std::string& path, std::vector<std::string> options) {
    options.insert(options.begin(), {"run", path});
    return options;
}

// Bad input: each refused with its exit status and a message that says why, the file as it was.
enum class Setup { kNone, kMissingFile, kAnotherWriter, kReadOnly };

struct BadInputCase {
    const char* name;
    Setup setup;
    std::vector<std::string> options;
    int status;
    const char* message;
};

class CliGeoPackageBadInputTest : public CliGeoPackageTest,
                                  public ::testing::WithParamInterface<BadInputCase> {};

TEST_P(CliGeoPackageBadInputTest, isRefusedWithItsMessageAndNothingWritten) {
    const BadInputCase& c = GetParam();
    const std::string path = Sample("p", 50);
    // Read first: closing any descriptor of the file would drop the locks a case takes on it.
    const std::string before = ReadBytes(path);
    sqlite3* other = nullptr;
    if (c.setup == Setup::kAnotherWriter) {
        sqlite3_open(path.c_str(), &other);
        sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    } else if (c.setup == Setup::kReadOnly) {
        ::chmod(path.c_str(), 0444);
    }
    const Outcome outcome =
        Quorel(RunOn(c.setup == Setup::kMissingFile ? path + ".none.gpkg" : path, c.options),
               c.setup == Setup::kReadOnly);
    if (other != nullptr) {
        sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
        sqlite3_close(other);
    }
    ::chmod(path.c_str(), 0644);

    EXPECT_EQ(outcome.status, c.status) << outcome.output;
    EXPECT_NE(outcome.output.find(c.message), std::string::npos) << outcome.output;
    EXPECT_TRUE(ReadBytes(path) == before);
    EXPECT_FALSE(fs::exists(path + "-journal"));
}

std::vector<std::string> Slope(std::vector<std::string> more) {
    more.insert(more.begin(), kTrapezoidOnSlope.begin(), kTrapezoidOnSlope.end());
    return more;
}

std::vector<std::string> Increasing(const std::string& field) {
    return {"--field", field, "-k", "3", "-a", "0", "-b", "1"};
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CliGeoPackageBadInputTest,
    ::testing::Values(
        BadInputCase{"missingFile", Setup::kMissingFile, Slope({}), 1, "File not found"},
        BadInputCase{"noSuchLayer", Setup::kNone, Slope({"--layer", "roads"}), 64,
                     "no layer 'roads' in "},
        BadInputCase{"noSuchField", Setup::kNone, Increasing("NOPE"), 2,
                     "parcels has no numeric field NOPE"},
        BadInputCase{"textField", Setup::kNone, Increasing("LANDUSE"), 2,
                     "parcels has no numeric field LANDUSE"},
        BadInputCase{"nameTaken", Setup::kNone, Slope({"--out", "ALTITUDE"}), 1,
                     "already has a field ALTITUDE"},
        BadInputCase{"nameTakenInAnotherCase", Setup::kNone, Slope({"--out", "altitude"}), 1,
                     "duplicate column name: altitude"},
        BadInputCase{"anotherProgramWrites", Setup::kAnotherWriter, Slope({}), 1,
                     "Another run is writing to the layer "},
        BadInputCase{"readOnlyFile", Setup::kReadOnly, Slope({}), 1,
                     "cannot be written: it is read-only"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(CliGeoPackageTest, aSourceOfSeveralLayersNeedsOneNamed) {
    const std::string path = m_scratch.File("two.gpkg");
    testing::MakeGeoPackage(path, {{"roads", {"SLOPE"}, {{1.0}}}, {"parcels", {"SLOPE"}, {{2.0}}}});

    const Outcome unnamed = Quorel(RunOn(path, kTrapezoidOnSlope));
    EXPECT_EQ(unnamed.status, 64);
    EXPECT_NE(unnamed.output.find("(layers: parcels, roads)"), std::string::npos) << unnamed.output;

    auto named = RunOn(path, kTrapezoidOnSlope);
    named.insert(named.end(), {"--layer", "roads"});
    EXPECT_EQ(Quorel(named).status, 0);
    const Outcome meta = Quorel({"meta", path, "--layer", "roads", "FZY_SLOPE"});
    EXPECT_EQ(meta.status, 0) << meta.output;
    EXPECT_NE(meta.output.find(" Val_d = 25\n"), std::string::npos) << meta.output;
    EXPECT_NE(meta.output.find(path + "/roads"), std::string::npos) << meta.output;
    EXPECT_EQ(Quorel({"stats", path, "--layer", "parcels", "FZY_SLOPE"}).status, 1);
}

// The layer's state as a plain connection sees it, once it has rolled back what a killed run
// left: the columns, the new column's values, and our records.
std::vector<std::vector<std::string>> LayerState(const std::string& path) {
    auto state = testing::Query(path, "SELECT name FROM pragma_table_info('parcels')");
    bool computed = false;
    for (const auto& row : state) {
        computed = computed || row[0] == "FZY_K";
    }
    if (computed) {
        const auto values = testing::Query(path, "SELECT FZY_K FROM parcels ORDER BY fid");
        state.insert(state.end(), values.begin(), values.end());
    }
    const auto records = testing::Query(
        path, "SELECT r.column_name FROM gpkg_metadata_reference r JOIN gpkg_metadata m ON "
              "m.id = r.md_file_id WHERE m.mime_type = 'application/json'");
    state.insert(state.end(), records.begin(), records.end());
    return state;
}

TEST_F(CliGeoPackageTest, aRunKilledAtAnyMomentLeavesTheOldLayerOrTheNewOne) {
    const std::string original = Sample("original", 50000);
    const std::string killed = m_scratch.File("killed.gpkg");
    auto options = kTrapezoidOnSlope;
    options.insert(options.end(), {"--out", "FZY_K"});
    fs::copy_file(original, killed);
    const auto oldState = LayerState(killed);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Quorel(RunOn(killed, options)).status, 0);
    const auto duration = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    const auto newState = LayerState(killed);
    ASSERT_NE(newState, oldState);

    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    // Past the run's own length too: the commit's writes to disk take longer some times.
    std::uniform_int_distribution<std::int64_t> moment(0, duration.count() * 2);
    int olds = 0;
    for (int kill = 0; kill < 25; ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        fs::remove(killed);
        fs::copy_file(original, killed);
        const pid_t run =
            test::StartProgram(QUOREL_CLI, RunOn(killed, options), m_scratch.File("output"),
                               {{"XDG_CONFIG_HOME", m_scratch.File("config")}});
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
        ::kill(run, SIGKILL);
        test::WaitProgram(run);

        const auto state = LayerState(killed);
        olds += state == oldState ? 1 : 0;
        ASSERT_TRUE(state == oldState || state == newState);
        ASSERT_EQ(testing::Query(killed, "PRAGMA integrity_check")[0][0], "ok");
        // The next run goes through.
        ASSERT_EQ(Quorel(RunOn(killed, {"--field", "POPULATION", "-k", "3", "-a", "0", "-b", "400",
                                        "--out", "FZY_NEXT"}))
                      .status,
                  0);
    }
    std::cout << "[          ] " << olds << " old layers, " << 25 - olds << " new ones\n";
}

} // namespace
} // namespace quorel::cli
