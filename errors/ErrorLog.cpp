#include "errors/ErrorLog.h"

#include "util/AutomationDate.h"

#include <fcntl.h>
#include <unistd.h>

namespace quorel::errors {
namespace {

// Owns one file descriptor.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int Get() const { return m_fd; }

private:
    int m_fd;
};

void WriteAll(int fd, const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
        if (written <= 0) {
            return;
        }
        done += static_cast<std::size_t>(written);
    }
}

} // namespace

ErrorLog::ErrorLog(util::IMessageUi& ui, ComponentIdentity component, Clock clock)
    : m_ui(ui), m_component(std::move(component)), m_clock(std::move(clock)) {}

std::string ErrorLog::ReportError(const Error& err, const std::string& moduleName,
                                  const std::string& procName, bool showMessage, std::int32_t line,
                                  const std::string& extraInfo, bool writeLog) noexcept {
    if (err.Number() == 0) {
        return {};
    }
    std::string text;
    try {
        const std::string number = std::to_string(err.Number());
        // Every step runs even when one before it failed: the report never raises.
        try {
            text = FormatErrorText(number, err.Description(), moduleName + "(" + err.Source() + ")",
                                   procName, line, extraInfo);
        } catch (...) {
        }
        if (writeLog) {
            AppendErrorLog(text);
        }
        if (showMessage) {
            ShowErrorBox(text, "Error#" + number + " - " + err.Source());
        }
    } catch (...) {
    }
    return text;
}

std::string ErrorLog::FormatErrorText(const std::string& number, const std::string& description,
                                      const std::string& where, const std::string& procName,
                                      std::int32_t line, const std::string& extraInfo) const {
    std::string text = "\r\n";
    text += util::FormatGeneralDate(util::ToAutomationDate(m_clock()));
    text += " " + m_component.name + " v" + m_component.version + "\r\n";
    text += "Error#" + number + " in " + where + " - " + procName;
    if (line != 0) {
        text += " at Line#" + std::to_string(line);
    }
    text += "\r\nExe:" + m_component.folder + "/" + m_component.name + "\r\n";
    text += description + "\r\n\r\n" + extraInfo + "\r\n";
    return text;
}

void ErrorLog::AppendErrorLog(const std::string& text) noexcept {
    try {
        const FileDescriptor file(
            open(ErrorLogFile().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
        if (file.Get() < 0) {
            return;
        }
        // Our strings are UTF-8, the system's code page here: paths of any script stay readable.
        WriteAll(file.Get(), text + "\r\n");
    } catch (...) {
    }
}

void ErrorLog::ShowErrorBox(const std::string& text, const std::string& title) noexcept {
    try {
        m_ui.MessageBox(text, util::MessageIcon::Critical, title);
    } catch (...) {
    }
}

std::string ErrorLog::ErrorLogFile() {
    if (m_logFile.empty()) {
        m_logFile = m_component.folder + "/" + m_component.name + ".log";
    }
    return m_logFile;
}

} // namespace quorel::errors
