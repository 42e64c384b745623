#include "RunProgram.h"
#include "tests/fzy/FzyFiles.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/Unprivileged.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace quorel::cli {
namespace {

namespace fs = std::filesystem;
using fzy::test::Bytes;

class CliFzyTest : public testing::Test {
protected:
    // A scratch settings folder: the user's remembered language plays no part.
    test::ProgramResult Run(const std::vector<std::string>& arguments) {
        return test::RunProgram(
            QUOREL_CLI, arguments, {},
            {{"XDG_CONFIG_HOME", (m_folder / "config").string()}, {"LC_ALL", "C"}});
    }
    std::string Path(const std::string& name) const { return (m_folder / name).string(); }

    void WriteFzy(const std::string& name, const std::vector<Bytes>& entries,
                  std::int16_t numbers) {
        const Bytes file = fzy::test::MakeFile(0, numbers, 0, entries);
        std::ofstream out(m_folder / name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(file.data()),
                  static_cast<std::streamsize>(file.size()));
    }

    static Bytes Number(const std::string& field, double a) {
        return fzy::EncodeNumberEntry(
            {field, 3, field, a, 10, 1e14, 1e14, "C:\\SIG\\data", "PARC", 45356.25, 99});
    }

    test::ScratchFolder m_scratch;
    fs::path m_folder{m_scratch.Path()};
};

TEST_F(CliFzyTest, dumpShowsHeaderAndEveryEntry) {
    WriteFzy("PARC.fzy", {Number("FZY_A", 2.5), Number("FZY_B", 1)}, 2);
    const test::ProgramResult result = Run({"fzy", "dump", Path("PARC.fzy")});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("NumberCount: 2\n"), std::string::npos);
    EXPECT_NE(result.out.find("entry 1 at offset 23: length 81, kind 2 (number, live)\n"
                              "  FieldName: \"FZY_A\"\n  NumberKind: 3\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("entry 2 at offset 104: length 81, kind 2 (number, live)\n"),
              std::string::npos);
    EXPECT_NE(result.out.find("  Folder: \"C:\\SIG\\data\"\n"), std::string::npos);
}

TEST_F(CliFzyTest, dumpOfACorruptFileShowsWhatWasReadableAndFails) {
    WriteFzy("PARC.fzy", {Number("FZY_A", 2.5)}, 3);
    const test::ProgramResult result = Run({"fzy", "dump", Path("PARC.fzy")});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("  EndMark: 99\nentry 2 at offset 104: "), std::string::npos)
        << result.out;
    EXPECT_NE(result.err.find("Input past end of file"), std::string::npos) << result.err;
}

const char* const kLastEntryOfFzyA = "Résultats FZY_A(alias :FZY_A) forme 3 forme :\n"
                                     " Val_a = 7\n"
                                     " Val_b = 10\n"
                                     " Val_c = 100000000000000\n"
                                     " Val_d = 100000000000000\n"
                                     "Calculé sur C:\\SIG\\data\\PARC le 05/03/2024 06:00:00\n";

// Whatever the extension's letter case, the metadata is where "run" writes it, and only read.
TEST_F(CliFzyTest, metaShowsTheLastNumberEntryOfTheField) {
    WriteFzy("PARC.fzy", {Number("FZY_A", 2.5), Number("FZY_A", 7)}, 2);
    const test::ProgramResult result = Run({"meta", Path("PARC.Shp"), "FZY_A"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, kLastEntryOfFzyA);
    EXPECT_FALSE(fs::exists(m_folder / "PARC.Shp.fzy"));
}

TEST_F(CliFzyTest, metaWithoutEntriesShowsText153AndWritesNothing) {
    // No metadata file: none is made.
    test::ProgramResult result = Run({"meta", Path("NEW.shp"), "SLOPE"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Aucune métadonnée n'est enregistrée pour cet attribut.\n"); // text 153
    EXPECT_FALSE(fs::exists(m_folder / "NEW.fzy"));
    // A file too short to hold an entry stays as it is.
    {
        std::ofstream out(m_folder / "OLD.fzy", std::ios::binary);
        out << std::string(10, '\xAB');
    }
    result = Run({"meta", Path("OLD.shp"), "SLOPE"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Aucune métadonnée n'est enregistrée pour cet attribut.\n");
    EXPECT_EQ(test::ReadBytes(m_folder / "OLD.fzy"), std::string(10, '\xAB'));
}

TEST_F(CliFzyTest, metaReadsAFolderItCannotWrite) {
    const fs::path folder = m_folder / "readonly";
    fs::create_directories(folder);
    WriteFzy("readonly/PARC.fzy", {Number("FZY_A", 7)}, 1);
    fs::permissions(folder / "PARC.fzy",
                    fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                fs::perms::group_exec | fs::perms::others_read |
                                fs::perms::others_exec);
    test::ProgramResult result;
    const int child = test::RunUnprivileged([&] {
        result = Run({"meta", (folder / "PARC.shp").string(), "FZY_A"});
        return result.status == 0 && result.out == kLastEntryOfFzyA ? 0 : 1;
    });
    fs::permissions(folder, fs::perms::owner_all);
    EXPECT_EQ(child, 0);
    EXPECT_EQ(fs::directory_iterator(folder)->path().filename(), "PARC.fzy");
}

TEST_F(CliFzyTest, metaReportsAMissingFolderAsTheButtonDoes) {
    const test::ProgramResult result = Run({"meta", Path("gone/A.shp"), "SLOPE"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(" Sum_table Debug=1"), std::string::npos) << result.err;
}

} // namespace
} // namespace quorel::cli
