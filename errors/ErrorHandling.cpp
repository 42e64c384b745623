#include "errors/ErrorHandling.h"

namespace quorel::errors {

std::string LineInfo(std::int32_t line) {
    if (line == 0) {
        return {};
    }
    return "Line : " + std::to_string(line);
}

std::string ProcedureText(const std::string& procName, const std::string& moduleName,
                          std::int32_t line) {
    return procName + " " + moduleName + " " + LineInfo(line);
}

std::string ErrorBlock(std::int32_t errNumber, const std::string& errDescription) {
    return "\r\nError Number \r\n\t" + std::to_string(errNumber) + "\r\nDescription\r\n\t" +
           errDescription + "\r\n\r\n";
}

void HandleError(util::IMessageUi& ui, const std::string& procText, std::int32_t errNumber,
                 const std::string& /*errSource*/, const std::string& errDescription) {
    // The caller has already taken what it needs from the error, and nothing is raised again:
    // the listing holds the one member that caught it.
    ShowCallStackBox(ui, procText, ErrorBlock(errNumber, errDescription));
}

void ShowCallStackBox(util::IMessageUi& ui, const std::string& procText,
                      const std::string& description) {
    ui.Beep();
    const std::string text = "An error has occured in the application.   Record the call stack "
                             "sequence\r\nand the description of the error.\r\n\r\nError Call "
                             "Stack Sequence \r\n\t" +
                             procText + "\r\n" + description;
    ui.MessageBox(text, util::MessageIcon::Exclamation, std::string(kCallStackTitle));
}

} // namespace quorel::errors
