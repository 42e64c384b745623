// "quorel run" among other writers: another run on the same table, a kill at any moment, files it
// may not write. Real processes on real files.

#include "RunProgram.h"

#include "fzy/FzyDump.h"
#include "fzy/FzyFormat.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "tests/support/Unprivileged.h"
#include "tools/sample/SampleData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quorel::cli {
namespace {

namespace fs = std::filesystem;
using quorel::testing::ReadBytes;
using quorel::testing::ReadWithGdal;

const std::vector<std::string> kExtensions = {".shp", ".shx", ".dbf", ".cpg", ".prj", ".fzy"};

class CliRunSafetyTest : public ::testing::Test {
protected:
    void SetUp() override {
        // Reachable by the unprivileged runs.
        fs::permissions(m_scratch.Path(),
                        fs::perms::all & ~fs::perms::others_write & ~fs::perms::group_write);
        std::ofstream(Folder("config") + "/Ombrel_Brumalis.ini") << "[params]\nlang=en\n";
    }

    // The folder of that name in the scratch folder, made if need be.
    std::string Folder(const std::string& name) const {
        fs::create_directories(m_scratch.File(name));
        return m_scratch.File(name);
    }

    // Copies the shapefile p of folder `from` into a fresh folder `to`.
    void Copy(const std::string& from, const std::string& to) const {
        fs::remove_all(Folder(to));
        for (const auto& extension : kExtensions) {
            const std::string source = Folder(from) + "/p" + extension;
            if (fs::exists(source)) {
                fs::copy_file(source, Folder(to) + "/p" + extension);
            }
        }
    }

    pid_t Start(const std::string& folder, const std::vector<std::string>& options,
                const std::string& output, bool unprivileged = false) const {
        std::vector<std::string> arguments = {"run", Folder(folder) + "/p.shp"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return test::StartProgram(QUOREL_CLI, arguments, output,
                                  {{"XDG_CONFIG_HOME", Folder("config")}, {"LC_ALL", "C"}},
                                  unprivileged);
    }

    // A run to its end: its output and its errors together in out.
    test::ProgramResult Run(const std::string& folder, const std::vector<std::string>& options,
                            bool unprivileged = false) const {
        const std::string output = m_scratch.File("output-" + folder);
        const int status = test::WaitProgram(Start(folder, options, output, unprivileged));
        return {status, ReadBytes(output), {}};
    }

    testing::ScratchFolder m_scratch;
};

const std::vector<std::string> kTrapezoidOnSlope = {"--field", "SLOPE", "-k", "5",  "-a", "2",
                                                    "-b",      "5",     "-c", "15", "-d", "25"};
const std::vector<std::string> kRampOnPopulation = {"--field", "POPULATION", "-k", "3",
                                                    "-a",      "0",          "-b", "400"};
const char* const kLockMessage = "is writing to the layer";

std::vector<std::string> With(std::vector<std::string> options, const std::string& out) {
    options.push_back("--out");
    options.push_back(out);
    return options;
}

// The live number entries of a metadata file, by output name, as the dump shows them; throws
// when it cannot be read.
std::vector<std::string> MetadataEntries(const std::string& path) {
    const std::string text = ReadBytes(path);
    std::ostringstream dump;
    fzy::DumpFzy(std::vector<std::uint8_t>(text.begin(), text.end()), dump);
    std::istringstream lines(dump.str());
    std::vector<std::string> names;
    bool live = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("entry ")) {
            live = line.ends_with("(number, live)");
        } else if (live && line.starts_with("  FieldName: \"")) {
            names.push_back(line.substr(14, line.size() - 15));
        }
    }
    return names;
}

std::vector<host::Value> Column(const testing::GdalTable& table, const std::string& name) {
    for (std::size_t f = 0; f < table.fields.size(); ++f) {
        if (table.fields[f].name == name) {
            std::vector<host::Value> values;
            for (const auto& row : table.rows) {
                values.push_back(row[f]);
            }
            return values;
        }
    }
    return {};
}

