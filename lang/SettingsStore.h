#pragma once

#include <filesystem>
#include <string>

namespace quorel::lang {

// The user's settings, read with a default and written, by application, section and key.
class ISettingsStore {
public:
    virtual ~ISettingsStore() = default;
    virtual std::string GetSetting(const std::string& application, const std::string& section,
                                   const std::string& key,
                                   const std::string& defaultValue = {}) const = 0;
    // Throws quorel::Error when the store cannot be written.
    virtual void SaveSetting(const std::string& application, const std::string& section,
                             const std::string& key, const std::string& value) = 0;
};

// The names under which the component keeps its settings.
inline constexpr const char* kSettingsApplication = "Ombrel_Brumalis";
inline constexpr const char* kSettingsSection = "params";
inline constexpr const char* kLanguageKey = "lang";
inline constexpr const char* kDefaultLanguage = "fr";
// Site settings: a network-share prefix that the site mounts elsewhere (none by default).
inline constexpr const char* kSiteSection = "site";
inline constexpr const char* kSharedFolderPrefixKey = "SharedFolderPrefix";
inline constexpr const char* kSharedFolderReplacementKey = "SharedFolderReplacement";

// One INI file per application, <folder>/<application>.ini, with [section] headers and
// key=value lines. Every save rewrites the file atomically (temporary file, fsync, rename), so
// a crash leaves either the old or the new settings. Other sections, keys and comments are kept.
class IniSettingsStore final : public ISettingsStore {
public:
    explicit IniSettingsStore(std::filesystem::path folder);

    // $XDG_CONFIG_HOME when set and absolute, else ~/.config.
    static std::filesystem::path UserConfigFolder();

    std::filesystem::path FileFor(const std::string& application) const;

    std::string GetSetting(const std::string& application, const std::string& section,
                           const std::string& key,
                           const std::string& defaultValue = {}) const override;
    void SaveSetting(const std::string& application, const std::string& section,
                     const std::string& key, const std::string& value) override;

private:
    std::filesystem::path m_folder;
};

} // namespace quorel::lang
