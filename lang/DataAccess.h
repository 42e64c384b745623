#pragma once

#include "lang/Database.h"
#include "lang/DbValue.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace quorel::util {
class IListControl;
class IMessageUi;
} // namespace quorel::util

namespace quorel::lang {

class ISettingsStore;

// Component errors of the data-access procedures: 1000 and 1001 above the base of
// object-defined errors.
inline constexpr std::int32_t kObjectErrorBase = -2147221504;
inline constexpr std::int32_t kErrorOpenDatabase = kObjectErrorBase + 1000; // -2147220504
inline constexpr std::int32_t kErrorSql = kObjectErrorBase + 1001;          // -2147220503

// Where a network share is mounted on this site: every occurrence of prefix in a database path
// is replaced by replacement.
struct SharedFolderRewrite {
    std::string prefix;
    std::string replacement;
};

// A shared-folder prefix set without its replacement. Used as it is, it would strip the prefix
// from every path that holds it, which names a folder nobody chose: it is refused instead.
class SharedFolderReplacementMissing : public std::runtime_error {
public:
    explicit SharedFolderReplacementMissing(std::string prefix);
    const std::string& Prefix() const { return m_prefix; }

private:
    std::string m_prefix;
};

// The site's rewrite from the settings store (section "site", keys "SharedFolderPrefix" and
// "SharedFolderReplacement"); none when the prefix is not set. Throws
// SharedFolderReplacementMissing when the prefix is set and the replacement is not.
std::optional<SharedFolderRewrite> SharedFolderRewriteFromSettings(const ISettingsStore& settings);

// Module modDAO2: the procedures through which the text database is read. The engine behind
// them is chosen per file (SQLite or an Access file). Database and recordset objects belong to
// the caller, who passes them in by reference.
class DataAccess {
public:
    explicit DataAccess(util::IMessageUi& ui,
                        std::optional<SharedFolderRewrite> sharedFolder = std::nullopt);

    util::IMessageUi& Ui() const { return m_ui; }
    const std::optional<SharedFolderRewrite>& SharedFolderPrefix() const { return m_sharedFolder; }

    // The path with every occurrence of the shared-folder prefix replaced (exact match).
    std::string RewriteSharedFolder(const std::string& path) const;

    // Opens the database file into db. A missing file always raises error 1000 "Database not
    // found:"; a file that cannot be opened raises error 1000 "Error open database:" when
    // raiseOnOpenError, otherwise returns the engine's description and leaves db unchanged.
    std::string DAO_Open(std::shared_ptr<IDatabase>& db, const std::string& path,
                         bool raiseOnOpenError);

    // Opens a recordset on sql, opening the database from dbPath first when db is not set.
    // A failing statement raises error 1001 "Error SQL:" with the statement, path and cause.
    void DAO_OpenRs(std::shared_ptr<IDatabase>& db, std::unique_ptr<IRecordset>& rs,
                    const std::string& dbPath, const std::string& sql);

    // The first field of the first record, or Empty when the statement fails (with the
    // "DAO_SQL2Value" box when showErrors). Never throws.
    DbValue DAO_SQL2Value(IDatabase* db, const std::string& sql, bool showErrors);

    // DAO_SQL2Value of "SELECT max(field) FROM table"; Null for an empty table.
    DbValue DAO_MaxValue(IDatabase* db, const std::string& table, const std::string& field,
                         bool showErrors);

    // Clears list and adds the table's column names but "id" (exact case), in column order.
    // Returns the empty string, or the failure's description; never throws.
    std::string DAO_FillFieldList(IDatabase* db, const std::string& table,
                                  util::IListControl& list);

private:
    util::IMessageUi& m_ui;
    std::optional<SharedFolderRewrite> m_sharedFolder;
};

} // namespace quorel::lang