// Files the user may not write are refused before anything is written, even in a folder where
// the run could put new ones: the table, then the metadata file (the message names its path).
TEST_F(CliRunSafetyTest, aReadOnlyFileIsRefusedAndKeptAsItIs) {
    for (const auto& [file, message] : {std::pair{"p.dbf", "cannot be written: it is read-only"},
                                        std::pair{"p.fzy", "The metadata file "}}) {
        fs::remove_all(Folder("ro"));
        testing::MakeShapefile(Folder("ro"), "p", {{"SLOPE", 'N', 7, 2}}, {{1.0}, {7.5}});
        ASSERT_EQ(Run("ro", With(kTrapezoidOnSlope, "FZY_FIRST")).status, 0);
        ASSERT_EQ(::chmod(Folder("ro").c_str(), 0777), 0);
        for (const auto& entry : fs::directory_iterator(Folder("ro"))) {
            ASSERT_EQ(::chmod(entry.path().c_str(), 0666), 0);
        }
        const std::string readOnly = Folder("ro") + "/" + file;
        ASSERT_EQ(::chmod(readOnly.c_str(), 0444), 0);
        const std::string dbf = ReadBytes(Folder("ro") + "/p.dbf");
        const std::string fzy = ReadBytes(Folder("ro") + "/p.fzy");
        const test::ProgramResult outcome = Run("ro", With(kTrapezoidOnSlope, "FZY_SECOND"), true);
        EXPECT_EQ(outcome.status, 1) << outcome.out;
        EXPECT_NE(outcome.out.find(message), std::string::npos) << outcome.out;
        EXPECT_NE(outcome.out.find("Nothing was changed"), std::string::npos) << outcome.out;
        EXPECT_EQ(ReadBytes(Folder("ro") + "/p.dbf"), dbf);
        EXPECT_EQ(ReadBytes(Folder("ro") + "/p.fzy"), fzy);
        struct stat status {};
        ASSERT_EQ(::stat(readOnly.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, ::geteuid());
        EXPECT_EQ(status.st_mode & 07777, 0444u);
    }
}

TEST_F(CliRunSafetyTest, twoRunsAtOnceOnOneTableLoseNothing) {
    tools::WriteSampleShapefile(Folder("original") + "/p.shp", 2000);
    const testing::GdalTable original = ReadWithGdal(Folder("original") + "/p.shp");
    // Each run alone gives the degrees a run must write whatever runs beside it.
    Copy("original", "alone");
    ASSERT_EQ(Run("alone", With(kTrapezoidOnSlope, "FZY_A")).status, 0);
    ASSERT_EQ(Run("alone", With(kRampOnPopulation, "FZY_B")).status, 0);
    const testing::GdalTable alone = ReadWithGdal(Folder("alone") + "/p.shp");
    const std::map<std::string, std::vector<host::Value>> expected = {
        {"FZY_A", Column(alone, "FZY_A")}, {"FZY_B", Column(alone, "FZY_B")}};
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Copy("original", "both");
        const pid_t a = Start("both", With(kTrapezoidOnSlope, "FZY_A"), m_scratch.File("output-a"));
        const pid_t b = Start("both", With(kRampOnPopulation, "FZY_B"), m_scratch.File("output-b"));
        const std::map<std::string, test::ProgramResult> outcomes = {
            {"FZY_A", {test::WaitProgram(a), ReadBytes(m_scratch.File("output-a")), {}}},
            {"FZY_B", {test::WaitProgram(b), ReadBytes(m_scratch.File("output-b")), {}}}};
        const testing::GdalTable table = ReadWithGdal(Folder("both") + "/p.shp");
        std::vector<std::string> done;
        for (const auto& [field, outcome] : outcomes) {
            if (outcome.status == 0) {
                done.push_back(field);
                EXPECT_TRUE(Column(table, field) == expected.at(field)) << field;
            } else {
                EXPECT_EQ(outcome.status, 1) << outcome.out;
                EXPECT_NE(outcome.out.find(kLockMessage), std::string::npos) << outcome.out;
                EXPECT_TRUE(Column(table, field).empty()) << field;
            }
        }
        ASSERT_EQ(table.fields.size(), original.fields.size() + done.size());
        ASSERT_EQ(table.rows.size(), original.rows.size());
        for (std::size_t r = 0; r < original.rows.size(); ++r) {
            ASSERT_TRUE(
                std::equal(original.rows[r].begin(), original.rows[r].end(), table.rows[r].begin()))
                << "record " << r;
        }
        std::vector<std::string> recorded = MetadataEntries(Folder("both") + "/p.fzy");
        std::sort(recorded.begin(), recorded.end());
        EXPECT_EQ(recorded, done);
    }
}

