#include "component/registry/ClassRegistry.h"

#include "util/Error.h"
#include "util/FileReplacement.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace quorel::component {
namespace {

constexpr const char* kSource = "ClassRegistry";

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string Upper(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return text;
}

} // namespace

std::string ClassRegistry::DefaultPath() {
    std::string base;
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config != nullptr && *config != '\0') {
        base = config;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') {
        base = std::string(home) + "/.config";
    } else {
        base = ".";
    }
    return base + "/quorel/classes.ini";
}

ClassRegistry::ClassRegistry(std::string path) : m_path(std::move(path)) {
    std::ifstream in(m_path, std::ios::binary);
    if (!in) {
        if (errno == ENOENT || !std::filesystem::exists(m_path)) {
            return;
        }
        throw FileError(errno, kSource, m_path);
    }
    std::string line;
    while (std::getline(in, line)) {
        line = Trim(line);
        if (line.empty() || line[0] == ';' || line[0] == '#') {
            continue;
        }
        if (line.front() == '[' && line.back() == ']') {
            m_sections.push_back({line.substr(1, line.size() - 2), {}});
            continue;
        }
        const auto eq = line.find('=');
        if (eq == std::string::npos || m_sections.empty()) {
            continue;
        }
        m_sections.back().values.emplace_back(Trim(line.substr(0, eq)), Trim(line.substr(eq + 1)));
    }
}

ClassRegistry::Section* ClassRegistry::FindSection(const std::string& name) {
    for (auto& section : m_sections) {
        if (section.name == name) {
            return &section;
        }
    }
    return nullptr;
}

const ClassRegistry::Section* ClassRegistry::FindSection(const std::string& name) const {
    return const_cast<ClassRegistry*>(this)->FindSection(name);
}

std::optional<std::string> ClassRegistry::Value(const Section& section, const std::string& key) {
    for (const auto& [k, v] : section.values) {
        if (k == key) {
            return v;
        }
    }
    return std::nullopt;
}

void ClassRegistry::SetSection(const std::string& name, Values values) {
    if (Section* section = FindSection(name)) {
        section->values = std::move(values);
    } else {
        m_sections.push_back({name, std::move(values)});
    }
}

void ClassRegistry::RemoveSection(const std::string& name) {
    m_sections.erase(std::remove_if(m_sections.begin(), m_sections.end(),
                                    [&](const Section& s) { return s.name == name; }),
                     m_sections.end());
}

void ClassRegistry::RegisterTypeLib(const std::string& libId, const std::string& name,
                                    const std::string& version, const std::string& path) {
    SetSection("TypeLib " + Upper(libId), {{"name", name}, {"version", version}, {"path", path}});
}

void ClassRegistry::UnregisterTypeLib(const std::string& libId) {
    RemoveSection("TypeLib " + Upper(libId));
}

void ClassRegistry::RegisterClass(const std::string& clsid, const std::string& progId,
                                  const std::string& path) {
    // A ProgID names one class: drop whatever class held it before.
    if (auto previous = FindByProgId(progId); previous && Upper(previous->clsid) != Upper(clsid)) {
        UnregisterClass(previous->clsid);
    }
    SetSection("CLSID " + Upper(clsid), {{"progid", progId}, {"path", path}});
    SetSection("ProgID " + progId, {{"clsid", Upper(clsid)}});
}

void ClassRegistry::UnregisterClass(const std::string& clsid) {
    if (const Section* section = FindSection("CLSID " + Upper(clsid))) {
        if (auto progId = Value(*section, "progid")) {
            const Section* byName = FindSection("ProgID " + *progId);
            if (byName != nullptr && Upper(Value(*byName, "clsid").value_or("")) == Upper(clsid)) {
                RemoveSection("ProgID " + *progId);
            }
        }
    }
    RemoveSection("CLSID " + Upper(clsid));
}

std::optional<ClassRegistry::Class> ClassRegistry::FindByClsid(const std::string& clsid) const {
    const Section* section = FindSection("CLSID " + Upper(clsid));
    if (section == nullptr) {
        return std::nullopt;
    }
    return Class{Upper(clsid), Value(*section, "progid").value_or(""),
                 Value(*section, "path").value_or("")};
}

std::optional<ClassRegistry::Class> ClassRegistry::FindByProgId(const std::string& progId) const {
    const Section* section = FindSection("ProgID " + progId);
    if (section == nullptr) {
        return std::nullopt;
    }
    const auto clsid = Value(*section, "clsid");
    return clsid ? FindByClsid(*clsid) : std::nullopt;
}

std::optional<std::string> ClassRegistry::TypeLibPath(const std::string& libId) const {
    const Section* section = FindSection("TypeLib " + Upper(libId));
    return section != nullptr ? Value(*section, "path") : std::nullopt;
}

std::vector<ClassRegistry::Class> ClassRegistry::Classes() const {
    std::vector<Class> classes;
    for (const auto& section : m_sections) {
        if (section.name.rfind("CLSID ", 0) == 0) {
            classes.push_back(*FindByClsid(section.name.substr(6)));
        }
    }
    return classes;
}

void ClassRegistry::Save() const {
    std::ostringstream text;
    for (const auto& section : m_sections) {
        text << '[' << section.name << "]\n";
        for (const auto& [key, value] : section.values) {
            text << key << '=' << value << '\n';
        }
        text << '\n';
    }
    const std::string content = text.str();

    const std::filesystem::path target(m_path);
    std::error_code ignored;
    std::filesystem::create_directories(target.parent_path(), ignored);
    util::ReplaceFile(m_path, content, kSource, 0644);
}

} // namespace quorel::component
