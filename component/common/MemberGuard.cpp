#include "component/common/MemberGuard.h"

#include "errors/ErrorHandling.h"

namespace quorel::component {

void ReportMemberFailure(util::IMessageUi& ui, const char* moduleName, const char* procName,
                         std::int32_t number, const std::string& source,
                         const std::string& description) noexcept {
    try {
        errors::HandleError(ui, errors::ProcedureText(procName, moduleName, 0), number, source,
                            description);
    } catch (...) {
        // Nothing may reach the host, not even a failing report.
    }
}

} // namespace quorel::component
