#include "host/shapefile/Calculator.h"

#include "host/script/ScriptEngine.h"
#include "host/shapefile/DbfTable.h"
#include "host/shapefile/Shapefile.h"
#include "util/Error.h"
#include "util/NumberText.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

namespace quorel::host::shapefile {
namespace {

constexpr const char* kSource = "Calculator";

const DbfField& NumericColumn(const DbfHeader& header, const std::string& name) {
    const auto found = header.Find(name);
    if (!found) {
        throw Error(error_number::kHostFailure, kSource, "Field not found: " + name);
    }
    const DbfField& field = header.fields[*found];
    if (!field.IsNumeric()) {
        throw Error(error_number::kTypeMismatch, kSource,
                    "Type mismatch: the field " + name + " is not numeric");
    }
    return field;
}

// What one thread remembers of the input texts it has met: per text, the script's value and the
// output text written for it. A script that reads one field and nothing else gives records with
// the same text in that field the same output text, since nothing passes from one feature to
// the next; where a table repeats its values, as fields kept to a few decimals or holding
// classes do, most records are then a lookup and a copy. Bounded, so that memory does not grow
// with the table: past the bound, a new text gets an entry of its record's own, for the batch.
class RepeatMemo {
public:
    static constexpr std::size_t kTextBytes = 32;

    struct Key {
        std::uint64_t low = 0;
        std::uint64_t high = 0;
        bool operator==(const Key&) const = default;
    };
    struct Entry {
        double value = 0.0;
        bool isNull = false;
        bool written = false; // text holds the output text
        char text[kTextBytes];
    };

    RepeatMemo() : m_slots(kSlots, 0) {}

    // The entry of the key; a new key gets a new entry, unevaluated, and `added` is set.
    std::uint32_t Find(const Key& key, bool& added) {
        std::size_t slot = SlotOf(key);
        while (m_slots[slot] != 0) {
            if (m_keys[m_slots[slot] - 1] == key) {
                added = false;
                return m_slots[slot] - 1;
            }
            slot = (slot + 1) & (kSlots - 1);
        }
        added = true;
        m_entries.emplace_back();
        if (m_lasting < kMaxEntries) {
            m_keys.push_back(key);
            m_slots[slot] = static_cast<std::uint32_t>(m_entries.size());
            ++m_lasting;
        }
        return static_cast<std::uint32_t>(m_entries.size() - 1);
    }

    Entry& operator[](std::uint32_t index) { return m_entries[index]; }

    // Drops the entries that were for the current batch only, past the bound.
    void Forget() { m_entries.resize(m_lasting); }

private:
    static constexpr std::size_t kSlots = std::size_t{1} << 14;
    static constexpr std::size_t kMaxEntries = kSlots / 2; // at most half full: short probes

    static std::size_t SlotOf(const Key& key) {
        const std::uint64_t mixed =
            key.low * 0x9E3779B97F4A7C15 + (key.high ^ (key.low >> 29)) * 0xC2B2AE3D27D4EB4F;
        return static_cast<std::size_t>(mixed >> 50);
    }

