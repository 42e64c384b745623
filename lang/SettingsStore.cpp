#include "lang/SettingsStore.h"

#include "util/Error.h"
#include "util/FileReplacement.h"

#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <vector>

namespace quorel::lang {
namespace {

constexpr const char* kSource = "SaveSetting";

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r");
    return text.substr(first, last - first + 1);
}

std::optional<std::string> SectionName(const std::string& line) {
    const std::string trimmed = Trim(line);
    if (trimmed.size() >= 2 && trimmed.front() == '[' && trimmed.back() == ']') {
        return Trim(trimmed.substr(1, trimmed.size() - 2));
    }
    return std::nullopt;
}

std::optional<std::pair<std::string, std::string>> KeyValue(const std::string& line) {
    const std::string trimmed = Trim(line);
    if (trimmed.empty() || trimmed[0] == ';' || trimmed[0] == '#') {
        return std::nullopt;
    }
    const auto eq = trimmed.find('=');
    if (eq == std::string::npos) {
        return std::nullopt;
    }
    return std::make_pair(Trim(trimmed.substr(0, eq)), Trim(trimmed.substr(eq + 1)));
}

std::vector<std::string> ReadLines(const std::filesystem::path& file) {
    std::vector<std::string> lines;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        lines.push_back(line);
    }
    return lines;
}

void WriteAtomically(const std::filesystem::path& file, const std::string& content) {
    const std::filesystem::path folder = file.parent_path();
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    if (ec) {
        throw FileError(ec.value(), kSource, folder.string());
    }
    util::ReplaceFile(file.string(), content, kSource);
}

} // namespace

IniSettingsStore::IniSettingsStore(std::filesystem::path folder) : m_folder(std::move(folder)) {}

std::filesystem::path IniSettingsStore::UserConfigFolder() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg != nullptr && xdg[0] == '/') {
        return xdg;
    }
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home != nullptr ? home : ".") / ".config";
}

std::filesystem::path IniSettingsStore::FileFor(const std::string& application) const {
    return m_folder / (application + ".ini");
}

std::string IniSettingsStore::GetSetting(const std::string& application, const std::string& section,
                                         const std::string& key,
                                         const std::string& defaultValue) const {
    std::string current;
    std::optional<std::string> found;
    for (const std::string& line : ReadLines(FileFor(application))) {
        if (auto name = SectionName(line)) {
            current = *name;
        } else if (auto pair = KeyValue(line); pair && current == section && pair->first == key) {
            found = pair->second; // the last occurrence wins
        }
    }
    return found ? *found : defaultValue;
}

void IniSettingsStore::SaveSetting(const std::string& application, const std::string& section,
                                   const std::string& key, const std::string& value) {
    if (value.find_first_of("\r\n") != std::string::npos ||
        key.find_first_of("\r\n=[]") != std::string::npos || key.empty() ||
        section.find_first_of("\r\n[]") != std::string::npos) {
        throw Error(error_number::kInvalidArgument, kSource,
                    "A setting's key and value must be single lines: " + key);
    }
    const std::filesystem::path file = FileFor(application);
    std::vector<std::string> lines = ReadLines(file);

    // Replace the key inside its section, or add it at the section's end, or add the section.
    std::string current;
    std::optional<std::size_t> sectionEnd;
    bool replaced = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (auto name = SectionName(lines[i])) {
            current = *name;
            continue;
        }
        if (current != section) {
            continue;
        }
        if (auto pair = KeyValue(lines[i]); pair && pair->first == key) {
            lines[i] = key + "=" + value;
            replaced = true;
        }
        if (!Trim(lines[i]).empty()) {
            sectionEnd = i + 1;
        }
    }
    if (!replaced) {
        bool sectionFound = false;
        current.clear();
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (auto name = SectionName(lines[i]); name && *name == section) {
                sectionFound = true;
                sectionEnd = sectionEnd.value_or(i + 1);
                break;
            }
        }
        if (sectionFound) {
            lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(*sectionEnd),
                         key + "=" + value);
        } else {
            if (!lines.empty() && !Trim(lines.back()).empty()) {
                lines.emplace_back();
            }
            lines.push_back("[" + section + "]");
            lines.push_back(key + "=" + value);
        }
    }
    std::ostringstream content;
    for (const std::string& line : lines) {
        content << line << '\n';
    }
    WriteAtomically(file, content.str());
}

} // namespace quorel::lang
