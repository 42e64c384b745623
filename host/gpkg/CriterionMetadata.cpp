// A feature table's criterion records in the GeoPackage metadata extension: one gpkg_metadata
// row (scope attributeType, a JSON document) per record, referenced by one gpkg_metadata_reference
// row of scope column naming the table and the column, the extension registered in
// gpkg_extensions for both tables.

#include "fzy/AggregationRecords.h"
#include "host/gpkg/GeoPackage.h"
#include "host/gpkg/Sqlite.h"
#include "util/Error.h"
#include "util/NumberText.h"

#include <charconv>
#include <cstdio>
#include <map>

namespace quorel::host::gpkg {
namespace {

// Tells our documents from other programs' in gpkg_metadata, and criteria from aggregations.
constexpr const char* kStandardUri = "urn:x-quorel:criterion";
constexpr const char* kAggregationUri = "urn:x-quorel:aggregation";
constexpr const char* kMimeType = "application/json";
constexpr const char* kExtensionDefinition =
    "http://www.geopackage.org/spec120/#extension_metadata";

std::string JsonString(const std::string& text) {
    std::string json = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
            json += "\\\"";
            break;
        case '\\':
            json += "\\\\";
            break;
        case '\n':
            json += "\\n";
            break;
        case '\r':
            json += "\\r";
            break;
        case '\t':
            json += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned char>(c));
                json += escaped;
            } else {
                json += c;
            }
        }
    }
    return json + "\"";
}

// The document of a record: the parameters as the script prints them (JSON numbers).
std::string Document(const CriterionRecord& record) {
    return "{\"sourceField\":" + JsonString(record.sourceField) +
           ",\"kind\":" + std::to_string(record.kind) + ",\"a\":" + util::FormatNumber(record.a) +
           ",\"b\":" + util::FormatNumber(record.b) + ",\"c\":" + util::FormatNumber(record.c) +
           ",\"d\":" + util::FormatNumber(record.d) + ",\"created\":" + JsonString(record.created) +
           ",\"version\":" + JsonString(record.version) + "}";
}

// Reads a flat JSON object of strings and numbers (what Document writes; other members are
// kept as their text). Nothing for a text that is no such object.
std::optional<std::map<std::string, std::string>> ParseFlatObject(const std::string& json) {
    std::map<std::string, std::string> members;
    std::size_t at = 0;
    auto skipSpace = [&] {
        while (at < json.size() &&
               (json[at] == ' ' || json[at] == '\n' || json[at] == '\r' || json[at] == '\t')) {
            ++at;
        }
    };
    auto readString = [&](std::string& out) {
        if (at >= json.size() || json[at] != '"') {
            return false;
        }
        ++at;
        while (at < json.size() && json[at] != '"') {
            char c = json[at++];
            if (c == '\\' && at < json.size()) {
                const char escaped = json[at++];
                switch (escaped) {
                case 'n':
                    c = '\n';
                    break;
                case 'r':
                    c = '\r';
                    break;
                case 't':
                    c = '\t';
                    break;
                case 'u': {
                    if (at + 4 > json.size()) {
                        return false;
                    }
                    const unsigned long code = std::stoul(json.substr(at, 4), nullptr, 16);
                    at += 4;
                    if (code >= 0x80) {
                        return false; // we write only control characters so
                    }
                    c = static_cast<char>(code);
                    break;
                }
                default:
                    c = escaped;
                }
            }
            out += c;
        }
        if (at >= json.size()) {
            return false;
        }
        ++at;
        return true;
    };
    skipSpace();
    if (at >= json.size() || json[at++] != '{') {
        return std::nullopt;
    }
    skipSpace();
    if (at < json.size() && json[at] == '}') {
        return members;
    }
    while (true) {
        skipSpace();
        std::string key;
        if (!readString(key)) {
            return std::nullopt;
        }
        skipSpace();
        if (at >= json.size() || json[at++] != ':') {
            return std::nullopt;
        }
        skipSpace();
        std::string value;
        if (at < json.size() && json[at] == '"') {
            if (!readString(value)) {
                return std::nullopt;
            }
        } else {
            while (at < json.size() && json[at] != ',' && json[at] != '}') {
                value += json[at++];
            }
            while (!value.empty() && (value.back() == ' ' || value.back() == '\n')) {
                value.pop_back();
            }
        }
        members[key] = value;
        skipSpace();
        if (at >= json.size()) {
            return std::nullopt;
        }
        if (json[at] == '}') {
            return members;
        }
        if (json[at++] != ',') {
            return std::nullopt;
        }
    }
}

