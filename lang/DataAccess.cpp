#include "lang/DataAccess.h"

#include "lang/SettingsStore.h"
#include "util/Error.h"
#include "util/FileFunctions.h"
#include "util/ListControl.h"
#include "util/MessageUi.h"

namespace quorel::lang {
namespace {

constexpr const char* kCrLf = "\r\n";
// What the platform says when a procedure is handed no database object.
constexpr const char* kNoObject = "Object variable or With block variable not set";

} // namespace

SharedFolderReplacementMissing::SharedFolderReplacementMissing(std::string prefix)
    : std::runtime_error(std::string(kSharedFolderPrefixKey) + " is set without " +
                         kSharedFolderReplacementKey),
      m_prefix(std::move(prefix)) {}

std::optional<SharedFolderRewrite> SharedFolderRewriteFromSettings(const ISettingsStore& settings) {
    std::string prefix =
        settings.GetSetting(kSettingsApplication, kSiteSection, kSharedFolderPrefixKey);
    if (prefix.empty()) {
        return std::nullopt;
    }
    std::string replacement =
        settings.GetSetting(kSettingsApplication, kSiteSection, kSharedFolderReplacementKey);
    if (replacement.empty()) {
        throw SharedFolderReplacementMissing(std::move(prefix));
    }
    return SharedFolderRewrite{std::move(prefix), std::move(replacement)};
}

DataAccess::DataAccess(util::IMessageUi& ui, std::optional<SharedFolderRewrite> sharedFolder)
    : m_ui(ui), m_sharedFolder(std::move(sharedFolder)) {}

std::string DataAccess::RewriteSharedFolder(const std::string& path) const {
    if (!m_sharedFolder || m_sharedFolder->prefix.empty()) {
        return path;
    }
    const std::string& prefix = m_sharedFolder->prefix;
    std::string result;
    std::size_t from = 0;
    for (auto at = path.find(prefix); at != std::string::npos; at = path.find(prefix, from)) {
        result.append(path, from, at - from);
        result += m_sharedFolder->replacement;
        from = at + prefix.size();
    }
    result.append(path, from, std::string::npos);
    return result;
}

std::string DataAccess::DAO_Open(std::shared_ptr<IDatabase>& db, const std::string& path,
                                 bool raiseOnOpenError) {
    const std::string rewritten = RewriteSharedFolder(path);
    if (!util::FileExists(rewritten)) {
        throw Error(kErrorOpenDatabase, "DAO_Open",
                    std::string("Database not found:") + kCrLf + rewritten);
    }
    try {
        db = OpenDatabase(rewritten);
        return {};
    } catch (const EngineError& e) {
        if (raiseOnOpenError) {
            throw Error(kErrorOpenDatabase, "DAO_Open",
                        std::string("Error open database:") + kCrLf + rewritten);
        }
        return e.what();
    }
}

void DataAccess::DAO_OpenRs(std::shared_ptr<IDatabase>& db, std::unique_ptr<IRecordset>& rs,
                            const std::string& dbPath, const std::string& sql) {
    std::string cause;
    if (!db) {
        cause = DAO_Open(db, dbPath, false);
    }
    try {
        if (!db) {
            throw EngineError(cause.empty() ? kNoObject : cause);
        }
        rs = db->OpenRecordset(sql);
    } catch (const EngineError& e) {
        throw Error(kErrorSql, "DAO_OpenRs",
                    "Error SQL:" + sql + kCrLf + "on database" + kCrLf + dbPath + kCrLf +
                        "Error: " + e.what());
    }
}

DbValue DataAccess::DAO_SQL2Value(IDatabase* db, const std::string& sql, bool showErrors) {
    try {
        if (db == nullptr) {
            throw EngineError(kNoObject);
        }
        std::unique_ptr<IRecordset> rs = db->OpenRecordset(sql);
        if (rs->Eof()) {
            throw EngineError("No current record.");
        }
        DbValue value = rs->Field(0);
        try {
            rs->Close();
        } catch (const EngineError&) {
            // A failure while closing changes nothing for the value read.
        }
        return value;
    } catch (const EngineError& e) {
        if (showErrors) {
            m_ui.MessageBox(e.what() + std::string(kCrLf) + "SQL=" + sql,
                            util::MessageIcon::Critical, std::string("DAO_SQL2Value"));
        }
        return {};
    }
}

DbValue DataAccess::DAO_MaxValue(IDatabase* db, const std::string& table, const std::string& field,
                                 bool showErrors) {
    return DAO_SQL2Value(db, "SELECT max(" + field + ") FROM " + table, showErrors);
}

std::string DataAccess::DAO_FillFieldList(IDatabase* db, const std::string& table,
                                          util::IListControl& list) {
    try {
        if (db == nullptr) {
            return kNoObject;
        }
        // Reading the table first leaves the list as it was when the table cannot be read.
        const std::vector<std::string> names = db->ColumnNames(table);
        list.Clear();
        for (const std::string& name : names) {
            if (name != "id") {
                list.AddItem(name);
            }
        }
        return {};
    } catch (const std::exception& e) {
        return e.what();
    }
}

} // namespace quorel::lang
