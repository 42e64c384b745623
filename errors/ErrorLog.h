#pragma once

// The logged report of the dialog's actions: the report text is appended to the error log
// beside the component and shown in a critical box.

#include "errors/Component.h"
#include "util/Error.h"
#include "util/MessageUi.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

namespace quorel::errors {

// The state of the logged reports (the log path, found once) with the reports themselves. One
// lives as long as the component; tests make their own with a chosen identity and clock.
class ErrorLog {
public:
    using Clock = std::function<std::time_t()>;

    explicit ErrorLog(
        util::IMessageUi& ui, ComponentIdentity component = OwnComponent(),
        Clock clock = [] { return std::time(nullptr); });

    // Formats, logs and shows one error; returns the report text. Never throws. An error
    // numbered 0 is no error: nothing happens and the result is empty.
    std::string ReportError(const Error& err, const std::string& moduleName,
                            const std::string& procName, bool showMessage, std::int32_t line,
                            const std::string& extraInfo, bool writeLog) noexcept;

    std::string FormatErrorText(const std::string& number, const std::string& description,
                                const std::string& where, const std::string& procName,
                                std::int32_t line, const std::string& extraInfo) const;

    // Appends text and CR LF in the system's code page (UTF-8). Any failure is silently ignored.
    void AppendErrorLog(const std::string& text) noexcept;

    void ShowErrorBox(const std::string& text, const std::string& title) noexcept;

    // The component's folder, "/", its name and ".log".
    std::string ErrorLogFile();

private:
    util::IMessageUi& m_ui;
    ComponentIdentity m_component;
    Clock m_clock;
    std::string m_logFile;
};

} // namespace quorel::errors