double NumberOf(const std::map<std::string, std::string>& members, const char* key) {
    const auto found = members.find(key);
    double value = 0;
    if (found != members.end()) {
        std::from_chars(found->second.data(), found->second.data() + found->second.size(), value);
    }
    return value;
}

std::string TextOf(const std::map<std::string, std::string>& members, const char* key) {
    const auto found = members.find(key);
    return found == members.end() ? std::string() : found->second;
}

bool TableExists(sqlite3* db, const char* name) {
    Statement query(db, "SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1");
    query.Bind(1, std::string(name));
    return query.Step();
}

// The metadata tables and their registration, as the GeoPackage standard writes them.
void PrepareMetadataTables(Database& database) {
    database.Execute(
        "CREATE TABLE IF NOT EXISTS gpkg_extensions (table_name TEXT,column_name TEXT,"
        "extension_name TEXT NOT NULL,definition TEXT NOT NULL,scope TEXT NOT NULL,"
        "CONSTRAINT ge_tce UNIQUE (table_name, column_name, extension_name));"
        "CREATE TABLE IF NOT EXISTS gpkg_metadata (id INTEGER CONSTRAINT m_pk PRIMARY KEY ASC "
        "NOT NULL,md_scope TEXT NOT NULL DEFAULT 'dataset',md_standard_uri TEXT NOT NULL,"
        "mime_type TEXT NOT NULL DEFAULT 'text/xml',metadata TEXT NOT NULL DEFAULT '');"
        "CREATE TABLE IF NOT EXISTS gpkg_metadata_reference (reference_scope TEXT NOT NULL,"
        "table_name TEXT,column_name TEXT,row_id_value INTEGER,timestamp DATETIME NOT NULL "
        "DEFAULT (strftime('%Y-%m-%dT%H:%M:%fZ','now')),md_file_id INTEGER NOT NULL,"
        "md_parent_id INTEGER,CONSTRAINT crmr_mfi_fk FOREIGN KEY (md_file_id) REFERENCES "
        "gpkg_metadata(id),CONSTRAINT crmr_mpi_fk FOREIGN KEY (md_parent_id) REFERENCES "
        "gpkg_metadata(id));");
    for (const char* table : {"gpkg_metadata", "gpkg_metadata_reference"}) {
        // UNIQUE does not hold rows whose column_name is NULL apart: look first.
        Statement add(database.Handle(),
                      "INSERT INTO gpkg_extensions (table_name, column_name, extension_name, "
                      "definition, scope) SELECT ?1, NULL, 'gpkg_metadata', ?2, 'read-write' "
                      "WHERE NOT EXISTS (SELECT 1 FROM gpkg_extensions WHERE table_name = ?1 "
                      "AND column_name IS NULL AND extension_name = 'gpkg_metadata')");
        add.Bind(1, std::string(table));
        add.Bind(2, std::string(kExtensionDefinition));
        add.Step();
    }
}

void DeleteStored(Database& database, std::int64_t id) {
    Statement references(database.Handle(),
                         "DELETE FROM gpkg_metadata_reference WHERE md_file_id = ?1");
    references.Bind(1, id);
    references.Step();
    Statement metadata(database.Handle(), "DELETE FROM gpkg_metadata WHERE id = ?1");
    metadata.Bind(1, id);
    metadata.Step();
}

} // namespace

std::vector<GeoPackageFeatureClass::StoredDocument>
GeoPackageFeatureClass::StoredDocuments(const char* standardUri) const {
    std::vector<StoredDocument> stored;
    if (!TableExists(m_database->Handle(), "gpkg_metadata") ||
        !TableExists(m_database->Handle(), "gpkg_metadata_reference")) {
        return stored;
    }
    Statement query(m_database->Handle(),
                    "SELECT m.id, m.metadata, r.table_name, r.column_name "
                    "FROM gpkg_metadata_reference r JOIN gpkg_metadata m ON m.id = r.md_file_id "
                    "WHERE m.md_standard_uri = ?1 AND r.reference_scope = 'column' "
                    "ORDER BY m.id");
    query.Bind(1, std::string(standardUri));
    while (query.Step()) {
        if (query.Text(2) != m_table) {
            continue; // names compared exactly
        }
        stored.push_back({query.Integer(0), query.Text(3), query.Text(1)});
    }
    return stored;
}

