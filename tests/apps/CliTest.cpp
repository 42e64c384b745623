#include "RunProgram.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <unistd.h>

namespace {

using quorel::test::RunProgram;

quorel::test::ProgramResult Quorel(const std::vector<std::string>& arguments,
                                   const std::string& input = {}) {
    // A scratch settings folder and a period locale, so the user's own set-up plays no part.
    return RunProgram(
        QUOREL_CLI, arguments, input,
        {{"XDG_CONFIG_HOME", ::testing::TempDir() + "quorel-cli-" + std::to_string(getpid())},
         {"LC_ALL", "C"}});
}

TEST(CliScriptTest, printsTheScriptWithCrLfAndNothingAfterTheLastLine) {
    const auto r = Quorel({"script", "--kind", "1", "-a", "3", "--field", "POP"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "dim Val \r\nif [POP]<>3 then\r\nVal=0\r\nelse\r\n Val=1 \r\nend if");
    EXPECT_EQ(r.err, "");
}

TEST(CliSqlTest, printsOneExpressionAndRefusesAsTheScriptDoes) {
    const auto r =
        Quorel({"sql", "--dialect", "postgresql", "--kind", "1", "-a", "2,5", "--field", "P\"OP"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "CASE WHEN NULLIF(CAST(\"P\"\"OP\" AS double precision), CAST('NaN' AS double "
              "precision)) <> CAST(2.5 AS double precision) THEN CAST(0 AS double precision) "
              "ELSE CAST(1 AS double precision) END\n");
    const auto refused =
        Quorel({"sql", "--dialect", "sqlite", "--kind", "3", "-a", "5", "-b", "2", "--field", "X"});
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err,
              Quorel({"script", "--kind", "3", "-a", "5", "-b", "2", "--field", "X"}).err);
}

// Values after dashes (negative ones among them) or on standard input; a division by zero is
// reported and fails the run at its end.
TEST(CliMembershipTest, printsOneDegreePerValue) {
    auto r =
        Quorel({"membership", "--kind", "2", "-a", "-5", "-b", "0", "-c", "5", "--", "-2.5", "1"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "0.5\n0.80000000000000004\n");
    r = Quorel({"membership", "--kind", "5", "-a", "0", "-b", "10", "-c", "20", "-d", "30"},
               "15\n25\r\n30\n31\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "1\n0.5\n0\n0\n");
    r = Quorel({"membership", "--kind", "3", "-a", "4", "-b", "4", "1", "2"});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("Division by zero"), std::string::npos);
}

TEST(CliTest, usageErrorsExitWithUsageStatusAndOneLine) {
    using Arguments = std::vector<std::string>;
    for (const Arguments& arguments :
         {Arguments{"script", "--kind", "2", "-a", "0", "-b", "1", "-c", "2"},
          Arguments{"script", "--kind", "x", "--field", "F"},
          Arguments{"script", "--kind", "9", "--field", "F"},
          Arguments{"sql", "--dialect", "mysql", "--kind", "1", "--field", "F"},
          Arguments{"sql", "--kind", "1", "--field", "F"},
          Arguments{"membership", "--kind", "1", "-a"},
          Arguments{"membership", "--kind", "1", "abc"}}) {
        const auto r = Quorel(arguments);
        EXPECT_EQ(r.status, 64) << arguments.back();
        ASSERT_FALSE(r.err.empty());
        EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    }
}

TEST(CliTest, subcommandsPrintTheirHelp) {
    for (const char* command : {"sql", "membership"}) {
        const auto r = Quorel({command, "--help"});
        EXPECT_EQ(r.status, 0);
        EXPECT_NE(r.out.find("Usage: quorel "), std::string::npos) << command;
    }
}

// Run in a scratch folder: a dataset made by mistake would land there.
TEST(MakeSampleTest, helpPrintsHelpAndMakesNoDataset) {
    const std::filesystem::path scratch =
        std::filesystem::path(::testing::TempDir()) / ("make-sample-" + std::to_string(getpid()));
    std::filesystem::create_directories(scratch);
    for (const char* option : {"--help", "-h"}) {
        const auto r = RunProgram("/bin/sh", {"-c", "cd \"$0\" && exec \"$1\" \"$2\"",
                                              scratch.string(), QUOREL_MAKE_SAMPLE, option});
        EXPECT_EQ(r.status, 0) << option;
        EXPECT_EQ(r.out.rfind("Usage: make-sample OUTPUT.shp", 0), 0u) << option << r.out;
        EXPECT_TRUE(std::filesystem::is_empty(scratch)) << option;
    }
    std::filesystem::remove_all(scratch);
}

} // namespace