// The table is the old one or the new one, byte for byte but for the new one's date of update.
bool SameTable(const std::string& table, const std::string& reference) {
    return table.size() == reference.size() && table.size() > 4 &&
           std::equal(table.begin() + 4, table.end(), reference.begin() + 4) &&
           table[0] == reference[0];
}

bool HoldsTemporaries(const std::string& folder) {
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().find(".quorel-") != std::string::npos) {
            return true;
        }
    }
    return false;
}

TEST_F(CliRunSafetyTest, aRunKilledAtAnyMomentLeavesTheOldTableOrTheNewOne) {
    tools::WriteSampleShapefile(Folder("original") + "/p.shp", 100000);
    // An entry of a field the table lacks: each run compacts the metadata file, so that the kills
    // find that replacement under way too.
    fzy::FzyHeader header;
    header.NumberCount = 1;
    std::vector<std::uint8_t> metadata = fzy::EncodeHeader(header);
    const auto gone = fzy::EncodeNumberEntry({"GONE", 3, "GONE", 0, 1, 0, 0, "/x", "p", 0, 99});
    metadata.insert(metadata.end(), gone.begin(), gone.end());
    std::ofstream(Folder("original") + "/p.fzy", std::ios::binary)
        .write(reinterpret_cast<const char*>(metadata.data()),
               static_cast<std::streamsize>(metadata.size()));
    const std::string oldTable = ReadBytes(Folder("original") + "/p.dbf");
    const std::string geometry =
        ReadBytes(Folder("original") + "/p.shp") + ReadBytes(Folder("original") + "/p.shx");
    Copy("original", "whole");
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Run("whole", With(kTrapezoidOnSlope, "FZY_K")).status, 0);
    const auto duration = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - start);
    const std::string newTable = ReadBytes(Folder("whole") + "/p.dbf");
    ASSERT_EQ(ReadWithGdal(Folder("whole") + "/p.shp").featureCount, 100000);
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::int64_t> moment(0, duration.count() * 5 / 4);
    int olds = 0;
    int leftBehind = 0;
    for (int kill = 0; kill < 50; ++kill) {
        SCOPED_TRACE("kill " + std::to_string(kill));
        Copy("original", "killed");
        const pid_t run =
            Start("killed", With(kTrapezoidOnSlope, "FZY_K"), m_scratch.File("output"));
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
        ::kill(run, SIGKILL);
        test::WaitProgram(run);
        const std::string table = ReadBytes(Folder("killed") + "/p.dbf");
        const bool old = table == oldTable;
        olds += old ? 1 : 0;
        ASSERT_TRUE(old || SameTable(table, newTable));
        ASSERT_EQ(ReadBytes(Folder("killed") + "/p.shp") + ReadBytes(Folder("killed") + "/p.shx"),
                  geometry);
        ASSERT_NO_THROW(MetadataEntries(Folder("killed") + "/p.fzy"));
        leftBehind += HoldsTemporaries(Folder("killed")) ? 1 : 0;
        // The next run goes through and clears what the killed one left.
        const test::ProgramResult next = Run("killed", With(kRampOnPopulation, "FZY_NEXT"));
        ASSERT_EQ(next.status, 0) << next.out;
        ASSERT_FALSE(HoldsTemporaries(Folder("killed")));
    }
    std::cout << "[          ] " << olds << " old tables, " << 50 - olds << " new ones, "
              << leftBehind << " with temporaries left behind\n";
}

} // namespace
} // namespace quorel::cli
