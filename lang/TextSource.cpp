#include "lang/TextSource.h"

#include "util/Error.h"
#include "util/FileReplacement.h"

#include <charconv>
#include <memory>
#include <set>
#include <sqlite3.h>

namespace quorel::lang {
namespace {

constexpr const char* kSource = "TextSource";

std::vector<std::int16_t> MakeRequiredIds() {
    std::vector<std::int16_t> ids{1, 116};
    for (std::int16_t id = 118; id <= 125; ++id) {
        ids.push_back(id);
    }
    ids.push_back(127);
    for (std::int16_t id = 131; id <= 154; ++id) {
        ids.push_back(id);
    }
    for (std::int16_t id : {156, 157, 158, 160, 161, 162}) {
        ids.push_back(id);
    }
    return ids;
}

std::vector<std::string> SplitTabs(const std::string& line) {
    std::vector<std::string> cells;
    std::size_t start = 0;
    for (;;) {
        const auto tab = line.find('\t', start);
        cells.push_back(line.substr(start, tab == std::string::npos ? tab : tab - start));
        if (tab == std::string::npos) {
            return cells;
        }
        start = tab + 1;
    }
}

Error Fault(const std::string& where, const std::string& what) {
    return Error(error_number::kSyntaxError, kSource, where + ": " + what);
}

std::string Unescape(const std::string& cell, const std::string& where) {
    std::string text;
    for (std::size_t i = 0; i < cell.size(); ++i) {
        if (cell[i] != '\\') {
            text += cell[i];
            continue;
        }
        if (++i >= cell.size()) {
            throw Fault(where, "a backslash ends the text");
        }
        switch (cell[i]) {
        case 't':
            text += '\t';
            break;
        case 'n':
            text += '\n';
            break;
        case 'r':
            text += '\r';
            break;
        case '\\':
            text += '\\';
            break;
        default:
            throw Fault(where, std::string("unknown escape \\") + cell[i]);
        }
    }
    return text;
}

// Language codes become column names in unquoted statements, so they must be plain words.
bool IsPlainName(const std::string& name) {
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0) {
        return false;
    }
    for (char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_') {
            return false;
        }
    }
    return true;
}

struct SqliteCloser {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
};
struct StatementFinalizer {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};

void Check(sqlite3* handle, int rc, const std::string& file) {
    if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW) {
        throw Error(error_number::kDeviceIo, kSource, file + ": " + sqlite3_errmsg(handle));
    }
}

} // namespace

const std::vector<std::int16_t>& RequiredTextIds() {
    static const std::vector<std::int16_t> ids = MakeRequiredIds();
    return ids;
}

TextSourceTable ReadTextSource(std::istream& in, const std::string& sourceName) {
    TextSourceTable table;
    std::string line;
    int lineNumber = 0;
    bool headerRead = false;
    while (std::getline(in, line)) {
        ++lineNumber;
        const std::string where = sourceName + ":" + std::to_string(lineNumber);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::vector<std::string> cells = SplitTabs(line);
        if (!headerRead) {
            if (cells.size() < 2 || cells[0] != "id") {
                throw Fault(where, "the first line must be id and the language codes");
            }
            std::set<std::string> seen;
            for (std::size_t i = 1; i < cells.size(); ++i) {
                if (!IsPlainName(cells[i]) || cells[i] == "id" || !seen.insert(cells[i]).second) {
                    throw Fault(where, "bad or repeated language code '" + cells[i] + "'");
                }
                table.languages.push_back(cells[i]);
            }
            headerRead = true;
            continue;
        }
        if (cells.size() != table.languages.size() + 1) {
            throw Fault(where, "expected " + std::to_string(table.languages.size() + 1) +
                                   " tab-separated cells, found " + std::to_string(cells.size()));
        }
        int id = -1;
        const auto [end, code] =
            std::from_chars(cells[0].data(), cells[0].data() + cells[0].size(), id);
        if (code != std::errc() || end != cells[0].data() + cells[0].size() || id < 0 ||
            id > 32767) {
            throw Fault(where, "the id '" + cells[0] + "' is not a whole number from 0 to 32767");
        }
        std::vector<std::string> texts;
        for (std::size_t i = 1; i < cells.size(); ++i) {
            texts.push_back(Unescape(cells[i], where));
            if (texts.back().empty() && id != kFontTextId) {
                throw Fault(where,
                            "text " + cells[0] + " is empty in language " + table.languages[i - 1]);
            }
        }
        if (!table.texts.emplace(static_cast<std::int16_t>(id), std::move(texts)).second) {
            throw Fault(where, "text " + cells[0] + " is given twice");
        }
    }
    if (!headerRead) {
        throw Fault(sourceName, "no header line");
    }
    for (std::int16_t id : RequiredTextIds()) {
        if (table.texts.count(id) == 0) {
            throw Fault(sourceName, "text " + std::to_string(id) + " is missing");
        }
    }
    return table;
}

void WriteTextDatabase(const TextSourceTable& table, const std::filesystem::path& target) {
    // Built beside the target and renamed at the end, so a failed build leaves no half database.
    // SQLite takes the empty temporary as an empty database; without a journal it makes no file
    // of its own beside it.
    util::FileReplacement replacement(target.string(), kSource, 0644);
    const std::filesystem::path file = replacement.TemporaryPath();
    sqlite3* raw = nullptr;
    const int rc = sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READWRITE, nullptr);
    std::unique_ptr<sqlite3, SqliteCloser> handle(raw);
    Check(raw, rc, file.string());
    Check(raw, sqlite3_exec(raw, "PRAGMA journal_mode=OFF", nullptr, nullptr, nullptr),
          file.string());

    std::string create = "CREATE TABLE tblText (id INTEGER PRIMARY KEY";
    std::string insert = "INSERT INTO tblText (id";
    std::string placeholders = "?";
    for (const std::string& language : table.languages) {
        create += ", " + language + " TEXT";
        insert += ", " + language;
        placeholders += ", ?";
    }
    create += ")";
    insert += ") VALUES (" + placeholders + ")";
    Check(raw, sqlite3_exec(raw, "BEGIN", nullptr, nullptr, nullptr), file.string());
    Check(raw, sqlite3_exec(raw, create.c_str(), nullptr, nullptr, nullptr), file.string());

    sqlite3_stmt* rawStatement = nullptr;
    Check(raw, sqlite3_prepare_v2(raw, insert.c_str(), -1, &rawStatement, nullptr), file.string());
    std::unique_ptr<sqlite3_stmt, StatementFinalizer> statement(rawStatement);
    for (const auto& [id, texts] : table.texts) {
        sqlite3_reset(rawStatement);
        sqlite3_bind_int(rawStatement, 1, id);
        for (std::size_t i = 0; i < texts.size(); ++i) {
            sqlite3_bind_text(rawStatement, static_cast<int>(i) + 2, texts[i].c_str(),
                              static_cast<int>(texts[i].size()), SQLITE_TRANSIENT);
        }
        Check(raw, sqlite3_step(rawStatement), file.string());
    }
    statement.reset();
    Check(raw, sqlite3_exec(raw, "COMMIT", nullptr, nullptr, nullptr), file.string());
    handle.reset();
    replacement.Commit();
}

} // namespace quorel::lang
