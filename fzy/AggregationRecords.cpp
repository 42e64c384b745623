#include "fzy/AggregationRecords.h"

#include "fzy/IO_fzyext.h"
#include "util/Error.h"
#include "util/FileReplacement.h"
#include "util/TextSource.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <variant>

namespace quorel::fzy {
namespace {

constexpr const char* kSource = "AggregationRecords";
constexpr int kFormatVersion = 1;

std::string NumberText(double value) {
    std::array<char, 32> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return std::string(buffer.data(), result.ptr);
}

std::string Quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
                out += escaped;
            } else {
                out += c; // UTF-8 as it is
            }
        }
    }
    return out + "\"";
}

// Just enough JSON for what AggregationRecordsToJson writes and what a person may have edited:
// objects, arrays, strings, numbers, true, false, null.
struct JsonValue;
using JsonObject = std::map<std::string, JsonValue>;
using JsonArray = std::vector<JsonValue>;
struct JsonValue {
    std::variant<std::monostate, bool, double, std::string, std::shared_ptr<JsonArray>,
                 std::shared_ptr<JsonObject>>
        value;
};

class JsonParser {
public:
    JsonParser(const std::string& text, const std::string& source)
        : m_text(text), m_source(source) {}

    JsonValue ParseDocument() {
        JsonValue value = ParseValue(0);
        SkipSpace();
        if (m_at != m_text.size()) {
            Fail("text after the end");
        }
        return value;
    }

private:
    static constexpr int kMaxDepth = 64;

    [[noreturn]] void Fail(const std::string& what) const {
        throw Error(error_number::kBadFileMode, kSource,
                    m_source + ": not a record file (" + what + " at byte " + std::to_string(m_at) +
                        ")");
    }

    void SkipSpace() {
        while (m_at < m_text.size() && (m_text[m_at] == ' ' || m_text[m_at] == '\n' ||
                                        m_text[m_at] == '\r' || m_text[m_at] == '\t')) {
            ++m_at;
        }
    }

    bool Take(char c) {
        SkipSpace();
        if (m_at < m_text.size() && m_text[m_at] == c) {
            ++m_at;
            return true;
        }
        return false;
    }

    void Expect(char c) {
        if (!Take(c)) {
            Fail(std::string("expected '") + c + "'");
        }
    }

    JsonValue ParseValue(int depth) {
        if (depth > kMaxDepth) {
            Fail("too deep");
        }
        SkipSpace();
        if (m_at >= m_text.size()) {
            Fail("unexpected end");
        }
        const char c = m_text[m_at];
        if (c == '{') {
            ++m_at;
            auto object = std::make_shared<JsonObject>();
            if (!Take('}')) {
                do {
                    SkipSpace();
                    std::string key = ParseString();
                    Expect(':');
                    (*object)[key] = ParseValue(depth + 1);
                } while (Take(','));
                Expect('}');
            }
            return {object};
        }
        if (c == '[') {
            ++m_at;
            auto array = std::make_shared<JsonArray>();
            if (!Take(']')) {
                do {
                    array->push_back(ParseValue(depth + 1));
                } while (Take(','));
                Expect(']');
            }
            return {array};
        }
        if (c == '"') {
            return {ParseString()};
        }
        for (const auto& [word, value] : {std::pair<const char*, JsonValue>{"true", {true}},
                                          {"false", {false}},
                                          {"null", {std::monostate{}}}}) {
            const std::string_view w(word);
            if (m_text.compare(m_at, w.size(), w) == 0) {
                m_at += w.size();
                return value;
            }
        }
        double number = 0;
        const char* begin = m_text.data() + m_at;
        const auto result = std::from_chars(begin, m_text.data() + m_text.size(), number);
        if (result.ec != std::errc{} || result.ptr == begin) {
            Fail("unexpected character");
        }
        m_at += static_cast<std::size_t>(result.ptr - begin);
        return {number};
    }

