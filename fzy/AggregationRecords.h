#pragma once

// The records of aggregated fields: which inputs, which operator and parameters, when. A
// shapefile keeps them in a JSON file beside it (NAME.fzy.json), since its .fzy keeps exactly the
// entries it has always held; other sources keep them where they keep their criterion records,
// behind the same interface.

#include "host/api/Host.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::util {
class ITextSource;
}

namespace quorel::fzy {

// The struct the hosts keep too; the shapefile's JSON file leaves its version out.
using AggregationRecord = host::AggregationRecord;

class IAggregationRecords {
public:
    virtual ~IAggregationRecords() = default;
    // Where the records live, for messages (a file's path, a table's name).
    virtual std::string Location() const = 0;
    // Whether this process may change them; asked before a run changes the table.
    virtual bool Writable() const = 0;
    // Every record in the order they were made; none when nothing was recorded yet.
    virtual std::vector<AggregationRecord> Records() const = 0;
    // Drops the records of the fields the layer no longer has (fieldExists answers no).
    virtual void Validate(const std::function<bool(const std::string&)>& fieldExists) = 0;
    // Adds a record after the others; one of the same field goes first (a field recomputed under
    // a name that was freed).
    virtual void Append(const AggregationRecord& record) = 0;
};

// Text ids of a record's description.
inline constexpr std::int16_t kTextAggregationRecord = 330;
inline constexpr std::int16_t kTextAggregationGamma = 331;
inline constexpr std::int16_t kTextAggregationWeights = 332;

// What `quorel meta` and the metadata window show of a record: its field, operator with
// parameters, inputs and time.
std::string DescribeAggregationRecord(const AggregationRecord& record,
                                      const util::ITextSource& texts);

// The description of the latest record of field among records; nothing when none is of field.
std::optional<std::string> DescribeAggregationOf(const std::vector<AggregationRecord>& records,
                                                 const std::string& field,
                                                 const util::ITextSource& texts);

// The records of a source that keeps them in its own data, beside its criterion records (a
// database). Validation is the source's own: it removes every record of a column gone.
class SourceAggregationRecords final : public IAggregationRecords {
public:
    SourceAggregationRecords(std::shared_ptr<host::ICriterionRecords> records, std::string location)
        : m_records(std::move(records)), m_location(std::move(location)) {}

    std::string Location() const override { return m_location; }
    // The host's write lock has already found the data writable.
    bool Writable() const override { return true; }
    std::vector<AggregationRecord> Records() const override;
    void Validate(const std::function<bool(const std::string&)>& fieldExists) override;
    void Append(const AggregationRecord& record) override;

private:
    std::shared_ptr<host::ICriterionRecords> m_records;
    std::string m_location;
};

// The records of a layer: in its source's data when the feature class keeps records so, else
// beside the shapefile folder/name.
std::unique_ptr<IAggregationRecords>
OpenAggregationRecords(const std::shared_ptr<host::IFeatureClass>& featureClass,
                       const std::string& folder, const std::string& name);

// The records of a shapefile, in folder/NAME.fzy.json (every ".shp" removed from name, as the
// .fzy is named). The file is read at each call and replaced whole, atomically, at each change;
// the caller holds the layer's write lock for the changes. A file that is not the JSON this
// writes throws quorel::Error naming it.
class AggregationSidecar final : public IAggregationRecords {
public:
    AggregationSidecar(const std::string& folder, const std::string& name);

    const std::string& Path() const { return m_path; }

    std::string Location() const override { return m_path; }
    bool Writable() const override;

    std::vector<AggregationRecord> Records() const override;
    void Validate(const std::function<bool(const std::string&)>& fieldExists) override;
    void Append(const AggregationRecord& record) override;

private:
    void Write(const std::vector<AggregationRecord>& records) const;

    std::string m_path;
};

// The JSON text of records, and back (throws quorel::Error from source on a damaged text).
std::string AggregationRecordsToJson(const std::vector<AggregationRecord>& records);
std::vector<AggregationRecord> AggregationRecordsFromJson(const std::string& text,
                                                          const std::string& source);

// One record as a JSON object of its own, version included, the field left out (a database
// keeps it beside the document), and back (throws quorel::Error from source on a damaged text).
std::string AggregationDocument(const AggregationRecord& record);
AggregationRecord AggregationFromDocument(const std::string& text, const std::string& field,
                                          const std::string& source);

} // namespace quorel::fzy