std::vector<GeoPackageFeatureClass::StoredRecord> GeoPackageFeatureClass::StoredRecords() const {
    std::vector<StoredRecord> stored;
    for (const StoredDocument& document : StoredDocuments(kStandardUri)) {
        const auto members = ParseFlatObject(document.document);
        if (!members) {
            continue;
        }
        CriterionRecord record;
        record.table = m_table;
        record.column = document.column;
        record.sourceField = TextOf(*members, "sourceField");
        record.kind = static_cast<std::int16_t>(NumberOf(*members, "kind"));
        record.a = NumberOf(*members, "a");
        record.b = NumberOf(*members, "b");
        record.c = NumberOf(*members, "c");
        record.d = NumberOf(*members, "d");
        record.created = TextOf(*members, "created");
        record.version = TextOf(*members, "version");
        stored.push_back({document.id, record});
    }
    return stored;
}

void GeoPackageFeatureClass::RemoveRecordsOfMissingColumns() {
    const auto fields = Fields();
    for (const char* standardUri : {kStandardUri, kAggregationUri}) {
        for (const StoredDocument& stored : StoredDocuments(standardUri)) {
            if (fields->FindField(stored.column) < 0) {
                DeleteStored(*m_database, stored.id);
            }
        }
    }
}

void GeoPackageFeatureClass::WriteDocument(const char* standardUri, const std::string& column,
                                           const std::string& document) {
    m_database->Execute("SAVEPOINT quorel_record");
    try {
        PrepareMetadataTables(*m_database);
        for (const StoredDocument& stored : StoredDocuments(standardUri)) {
            if (stored.column == column) {
                DeleteStored(*m_database, stored.id);
            }
        }
        Statement metadata(m_database->Handle(),
                           "INSERT INTO gpkg_metadata (md_scope, md_standard_uri, mime_type, "
                           "metadata) VALUES ('attributeType', ?1, ?2, ?3)");
        metadata.Bind(1, std::string(standardUri));
        metadata.Bind(2, std::string(kMimeType));
        metadata.Bind(3, document);
        metadata.Step();
        const std::int64_t id = sqlite3_last_insert_rowid(m_database->Handle());
        Statement reference(m_database->Handle(),
                            "INSERT INTO gpkg_metadata_reference (reference_scope, table_name, "
                            "column_name, md_file_id) VALUES ('column', ?1, ?2, ?3)");
        reference.Bind(1, m_table);
        reference.Bind(2, column);
        reference.Bind(3, id);
        reference.Step();
        m_database->Execute("RELEASE quorel_record");
    } catch (...) {
        try {
            m_database->Execute("ROLLBACK TO quorel_record");
            m_database->Execute("RELEASE quorel_record");
        } catch (...) {
            // the write's own error says more
        }
        throw;
    }
}

void GeoPackageFeatureClass::WriteRecord(const CriterionRecord& record) {
    WriteDocument(kStandardUri, record.column, Document(record));
}

void GeoPackageFeatureClass::WriteAggregationRecord(const AggregationRecord& record) {
    WriteDocument(kAggregationUri, record.field, fzy::AggregationDocument(record));
}

std::vector<AggregationRecord> GeoPackageFeatureClass::AggregationRecords() const {
    std::vector<AggregationRecord> records;
    for (const StoredDocument& stored : StoredDocuments(kAggregationUri)) {
        try {
            records.push_back(fzy::AggregationFromDocument(stored.document, stored.column,
                                                           Path() + " gpkg_metadata"));
        } catch (const Error&) {
            // Another program's edit we cannot read is no record of ours, as for criteria.
        }
    }
    return records;
}

std::optional<CriterionRecord> GeoPackageFeatureClass::Record(const std::string& column) const {
    std::optional<CriterionRecord> found;
    for (StoredRecord& stored : StoredRecords()) {
        if (stored.record.column == column) {
            found = std::move(stored.record); // the latest
        }
    }
    return found;
}

std::vector<CriterionRecord> GeoPackageFeatureClass::Records() const {
    std::vector<CriterionRecord> records;
    for (StoredRecord& stored : StoredRecords()) {
        records.push_back(std::move(stored.record));
    }
    return records;
}

} // namespace quorel::host::gpkg
