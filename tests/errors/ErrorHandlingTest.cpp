#include "errors/ErrorHandling.h"
#include "tests/support/RecordingMessageUi.h"
#include "tests/support/TextLines.h"

#include <gtest/gtest.h>

#include <vector>

namespace quorel::errors {
namespace {

using quorel::test::SplitLines;

TEST(HandleErrorTest, showsTheCallStackBoxLineByLine) {
    util::RecordingMessageUi ui;
    HandleError(ui, ProcedureText("Class_Terminate", "clsRequêteSouple", 7), 91, "Quorel",
                "Object variable not set");
    EXPECT_EQ(ui.beeps, 1);
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0].icon, util::MessageIcon::Exclamation);
    EXPECT_EQ(ui.boxes[0].title, std::optional<std::string>("Unexpected Program Error"));
    const std::vector<std::string> expected = {
        "An error has occured in the application.   Record the call stack sequence",
        "and the description of the error.",
        "",
        "Error Call Stack Sequence ",
        "\tClass_Terminate clsRequêteSouple Line : 7",
        "",
        "Error Number ",
        "\t91",
        "Description",
        "\tObject variable not set",
        "",
        "",
    };
    EXPECT_EQ(SplitLines(ui.boxes[0].text), expected);
}

// Without a line number the procedure ends with a blank.
TEST(HandleErrorTest, negativeHostNumbersArePrintedSignedAndNoLineIsNoLineInfo) {
    util::RecordingMessageUi ui;
    HandleError(ui, ProcedureText("ICommand_OnCreate", "clsRequêteSouple", 0), -2147467259, "Host",
                "Failure");
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_NE(ui.boxes[0].text.find("\tICommand_OnCreate clsRequêteSouple \r\n\r\nError Number "
                                    "\r\n\t-2147467259\r\n"),
              std::string::npos)
        << ui.boxes[0].text;
}

} // namespace
} // namespace quorel::errors
