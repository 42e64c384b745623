#include "util/FileFunctions.h"

#include "util/MessageUi.h"

#include <glob.h>
#include <sys/stat.h>

namespace quorel::util {
namespace {

// Owns a glob result.
class GlobResult {
public:
    GlobResult() = default;
    ~GlobResult() { globfree(&m_glob); }
    GlobResult(const GlobResult&) = delete;
    GlobResult& operator=(const GlobResult&) = delete;
    glob_t* get() { return &m_glob; }

private:
    glob_t m_glob{};
};

} // namespace

bool PathExists(const std::string& path) {
    struct stat info {};
    return !path.empty() && ::stat(path.c_str(), &info) == 0;
}

bool FileFound(const std::string& path) {
    if (path.empty()) {
        return false;
    }
    GlobResult result;
    return ::glob(path.c_str(), GLOB_NOSORT, nullptr, result.get()) == 0 &&
           result.get()->gl_pathc > 0;
}

bool FileExists(const std::string& path, IMessageUi* ui) {
    try {
        if (!path.empty() && (FileFound(path) || PathExists(path))) {
            return true;
        }
        if (ui != nullptr) {
            ui->MessageBox("File does not exist.\r\n" + path, MessageIcon::Critical);
        }
    } catch (...) {
        // A failing test counts as "does not exist".
    }
    return false;
}

} // namespace quorel::util
