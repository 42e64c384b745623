#pragma once

// The call-stack report of the command class's members: a beep and the
// "Unexpected Program Error" box.

#include "util/MessageUi.h"

#include <cstdint>
#include <string>

namespace quorel::errors {

inline constexpr const char* kCallStackTitle = "Unexpected Program Error";

// "Line : 12"; the empty string for 0.
std::string LineInfo(std::int32_t line);

// The procedure text of a member of the command class: name, module, line information.
std::string ProcedureText(const std::string& procName, const std::string& moduleName,
                          std::int32_t line);

// CR LF "Error Number " CR LF TAB number CR LF "Description" CR LF TAB description CR LF CR LF.
std::string ErrorBlock(std::int32_t errNumber, const std::string& errDescription);

// Reports an error caught in a member of the command class. The error is not raised again.
void HandleError(util::IMessageUi& ui, const std::string& procText, std::int32_t errNumber,
                 const std::string& errSource, const std::string& errDescription);

void ShowCallStackBox(util::IMessageUi& ui, const std::string& procText,
                      const std::string& description);

} // namespace quorel::errors