    unsigned ParseHex4() {
        if (m_at + 4 > m_text.size()) {
            Fail("short \\u escape");
        }
        unsigned code = 0;
        const auto result =
            std::from_chars(m_text.data() + m_at, m_text.data() + m_at + 4, code, 16);
        if (result.ptr != m_text.data() + m_at + 4) {
            Fail("bad \\u escape");
        }
        m_at += 4;
        return code;
    }

    static void AppendUtf8(std::string& out, unsigned code) {
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xC0 | (code >> 6));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += static_cast<char>(0xE0 | (code >> 12));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (code >> 18));
            out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    std::string ParseString() {
        if (m_at >= m_text.size() || m_text[m_at] != '"') {
            Fail("expected a string");
        }
        ++m_at;
        std::string out;
        while (true) {
            if (m_at >= m_text.size()) {
                Fail("unterminated string");
            }
            const char c = m_text[m_at++];
            if (c == '"') {
                return out;
            }
            if (c != '\\') {
                out += c;
                continue;
            }
            if (m_at >= m_text.size()) {
                Fail("unterminated string");
            }
            const char e = m_text[m_at++];
            switch (e) {
            case '"':
            case '\\':
            case '/':
                out += e;
                break;
            case 'b':
                out += '\b';
                break;
            case 'f':
                out += '\f';
                break;
            case 'n':
                out += '\n';
                break;
            case 'r':
                out += '\r';
                break;
            case 't':
                out += '\t';
                break;
            case 'u': {
                unsigned code = ParseHex4();
                if (code >= 0xD800 && code < 0xDC00 && m_text.compare(m_at, 2, "\\u") == 0) {
                    m_at += 2;
                    const unsigned low = ParseHex4();
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                }
                AppendUtf8(out, code);
                break;
            }
            default:
                Fail("bad escape");
            }
        }
    }

    const std::string& m_text;
    const std::string& m_source;
    std::size_t m_at = 0;
};

const JsonValue* Member(const JsonObject& object, const std::string& key) {
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &it->second;
}

[[noreturn]] void Damaged(const std::string& source, const std::string& what) {
    throw Error(error_number::kBadFileMode, kSource, source + ": not a record file (" + what + ")");
}

std::string StringMember(const JsonObject& object, const std::string& key,
                         const std::string& source) {
    const JsonValue* value = Member(object, key);
    const auto* text = value ? std::get_if<std::string>(&value->value) : nullptr;
    if (!text) {
        Damaged(source, "no text \"" + key + "\"");
    }
    return *text;
}

JsonArray ArrayMember(const JsonObject& object, const std::string& key, const std::string& source) {
    const JsonValue* value = Member(object, key);
    if (!value) {
        return {};
    }
    const auto* array = std::get_if<std::shared_ptr<JsonArray>>(&value->value);
    if (!array) {
        Damaged(source, "\"" + key + "\" is not a list");
    }
    return **array;
}

// What a record's object holds but its field: the sidecar's entries and a database's documents.
AggregationRecord RecordOf(const JsonObject& object, const std::string& source) {
    AggregationRecord record;
    record.op = StringMember(object, "operator", source);
    record.created = StringMember(object, "created", source);
    for (const JsonValue& input : ArrayMember(object, "inputs", source)) {
        const auto* name = std::get_if<std::string>(&input.value);
        if (!name) {
            Damaged(source, "an input is not a text");
        }
        record.inputs.push_back(*name);
    }
    for (const JsonValue& weight : ArrayMember(object, "weights", source)) {
        const auto* number = std::get_if<double>(&weight.value);
        if (!number) {
            Damaged(source, "a weight is not a number");
        }
        record.weights.push_back(*number);
    }
    if (const JsonValue* gamma = Member(object, "gamma")) {
        const auto* number = std::get_if<double>(&gamma->value);
        if (!number) {
            Damaged(source, "gamma is not a number");
        }
        record.gamma = *number;
    }
    return record;
}