    std::vector<std::uint32_t> m_slots; // 0: free; else the entry's index + 1
    std::vector<Key> m_keys;            // per lasting entry
    std::vector<Entry> m_entries;       // the lasting entries first
    std::size_t m_lasting = 0;
};

// Fills the output column of a batch of records with the script's value per record.
class ScriptFiller final : public DbfColumnFiller {
public:
    ScriptFiller(const script::Program& program, const DbfHeader& layout, std::string output,
                 const std::optional<DbfRangeCheck>& rangeCheck = std::nullopt)
        : m_program(program), m_output(NumericColumn(layout, output)),
          m_outputName(std::move(output)), m_recordLength(layout.recordLength) {
        // Each referenced name is a numeric column, or FID, the record's number.
        const DbfField* field = nullptr;
        std::vector<std::optional<std::size_t>> columns; // per input, its place in the table
        for (const std::string& name : program.FieldNames()) {
            if (name == "FID" && !layout.Find(name)) {
                m_inputs.emplace_back(std::nullopt);
                columns.emplace_back(std::nullopt);
            } else {
                field = &NumericColumn(layout, name);
                m_inputs.emplace_back(*field);
                columns.push_back(layout.Find(name));
            }
        }
        if (rangeCheck) {
            m_low = rangeCheck->low;
            m_high = rangeCheck->high;
            for (const std::string& name : rangeCheck->fields) {
                // A checked field the script reads anyway is not read twice.
                const auto input = std::find(columns.begin(), columns.end(), layout.Find(name));
                m_checks.push_back({DbfNumberReader(NumericColumn(layout, name)),
                                    input == columns.end()
                                        ? std::nullopt
                                        : std::optional<std::size_t>(input - columns.begin())});
            }
            m_outside = std::make_unique<std::atomic<std::size_t>[]>(m_checks.size());
            return; // each record's values checked: none remembered
        }
        // One field and nothing else read, and texts short enough to keep.
        if (m_inputs.size() == 1 && field != nullptr && field->length <= 16 &&
            m_output.length <= RepeatMemo::kTextBytes) {
            m_key = *field;
        }
    }

    // The columns and the evaluator of one thread.
    struct Work final : Scratch {
        explicit Work(const script::Program& program, std::size_t inputCount)
            : evaluator(program), inputs(inputCount) {
            for (const script::Column& input : inputs) {
                inputPointers.push_back(&input);
            }
        }
        script::Evaluator evaluator;
        std::vector<script::Column> inputs;
        std::vector<const script::Column*> inputPointers;
        script::Column output;
        script::Column checked; // a checked field the script does not read
        RepeatMemo memo;
        bool remembering = true;             // until a batch shows too few repeats
        std::vector<std::uint32_t> entryOf;  // per record of the batch
        std::vector<std::size_t> newRecords; // the first record of each new text
    };

    std::unique_ptr<Scratch> NewScratch() const override {
        return std::make_unique<Work>(m_program, m_inputs.size());
    }

    void Fill(std::size_t firstRecord, std::size_t count, char* records,
              Scratch* scratch) const override {
        std::unique_ptr<Scratch> own;
        if (scratch == nullptr) {
            own = NewScratch();
            scratch = own.get();
        }
        Work& work = static_cast<Work&>(*scratch);
        if (m_key && work.remembering) {
            try {
                if (FillRemembering(count, records, work)) {
                    return;
                }
            } catch (...) {
                // Entries of the failed batch have no text yet: remember nothing more.
                work.remembering = false;
                throw;
            }
        }
        FillEach(firstRecord, count, records, work);
    }

    void BeforeReplace() const override {
        if (!m_refused) {
            return;
        }
        std::vector<std::size_t> outside;
        for (std::size_t k = 0; k < m_checks.size(); ++k) {
            outside.push_back(m_outside[k].load());
        }
        throw ValuesOutsideRange(std::move(outside));
    }

private:
    struct Check {
        DbfNumberReader reader;
        std::optional<std::size_t> input; // the script's input column that holds the field
    };

    // Counts the batch's checked values outside the interval; true once any batch had some: the
    // table will be refused, and its values need not be computed.
    bool Refused(std::size_t count, const char* records, Work& work) const {
        for (std::size_t k = 0; k < m_checks.size(); ++k) {
            const Check& check = m_checks[k];
            const script::Column* column = &work.checked;
            if (check.input) {
                column = &work.inputs[*check.input];
            } else {
                work.checked.resize(count);
                check.reader.Read(records, m_recordLength, count, work.checked.values.data(),
                                  work.checked.isNull.data());
            }
            const std::size_t n = CountValuesOutside(column->values.data(), column->isNull.data(),
                                                     records, m_recordLength, count, m_low, m_high);
            if (n > 0) {
                m_outside[k] += n;
                m_refused = true;
            }
        }
        return m_refused;
    }

