// The aggregation records beside a shapefile: the JSON text read back exactly, a damaged file
// refused with its name, and the changes (validation, a recomputed field) made by replacement.

#include "fzy/AggregationRecords.h"

#include "tests/support/ScratchFolder.h"
#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sys/stat.h>

namespace quorel::fzy {
namespace {

bool operator==(const AggregationRecord& a, const AggregationRecord& b) {
    return a.field == b.field && a.inputs == b.inputs && a.op == b.op && a.gamma == b.gamma &&
           a.weights == b.weights && a.created == b.created && a.version == b.version;
}

const AggregationRecord kGamma{"FZY_AGG", {"FZY_SLOPE", "FZY_POPULA"}, "gamma", 0.1,
                               {},        "2026-11-24T15:04:05+01:00", ""};
// Names a user may give: quotes, backslashes, accents, a control character.
const AggregationRecord kOwa{"Prés \"sec\"",   {"a\\b", "c\td", "é\x01"},   "owa", std::nullopt,
                             {0.1, 1e-300, 3}, "2026-11-24T15:04:06-03:30", ""};

TEST(AggregationRecordsTest, theJsonReadsBackEveryRecordExactly) {
    const std::string text = AggregationRecordsToJson({kGamma, kOwa});
    const auto back = AggregationRecordsFromJson(text, "p.fzy.json");
    ASSERT_EQ(back.size(), 2u);
    EXPECT_TRUE(back[0] == kGamma);
    EXPECT_TRUE(back[1] == kOwa);
    EXPECT_TRUE(AggregationRecordsFromJson(AggregationRecordsToJson({}), "p").empty());
    // One record as a database keeps it: a document of its own, with the program's version.
    for (AggregationRecord record : {kGamma, kOwa}) {
        record.version = "10.3.2";
        EXPECT_TRUE(AggregationFromDocument(AggregationDocument(record), record.field, "d") ==
                    record);
    }
    // What a person may write by hand: escapes, other spacing, keys of a later version.
    const auto edited = AggregationRecordsFromJson(
        R"({"aggregations":[{"created":"t","operator":"and","field":"\u00e9\ud83d\ude00",)"
        R"("inputs":["A","B"],"note":{"by":[1,true,null]}}],"version":2})",
        "p");
    ASSERT_EQ(edited.size(), 1u);
    EXPECT_EQ(edited[0].field, "é\xF0\x9F\x98\x80");
}

TEST(AggregationRecordsTest, aDamagedFileIsRefusedWithItsName) {
    const std::string whole = AggregationRecordsToJson({kGamma});
    for (const std::string& damaged :
         {whole.substr(0, whole.size() / 2), std::string("[]"),
          std::string(R"({"aggregations":[{"field":"X","operator":"and"}]})"),
          std::string(R"({"aggregations":[{"field":"X","operator":"and","created":"t",)"
                      R"("inputs":["A"],"weights":["1"]}]})")}) {
        SCOPED_TRACE(damaged);
        const Error error =
            test::Thrown([&] { AggregationRecordsFromJson(damaged, "/d/p.fzy.json"); });
        EXPECT_NE(error.Description().find("/d/p.fzy.json"), std::string::npos)
            << error.Description();
    }
}

TEST(AggregationRecordsTest, validationDropsGoneFieldsAndAppendReplacesARecomputedOne) {
    test::ScratchFolder folder;
    AggregationSidecar sidecar(folder.Path(), "parcels.shp");
    EXPECT_EQ(sidecar.Path(), folder.Path() + "/parcels.fzy.json");
    EXPECT_TRUE(sidecar.Records().empty());
    sidecar.Append(kGamma);
    sidecar.Append(kOwa);
    AggregationRecord again = kGamma;
    again.op = "and";
    again.gamma.reset();
    sidecar.Append(again);
    auto records = sidecar.Records();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_TRUE(records[0] == kOwa);
    EXPECT_TRUE(records[1] == again);

    struct stat before {};
    ASSERT_EQ(::stat(sidecar.Path().c_str(), &before), 0);
    sidecar.Validate([](const std::string&) { return true; });
    struct stat after {};
    ASSERT_EQ(::stat(sidecar.Path().c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino); // nothing dropped: the file is left alone

    sidecar.Validate([](const std::string& field) { return field == "FZY_AGG"; });
    records = sidecar.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(records[0] == again);
}

} // namespace
} // namespace quorel::fzy