std::string ReadWholeFile(const std::string& path, bool& exists) {
    std::ifstream in(path, std::ios::binary);
    exists = static_cast<bool>(in);
    if (!in) {
        if (errno != ENOENT) {
            throw FileError(errno, kSource, path);
        }
        return {};
    }
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

} // namespace

std::string AggregationRecordsToJson(const std::vector<AggregationRecord>& records) {
    std::string out =
        "{\n  \"version\": " + std::to_string(kFormatVersion) + ",\n  \"aggregations\": [";
    for (std::size_t i = 0; i < records.size(); ++i) {
        const AggregationRecord& r = records[i];
        out += i == 0 ? "\n" : ",\n";
        out += "    {\n      \"field\": " + Quoted(r.field) + ",\n      \"inputs\": [";
        for (std::size_t k = 0; k < r.inputs.size(); ++k) {
            out += (k > 0 ? ", " : "") + Quoted(r.inputs[k]);
        }
        out += "],\n      \"operator\": " + Quoted(r.op);
        if (r.gamma) {
            out += ",\n      \"gamma\": " + NumberText(*r.gamma);
        }
        if (!r.weights.empty()) {
            out += ",\n      \"weights\": [";
            for (std::size_t k = 0; k < r.weights.size(); ++k) {
                out += (k > 0 ? ", " : "") + NumberText(r.weights[k]);
            }
            out += "]";
        }
        out += ",\n      \"created\": " + Quoted(r.created) + "\n    }";
    }
    out += records.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return out;
}

std::vector<AggregationRecord> AggregationRecordsFromJson(const std::string& text,
                                                          const std::string& source) {
    const JsonValue document = JsonParser(text, source).ParseDocument();
    const auto* root = std::get_if<std::shared_ptr<JsonObject>>(&document.value);
    if (!root) {
        Damaged(source, "not an object");
    }
    std::vector<AggregationRecord> records;
    for (const JsonValue& item : ArrayMember(**root, "aggregations", source)) {
        const auto* object = std::get_if<std::shared_ptr<JsonObject>>(&item.value);
        if (!object) {
            Damaged(source, "an aggregation is not an object");
        }
        std::string field = StringMember(**object, "field", source);
        AggregationRecord record = RecordOf(**object, source);
        record.field = std::move(field);
        records.push_back(std::move(record));
    }
    return records;
}

std::string DescribeAggregationRecord(const AggregationRecord& record,
                                      const util::ITextSource& texts) {
    std::string inputs;
    for (const auto& input : record.inputs) {
        inputs += (inputs.empty() ? "" : ", ") + input;
    }
    std::string op = record.op;
    if (record.gamma) {
        op += " (" + texts.ResourceString(kTextAggregationGamma) + " " + NumberText(*record.gamma) +
              ")";
    }
    if (!record.weights.empty()) {
        std::string weights;
        for (const double w : record.weights) {
            weights += (weights.empty() ? "" : ", ") + NumberText(w);
        }
        op += " (" + texts.ResourceString(kTextAggregationWeights) + " " + weights + ")";
    }
    std::string text = texts.ResourceString(kTextAggregationRecord);
    const std::vector<std::string> arguments = {record.field, op, inputs, record.created};
    for (std::size_t i = arguments.size(); i-- > 0;) {
        const std::string placeholder = "%" + std::to_string(i + 1);
        for (auto at = text.find(placeholder); at != std::string::npos;
             at = text.find(placeholder, at + arguments[i].size())) {
            text.replace(at, placeholder.size(), arguments[i]);
        }
    }
    return text;
}

std::string AggregationDocument(const AggregationRecord& record) {
    std::string out = "{\"inputs\":[";
    for (std::size_t k = 0; k < record.inputs.size(); ++k) {
        out += (k > 0 ? "," : "") + Quoted(record.inputs[k]);
    }
    out += "],\"operator\":" + Quoted(record.op);
    if (record.gamma) {
        out += ",\"gamma\":" + NumberText(*record.gamma);
    }
    if (!record.weights.empty()) {
        out += ",\"weights\":[";
        for (std::size_t k = 0; k < record.weights.size(); ++k) {
            out += (k > 0 ? "," : "") + NumberText(record.weights[k]);
        }
        out += "]";
    }
    return out + ",\"created\":" + Quoted(record.created) +
           ",\"version\":" + Quoted(record.version) + "}";
}

