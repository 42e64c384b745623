#pragma once

// The guard of a command class's members: a failure is reported once, through HandleError with
// the member's and the class's names, and never reaches the host.

#include "util/Error.h"
#include "util/MessageUi.h"

#include <cstdint>
#include <exception>
#include <string>

namespace quorel::component {

// Shows the report; a failing report is swallowed too.
void ReportMemberFailure(util::IMessageUi& ui, const char* moduleName, const char* procName,
                         std::int32_t number, const std::string& source,
                         const std::string& description) noexcept;

// Runs body and returns its value; on a failure reports it and returns fallback.
template <typename Body, typename Result>
Result GuardedMember(util::IMessageUi& ui, const char* moduleName, const char* procName, Body body,
                     Result fallback) {
    try {
        return body();
    } catch (const Error& e) {
        ReportMemberFailure(ui, moduleName, procName, e.Number(), e.Source(), e.Description());
    } catch (const std::exception& e) {
        ReportMemberFailure(ui, moduleName, procName, error_number::kHostFailure, moduleName,
                            e.what());
    } catch (...) {
        ReportMemberFailure(ui, moduleName, procName, error_number::kHostFailure, moduleName,
                            "Unknown error");
    }
    return fallback;
}

} // namespace quorel::component
