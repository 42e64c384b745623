#pragma once

// One scratch folder and plain file helpers for every test that touches the disk.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace quorel::test {

// A fresh folder under the system's temporary folder, removed with everything in it (even
// after a test has taken away its permissions).
class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quorel-test-XXXXXX").string();
        if (!mkdtemp(pattern.data())) {
            throw std::runtime_error("Cannot make a scratch folder");
        }
        m_path = pattern;
        // Open to others, as a folder made the usual way: some tests work in it as nobody.
        std::filesystem::permissions(
            m_path, std::filesystem::perms::owner_all | std::filesystem::perms::group_read |
                        std::filesystem::perms::group_exec | std::filesystem::perms::others_read |
                        std::filesystem::perms::others_exec);
    }
    ~ScratchFolder() {
        std::error_code ignored;
        std::filesystem::permissions(m_path, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
        std::filesystem::remove_all(m_path, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& Path() const { return m_path; }
    std::filesystem::path Dir() const { return m_path; }
    std::string File(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

inline std::string ReadBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

inline void WriteBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

} // namespace quorel::test
