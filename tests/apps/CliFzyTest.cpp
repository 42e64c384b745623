#include "fzy/FzyFormat.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace quorel::cli {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

struct RunResult {
    int status;
    std::string out;
    std::string err;
};

std::string ReadText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

class CliFzyTest : public testing::Test {
protected:
    void SetUp() override {
        m_folder = fs::temp_directory_path() /
                   ("quorel_cli_" + std::to_string(getpid()) + "_" +
                    testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(m_folder);
        fs::create_directories(m_folder);
    }
    void TearDown() override { fs::remove_all(m_folder); }

    RunResult Run(const std::string& arguments) {
        const fs::path out = m_folder / "stdout";
        const fs::path err = m_folder / "stderr";
        // A scratch settings folder: the user's remembered language plays no part.
        const std::string command = "env XDG_CONFIG_HOME=" + (m_folder / "config").string() +
                                    " LC_ALL=C " + std::string(QUOREL_PROGRAM) + " " + arguments +
                                    " >" + out.string() + " 2>" + err.string();
        const int raw = std::system(command.c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadText(out), ReadText(err)};
    }

    void WriteFzy(const std::string& name, const std::vector<Bytes>& entries, std::int16_t numbers,
                  std::int16_t records = 0) {
        fzy::FzyHeader header;
        header.NumberCount = numbers;
        header.RecordCount = records;
        Bytes file = fzy::EncodeHeader(header);
        for (const auto& entry : entries) {
            file.insert(file.end(), entry.begin(), entry.end());
        }
        std::ofstream out(m_folder / name, std::ios::binary);
        out.write(reinterpret_cast<const char*>(file.data()),
                  static_cast<std::streamsize>(file.size()));
    }

    static Bytes Number(const std::string& field, double a) {
        return fzy::EncodeNumberEntry(
            {field, 3, field, a, 10, 1e14, 1e14, "C:\\SIG\\data", "PARC", 45356.25, 99});
    }

    fs::path m_folder;
};

TEST_F(CliFzyTest, dumpShowsHeaderAndEveryEntry) {
    WriteFzy("PARC.fzy", {Number("FZY_A", 2.5), Number("FZY_B", 1)}, 2);
    const RunResult result = Run("fzy dump " + (m_folder / "PARC.fzy").string());
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
    const RunResult result = Run("fzy dump " + (m_folder / "PARC.fzy").string());
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.out.find("  EndMark: 99\nentry 2 at offset 104: "), std::string::npos)
        << result.out;
    EXPECT_NE(result.err.find("Input past end of file"), std::string::npos) << result.err;
}

TEST_F(CliFzyTest, dumpNeedsItsWordAndOneFile) {
    EXPECT_EQ(Run("fzy show x.fzy").status, 64);
    EXPECT_EQ(Run("fzy dump").status, 64);
    EXPECT_EQ(Run("fzy dump " + (m_folder / "missing.fzy").string()).status, 1);
}

TEST_F(CliFzyTest, metaShowsTheLastNumberEntryOfTheField) {
    WriteFzy("PARC.fzy", {Number("FZY_A", 2.5), Number("FZY_A", 7)}, 2);
    const RunResult result = Run("meta " + (m_folder / "PARC.shp").string() + " FZY_A");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Résultats FZY_A(alias :FZY_A) forme 3 forme :\n"
                          " Val_a = 7\n"
                          " Val_b = 10\n"
                          " Val_c = 100000000000000\n"
                          " Val_d = 100000000000000\n"
                          "Calculé sur C:\\SIG\\data\\PARC le 05/03/2024 06:00:00\n");
}

TEST_F(CliFzyTest, metaWithoutMetadataCreatesTheFileAndShowsText153) {
    const RunResult result = Run("meta " + (m_folder / "NEW.shp").string() + " SLOPE");
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Aucune métadonnée n'est enregistrée pour cet attribut.\n"); // text 153
    EXPECT_EQ(fs::file_size(m_folder / "NEW.fzy"), 8u);
}

TEST_F(CliFzyTest, metaReportsAMissingFolderAsTheButtonDoes) {
    const RunResult result = Run("meta " + (m_folder / "gone" / "A.shp").string() + " SLOPE");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(" Sum_table Debug=1"), std::string::npos) << result.err;
}

} // namespace
} // namespace quorel::cli
