#pragma once

// A shapefile's attribute table (.dbf, dBASE III layout) read and written directly: GDAL's
// per-feature path is far too slow for a whole-column calculation, and adding a field must never
// leave a half-written table behind. The .shp and .shx are never touched here.

#include "util/FileReplacement.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorel::host::shapefile {

// How the table's texts (field names, character values) are encoded, from the .cpg beside it.
enum class DbfEncoding { Utf8, Windows1252 };

// A field's name takes at most this many bytes of the table's encoding.
inline constexpr std::size_t kDbfFieldNameBytes = 10;

struct DbfField {
    std::string name; // UTF-8
    char type = 'N';  // 'N', 'F', 'C', 'D', 'L'
    std::uint8_t length = 0;
    std::uint8_t decimals = 0;
    std::size_t offset = 0; // byte offset inside a record, after the deletion flag

    bool IsNumeric() const { return type == 'N' || type == 'F'; }
};

struct DbfHeader {
    std::uint32_t recordCount = 0;
    std::uint16_t headerLength = 0;
    std::uint16_t recordLength = 0;
    std::vector<DbfField> fields;
    DbfEncoding encoding = DbfEncoding::Windows1252;
    std::string rawHeader; // the header bytes as found, for rewriting

    // Index of the field of exactly that name, or nullopt.
    std::optional<std::size_t> Find(const std::string& name) const;
};

using FileHandle = util::FileDescriptor;

// Path helpers of a shapefile: "/data/roads.shp" -> "/data/roads.dbf" and so on.
std::string SiblingPath(const std::string& shpPath, const std::string& extension);

// Reads the encoding from the .cpg beside the .dbf (UTF-8 when it says so, Windows-1252
// otherwise, as for a table without a .cpg).
DbfEncoding ReadEncoding(const std::string& dbfPath);

// Reads and checks the header and field descriptors. Throws quorel::Error naming the file when
// it cannot be opened or is not a dBASE table.
DbfHeader ReadDbfHeader(const std::string& dbfPath);
DbfHeader ReadDbfHeader(int fd, const std::string& dbfPath);

// A column to add to a table, checked against the table as it stands (name free and valid, room
// left), not yet written.
struct DbfNewColumn {
    DbfHeader table;  // the table as it stands
    DbfHeader layout; // the table with the column: header, fields and record length
    DbfField field;   // the new column, as found in layout
};
DbfNewColumn PlanDbfField(const std::string& dbfPath, const std::string& name, char type,
                          std::uint8_t length, std::uint8_t decimals);

// Fills a column of a batch of records held in memory (`count` whole records of the layout the
// filler was made for, deletion flag included): every record not deleted gets a value. Fill may be
// called from several threads at once, each with scratch of its own, made by NewScratch and kept
// from batch to batch.
class DbfColumnFiller {
public:
    class Scratch {
    public:
        virtual ~Scratch() = default;
    };

    virtual ~DbfColumnFiller() = default;
    virtual std::unique_ptr<Scratch> NewScratch() const { return nullptr; }
    virtual void Fill(std::size_t firstRecord, std::size_t count, char* records,
                      Scratch* scratch) const = 0;
    // Once every batch is filled, before the new table replaces the old: a throw keeps the old.
    virtual void BeforeReplace() const {}

protected:
    DbfColumnFiller() = default;
    DbfColumnFiller(const DbfColumnFiller&) = default;
    DbfColumnFiller& operator=(const DbfColumnFiller&) = default;
};

// Receives how many records are done; called on the calling thread only.
using DbfProgress = std::function<void(std::size_t recordsDone)>;

// Checks that the file (fileSize bytes) holds the records its header counts, no fewer and no
// whole record more: a header that undercounts would have a rewrite drop the records behind.
// Throws Error(kHostLayerDamaged) naming the file.
void CheckDbfRecordCount(const DbfHeader& header, std::int64_t fileSize,
                         const std::string& dbfPath);

// Adds the planned column: the new table is written beside the old one, flushed to disk and
// renamed over it, so that a crash at any moment leaves either table whole. The column is Null
// in every record, or what `filler` puts there: the records are then filled on their way to the
// new table, in batches shared among the processor's cores, and a filler that fails leaves the
// old table as it was. Throws when the table changed since the plan was made.
// How the records are shared out: batches of about `batchBytes`, among `threads` threads (0: one
// per core). Tests use small batches and set the threads. A batch is read once per column and
// once more to be written: small enough to stay in a core's cache, the rereads cost little.
struct DbfWorkSharing {
    std::size_t batchBytes = std::size_t{256} << 10;
    std::size_t threads = 0;
};