AggregationRecord AggregationFromDocument(const std::string& text, const std::string& field,
                                          const std::string& source) {
    const JsonValue document = JsonParser(text, source).ParseDocument();
    const auto* root = std::get_if<std::shared_ptr<JsonObject>>(&document.value);
    if (!root) {
        Damaged(source, "not an object");
    }
    AggregationRecord record = RecordOf(**root, source);
    record.field = field;
    if (const JsonValue* version = Member(**root, "version")) {
        if (const auto* versionText = std::get_if<std::string>(&version->value)) {
            record.version = *versionText;
        }
    }
    return record;
}

std::optional<std::string> DescribeAggregationOf(const std::vector<AggregationRecord>& records,
                                                 const std::string& field,
                                                 const util::ITextSource& texts) {
    for (auto record = records.rbegin(); record != records.rend(); ++record) {
        if (record->field == field) {
            return DescribeAggregationRecord(*record, texts);
        }
    }
    return std::nullopt;
}

std::vector<AggregationRecord> SourceAggregationRecords::Records() const {
    return m_records->AggregationRecords();
}

void SourceAggregationRecords::Validate(
    const std::function<bool(const std::string&)>& /*fieldExists*/) {
    m_records->RemoveRecordsOfMissingColumns();
}

void SourceAggregationRecords::Append(const AggregationRecord& record) {
    m_records->WriteAggregationRecord(record);
}

std::unique_ptr<IAggregationRecords>
OpenAggregationRecords(const std::shared_ptr<host::IFeatureClass>& featureClass,
                       const std::string& folder, const std::string& name) {
    if (auto records = std::dynamic_pointer_cast<host::ICriterionRecords>(featureClass)) {
        // The table's name only: a connection's text may hold a password.
        return std::make_unique<SourceAggregationRecords>(std::move(records), name);
    }
    return std::make_unique<AggregationSidecar>(folder, name);
}

AggregationSidecar::AggregationSidecar(const std::string& folder, const std::string& name)
    : m_path(MetadataFilePath(folder, name) + ".json") {}

bool AggregationSidecar::Writable() const {
    // The file is replaced, never written in place: what matters is the folder, and the file's
    // own permission, which the replacement keeps, as the user's word.
    return MetadataFileWritable(m_path);
}

std::vector<AggregationRecord> AggregationSidecar::Records() const {
    bool exists = false;
    const std::string text = ReadWholeFile(m_path, exists);
    if (!exists) {
        return {};
    }
    return AggregationRecordsFromJson(text, m_path);
}

void AggregationSidecar::Validate(const std::function<bool(const std::string&)>& fieldExists) {
    std::vector<AggregationRecord> records = Records();
    const auto gone =
        std::remove_if(records.begin(), records.end(),
                       [&](const AggregationRecord& r) { return !fieldExists(r.field); });
    if (gone == records.end()) {
        return; // nothing to drop: the file stays as it is
    }
    records.erase(gone, records.end());
    Write(records);
}

void AggregationSidecar::Append(const AggregationRecord& record) {
    std::vector<AggregationRecord> records = Records();
    std::erase_if(records, [&](const AggregationRecord& r) { return r.field == record.field; });
    records.push_back(record);
    Write(records);
}

void AggregationSidecar::Write(const std::vector<AggregationRecord>& records) const {
    util::RemoveStaleReplacements(m_path);
    util::FileReplacement replacement(m_path, kSource, 0666);
    replacement.Write(AggregationRecordsToJson(records));
    replacement.Commit();
}

} // namespace quorel::fzy