    void FillEach(std::size_t firstRecord, std::size_t count, char* records, Work& work) const {
        for (std::size_t k = 0; k < m_inputs.size(); ++k) {
            script::Column& input = work.inputs[k];
            input.resize(count);
            if (m_inputs[k]) {
                m_inputs[k]->Read(records, m_recordLength, count, input.values.data(),
                                  input.isNull.data());
                continue;
            }
            for (std::size_t r = 0; r < count; ++r) {
                input.isNull[r] = 0;
                input.values[r] = static_cast<double>(firstRecord + r);
            }
        }
        if (!m_checks.empty() && Refused(count, records, work)) {
            return;
        }
        script::Column& output = work.output;
        output.resize(count);
        work.evaluator.Evaluate(work.inputPointers, output);
        for (std::size_t r = 0; r < count; ++r) {
            char* record = Record(records, r);
            if (DbfBatchFile::IsDeleted(record)) {
                continue;
            }
            Format(output.values[r], output.isNull[r] != 0, record + m_output.offset);
        }
    }

    // As FillEach, the script run once per new input text. The new texts are evaluated in the
    // order they first come, deleted records' too, and the values are written in record order,
    // so that a failure is the one FillEach would meet first. A batch where more than half the
    // records bring a new text is left to FillEach (false), and the thread remembers no more:
    // looking texts up would cost more than it saves.
    bool FillRemembering(std::size_t count, char* records, Work& work) const {
        RepeatMemo& memo = work.memo;
        work.entryOf.resize(count);
        work.newRecords.clear();
        const char* const end = records + count * m_recordLength;
        for (std::size_t r = 0; r < count; ++r) {
            bool added = false;
            work.entryOf[r] = memo.Find(KeyAt(Record(records, r) + m_key->offset, end), added);
            if (added) {
                work.newRecords.push_back(r);
                if (work.newRecords.size() * 2 > count) {
                    work.remembering = false; // entries left unevaluated: never read again
                    return false;
                }
            }
        }

        const std::size_t fresh = work.newRecords.size();
        if (fresh > 0) {
            script::Column& input = work.inputs[0];
            input.resize(fresh);
            for (std::size_t i = 0; i < fresh; ++i) {
                const std::optional<double> value =
                    (*m_inputs[0])(Record(records, work.newRecords[i]));
                input.values[i] = value.value_or(0.0);
                input.isNull[i] = value ? 0 : 1;
            }
            work.output.resize(fresh);
            work.evaluator.Evaluate(work.inputPointers, work.output);
            for (std::size_t i = 0; i < fresh; ++i) {
                RepeatMemo::Entry& entry = memo[work.entryOf[work.newRecords[i]]];
                entry.value = work.output.values[i];
                entry.isNull = work.output.isNull[i] != 0;
            }
        }

        const std::size_t length = m_output.length;
        for (std::size_t r = 0; r < count; ++r) {
            char* record = Record(records, r);
            if (DbfBatchFile::IsDeleted(record)) {
                continue;
            }
            char* destination = record + m_output.offset;
            RepeatMemo::Entry& entry = memo[work.entryOf[r]];
            if (entry.written) {
                CopyText(destination, entry.text, length);
                continue;
            }
            Format(entry.value, entry.isNull, destination);
            CopyText(entry.text, destination, length);
            entry.written = true;
        }
        memo.Forget();
        return true;
    }

    // The field's bytes, in two words: whole words where the batch goes on for 16 bytes.
    RepeatMemo::Key KeyAt(const char* field, const char* end) const {
        const std::size_t keyLength = m_key->length;
        std::uint64_t words[2] = {0, 0};
        if (end - field >= 16) {
            std::memcpy(words, field, 16);
            if (keyLength < 16) {
                const std::size_t bits = 8 * keyLength;
                words[1] &= bits <= 64 ? 0 : (std::uint64_t{1} << (bits - 64)) - 1;
                words[0] &= bits >= 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
            }
        } else {
            std::memcpy(words, field, keyLength);
        }
        return {words[0], words[1]};
    }

    // Copies a text of at most RepeatMemo::kTextBytes in at most two moves of 16 bytes.
    static void CopyText(char* destination, const char* source, std::size_t length) {
        if (length >= 16) {
            std::memcpy(destination, source, 16);
            std::memcpy(destination + length - 16, source + length - 16, 16);
        } else {
            std::memcpy(destination, source, length);
        }
    }

