#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quorel::component {

// The per-user class registry: which shared library provides which class, by CLSID and ProgID,
// and the type libraries. It stands where the system registry stood, as a small INI file:
//
//   [TypeLib {B9FAE490-...}]      name=Quorel  version=1.0  path=/opt/quorel/Quorel.so
//   [CLSID {D9C05969-...}]        progid=Quorel.clsRequêteSouple  path=/opt/quorel/Quorel.so
//   [ProgID Quorel.clsRequêteSouple]  clsid={D9C05969-...}
//
// Entries of other components are kept untouched; the file is replaced atomically.
class ClassRegistry {
public:
    struct Class {
        std::string clsid;
        std::string progId;
        std::string path;
    };

    // $XDG_CONFIG_HOME/quorel/classes.ini, else ~/.config/quorel/classes.ini.
    static std::string DefaultPath();

    // Reads the file; a missing file is an empty registry. Throws quorel::Error when the file
    // exists but cannot be read.
    explicit ClassRegistry(std::string path = DefaultPath());

    void RegisterTypeLib(const std::string& libId, const std::string& name,
                         const std::string& version, const std::string& path);
    void UnregisterTypeLib(const std::string& libId);
    void RegisterClass(const std::string& clsid, const std::string& progId,
                       const std::string& path);
    void UnregisterClass(const std::string& clsid);

    std::optional<Class> FindByProgId(const std::string& progId) const;
    std::optional<Class> FindByClsid(const std::string& clsid) const;
    std::optional<std::string> TypeLibPath(const std::string& libId) const;
    std::vector<Class> Classes() const;

    // Writes beside, flushes, renames. Throws quorel::Error on failure.
    void Save() const;

    const std::string& Path() const { return m_path; }

private:
    using Values = std::vector<std::pair<std::string, std::string>>;
    struct Section {
        std::string name;
        Values values;
    };

    Section* FindSection(const std::string& name);
    const Section* FindSection(const std::string& name) const;
    static std::optional<std::string> Value(const Section& section, const std::string& key);
    void SetSection(const std::string& name, Values values);
    void RemoveSection(const std::string& name);

    std::string m_path;
    std::vector<Section> m_sections;
};

} // namespace quorel::component