void WriteDbfColumn(const std::string& dbfPath, const DbfNewColumn& plan,
                    const DbfColumnFiller* filler = nullptr, const DbfProgress& progress = {},
                    const DbfWorkSharing& sharing = {});

// Of count values read from consecutive records (one every recordLength bytes), how many are
// neither Null nor in [low, high], those of deleted records left out.
std::size_t CountValuesOutside(const double* values, const std::uint8_t* isNull,
                               const char* records, std::size_t recordLength, std::size_t count,
                               double low, double high);

// Per numeric field, in the order given, how many records not deleted hold a value that is
// neither Null nor in [low, high], as ParseDbfNumber reads it; the batches are shared as
// WriteDbfColumn shares them. Throws when a field is missing or not numeric.
std::vector<std::size_t> CountDbfValuesOutside(const std::string& dbfPath,
                                               const std::vector<std::string>& fields, double low,
                                               double high, const DbfWorkSharing& sharing = {});

// Plans and writes a column whose every value is Null.
void AddDbfField(const std::string& dbfPath, const std::string& name, char type,
                 std::uint8_t length, std::uint8_t decimals);

// Reading of a field value inside a record (the record's bytes include the deletion flag).
std::optional<double> ParseDbfNumber(std::string_view text);
inline std::string_view FieldBytes(const char* record, const DbfField& field) {
    return std::string_view(record + field.offset, field.length);
}

// Reads one numeric field of record after record. A value laid out as the field's width and
// decimals say (blanks, a sign, digits, the point before the declared decimals), as writers of
// tables lay them out, is read with no branch per character; any other text, Null included,
// is read by ParseDbfNumber. Either way the result is ParseDbfNumber's.
class DbfNumberReader {
public:
    explicit DbfNumberReader(const DbfField& field);
    std::optional<double> operator()(const char* record) const;
    // count records from `records`, one every recordLength bytes; a Null value reads as 0.
    void Read(const char* records, std::size_t recordLength, std::size_t count, double* values,
              std::uint8_t* isNull) const;

private:
    bool ReadLaidOut(const char* text, double& value) const;

    std::size_t m_offset;
    std::size_t m_length;
    std::size_t m_wholeWidth; // characters before the point (all of them without decimals)
    std::size_t m_decimals;
    bool m_laidOut; // whether the layout can hold a value ReadLaidOut reads exactly
    // The characters before the point read as one word, where the record holds 8 bytes up to
    // their end: masked, they match these words for a whole part of 0 or 1, as degrees have.
    bool m_wholeAsWord = false;
    std::uint64_t m_wholeMask = 0;
    std::uint64_t m_wholeZero = 0;
    std::uint64_t m_wholeOne = 0;
};

// Writes a number into a fixed-width numeric field: as many of the declared decimals as fit,
// exponent form as the last resort; false when even that does not fit. Null fills the field
// with '*', as GDAL writes a null number.
bool FormatDbfNumber(std::optional<double> value, const DbfField& field, char* destination);
bool FormatDbfNumber(double value, const DbfField& field, char* destination);

// Walks the records in batches of whole records, reading them into one buffer; Write puts the
// current batch back in place. Memory stays the size of one batch whatever the table's size.
class DbfBatchFile {
public:
    static constexpr std::size_t kDefaultBatchBytes = std::size_t{2} << 20;

    DbfBatchFile(const std::string& dbfPath, bool writable, std::size_t firstRecord = 0,
                 std::size_t batchBytes = kDefaultBatchBytes);

    const DbfHeader& Header() const { return m_header; }
    // Loads the next batch; false at the end.
    bool Next();
    std::size_t BatchFirstRecord() const { return m_batchFirst; }
    std::size_t BatchSize() const { return m_batchSize; }
    char* Record(std::size_t indexInBatch) {
        return m_buffer.data() + indexInBatch * m_header.recordLength;
    }
    static bool IsDeleted(const char* record) { return record[0] == '*'; }
    void Write();

private:
    std::string m_path;
    FileHandle m_file;
    DbfHeader m_header;
    std::vector<char> m_buffer;
    std::size_t m_next = 0;
    std::size_t m_batchFirst = 0;
    std::size_t m_batchSize = 0;
};

// Converts texts between the table's encoding and UTF-8.
std::string DecodeDbfText(std::string_view bytes, DbfEncoding encoding);
std::string EncodeDbfText(const std::string& utf8, DbfEncoding encoding);

// "Cannot open PATH: permission denied" with the matching error number.
[[noreturn]] void ThrowFileError(int errnoValue, const std::string& verb, const std::string& path);

} // namespace quorel::host::shapefile