    void Format(double value, bool isNull, char* destination) const {
        if (isNull) {
            FormatDbfNumber(std::nullopt, m_output, destination);
        } else if (!FormatDbfNumber(value, m_output, destination)) {
            throw Error(error_number::kOverflow, kSource,
                        "Overflow: " + util::FormatNumber(value) + " does not fit the field " +
                            m_outputName + " (" + std::to_string(m_output.length) + " characters)");
        }
    }

    char* Record(char* records, std::size_t index) const {
        return records + index * m_recordLength;
    }

    const script::Program& m_program;
    std::vector<std::optional<DbfNumberReader>> m_inputs; // none: FID
    DbfField m_output;
    std::string m_outputName;
    std::size_t m_recordLength;
    // The one field read, where records may share the output of the same text in it.
    std::optional<DbfField> m_key;
    std::vector<Check> m_checks;
    double m_low = 0.0;
    double m_high = 0.0;
    std::unique_ptr<std::atomic<std::size_t>[]> m_outside; // per check
    mutable std::atomic<bool> m_refused{false};
};

} // namespace

void Calculator::Calculate() {
    if (!m_cursor) {
        throw Error(error_number::kObjectRequired, kSource, "The calculator has no cursor");
    }
    auto* cursor = dynamic_cast<ShapefileCursor*>(m_cursor.get());
    if (!cursor) {
        throw Error(error_number::kHostFailure, kSource,
                    "The calculator works on the cursors of shapefiles only");
    }
    ShapefileFeatureClass& featureClass = cursor->FeatureClass();
    if (cursor->AtStart() && featureClass.IsFieldPending(m_field)) {
        // A field just added: written once, with its values. The script is compiled there, so
        // that even one that does not compile leaves the field written (Null) now, not later.
        const ProgressHiddenOnExit progressHidden(m_statusBar.get());
        std::optional<script::Program> program;
        std::size_t total = 0;
        featureClass.WritePendingField(
            [&](const DbfHeader& layout) {
                program.emplace(script::Program::Compile(m_preExpression, m_expression));
                total = layout.recordCount;
                return std::make_unique<ScriptFiller>(*program, layout, m_field, m_rangeCheck);
            },
            [&](std::size_t done) { ShowProgress(done, total); }, m_sharing);
        cursor->MoveToEnd();
        return;
    }

    const script::Program program = script::Program::Compile(m_preExpression, m_expression);
    const ProgressHiddenOnExit progressHidden(m_statusBar.get());
    featureClass.WritePendingField();
    if (m_rangeCheck) {
        std::vector<std::size_t> outside =
            CountDbfValuesOutside(featureClass.DbfPath(), m_rangeCheck->fields, m_rangeCheck->low,
                                  m_rangeCheck->high, m_sharing);
        if (std::any_of(outside.begin(), outside.end(), [](std::size_t n) { return n > 0; })) {
            throw ValuesOutsideRange(std::move(outside));
        }
    }
    DbfBatchFile table(featureClass.DbfPath(), true, cursor->Position(), m_sharing.batchBytes);
    const DbfHeader& header = table.Header();
    const ScriptFiller filler(program, header, m_field);
    const std::unique_ptr<DbfColumnFiller::Scratch> scratch = filler.NewScratch();
    const std::size_t first = cursor->Position();
    const std::size_t total = header.recordCount > first ? header.recordCount - first : 0;
    std::size_t done = 0;
    while (table.Next()) {
        filler.Fill(table.BatchFirstRecord(), table.BatchSize(), table.Record(0), scratch.get());
        table.Write();
        done += table.BatchSize();
        ShowProgress(done, total);
    }
    cursor->MoveToEnd();
}

bool Calculator::ChecksRangeOf(const IFeatureClass& table) const {
    return dynamic_cast<const ShapefileFeatureClass*>(&table) != nullptr;
}

void Calculator::ShowProgress(std::size_t done, std::size_t total) {
    if (m_statusBar && total > 0) {
        m_statusBar->Progress(static_cast<double>(done) / static_cast<double>(total));
    }
}

} // namespace quorel::host::shapefile
