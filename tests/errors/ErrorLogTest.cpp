#include "errors/ErrorLog.h"
#include "tests/support/RecordingMessageUi.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/TextLines.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>
#include <vector>

namespace quorel::errors {
namespace {

namespace fs = std::filesystem;

using quorel::test::SplitLines;

std::time_t LocalMoment(int year, int month, int day, int hour, int minute, int second) {
    std::tm local{};
    local.tm_year = year - 1900;
    local.tm_mon = month - 1;
    local.tm_mday = day;
    local.tm_hour = hour;
    local.tm_min = minute;
    local.tm_sec = second;
    local.tm_isdst = -1;
    return std::mktime(&local);
}

class ErrorLogTest : public testing::Test {
protected:
    ErrorLog MakeLog() {
        return ErrorLog(m_ui, ComponentIdentity{m_folder.string(), "Quorel", "10.3.2"},
                        [] { return LocalMoment(2024, 3, 5, 14, 7, 9); });
    }

    // A report's lines, from its blank first line to its blank last one.
    std::vector<std::string> Entry(const std::string& where, const std::string& description,
                                   const std::string& debug) const {
        return {"",          "05/03/2024 14:07:09 Quorel v10.3.2",
                where,       "Exe:" + m_folder.string() + "/Quorel",
                description, "",
                debug,       ""};
    }

    test::ScratchFolder m_scratch;
    fs::path m_folder{m_scratch.Path()};
    util::RecordingMessageUi m_ui;
};

TEST_F(ErrorLogTest, formatsTheReportLineByLine) {
    ErrorLog log = MakeLog();
    const std::string text = log.FormatErrorText("11", "Division by zero", "frm_back(Quorel)",
                                                 "cmd_go_Click", 42, "Debug=3");
    EXPECT_EQ(SplitLines(text), Entry("Error#11 in frm_back(Quorel) - cmd_go_Click at Line#42",
                                      "Division by zero", "Debug=3"));
}

TEST_F(ErrorLogTest, twoReportsGiveTwoEntriesInTheLogBesideTheComponentAndTwoBoxes) {
    ErrorLog log = MakeLog();
    EXPECT_EQ(log.ErrorLogFile(), m_folder.string() + "/Quorel.log");
    log.ReportError(Error(53, "Quorel", "File not found"), "frm_back", "cmd_add_Click", true, 0,
                    "Debug=1", true);
    const std::string text = log.ReportError(Error(6, "Quorel", "Overflow"), "frm_back",
                                             "cmd_go_Click", true, 0, "Debug=5", true);
    std::vector<std::string> expected =
        Entry("Error#53 in frm_back(Quorel) - cmd_add_Click", "File not found", "Debug=1");
    for (const std::string& line :
         Entry("Error#6 in frm_back(Quorel) - cmd_go_Click", "Overflow", "Debug=5")) {
        expected.push_back(line);
    }
    expected.push_back("");
    EXPECT_EQ(SplitLines(test::ReadBytes(m_folder / "Quorel.log")), expected);
    // Each shown as well, in a critical box titled with its number and source.
    ASSERT_EQ(m_ui.boxes.size(), 2u);
    EXPECT_EQ(m_ui.boxes[1].text, text);
    EXPECT_EQ(m_ui.boxes[1].icon, util::MessageIcon::Critical);
    EXPECT_EQ(m_ui.boxes[1].title, std::optional<std::string>("Error#6 - Quorel"));
}

// The system's code page is UTF-8: accented and non-Latin paths come out as they are.
TEST_F(ErrorLogTest, logIsWrittenInTheSystemsCodePage) {
    ErrorLog log = MakeLog();
    log.AppendErrorLog("Exe:/données/Карты/Quorel");
    EXPECT_EQ(test::ReadBytes(m_folder / "Quorel.log"), "Exe:/données/Карты/Quorel\r\n");
}

TEST_F(ErrorLogTest, errorNumberZeroDoesNothing) {
    ErrorLog log = MakeLog();
    EXPECT_EQ(
        log.ReportError(Error(0, "Quorel", ""), "frm_back", "cmd_go_Click", true, 0, "", true), "");
    EXPECT_TRUE(m_ui.boxes.empty());
    EXPECT_FALSE(fs::exists(m_folder / "Quorel.log"));
}

TEST_F(ErrorLogTest, unwritableFolderLeavesNoLogAndStillShowsTheBox) {
    // Root writes everywhere; a folder that does not exist refuses the file to everyone.
    fs::path folder = m_folder / "missing";
    if (geteuid() != 0) {
        folder = m_folder;
        fs::permissions(m_folder, fs::perms::owner_read | fs::perms::owner_exec);
    }
    ErrorLog log(m_ui, ComponentIdentity{folder.string(), "Quorel", "10.3.2"});
    log.ReportError(Error(70, "Quorel", "Permission denied"), "frm_back", "cmd_go_Click", true, 0,
                    "Debug=2", true);
    EXPECT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_FALSE(fs::exists(folder / "Quorel.log"));
}

// A box that fails must not stop the report: the log is still written and nothing escapes.
class ThrowingMessageUi final : public util::IMessageUi {
public:
    void MessageBox(const std::string&, util::MessageIcon,
                    const std::optional<std::string>&) override {
        throw std::runtime_error("no display");
    }
    void Beep() override {}
    void SetBusy(bool) override {}
};

TEST_F(ErrorLogTest, failingBoxIsIgnored) {
    ThrowingMessageUi ui;
    ErrorLog log(ui, ComponentIdentity{m_folder.string(), "Quorel", "10.3.2"});
    EXPECT_FALSE(log.ReportError(Error(5, "Quorel", "Invalid"), "frm_back", "cmd_go_Click", true, 0,
                                 "", true)
                     .empty());
    EXPECT_TRUE(fs::exists(m_folder / "Quorel.log"));
}

} // namespace
} // namespace quorel::errors
