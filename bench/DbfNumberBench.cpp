// Reading and writing the numbers of a table's column, per value: a column laid out as most
// tables are (N(7,2), blanks in front) read value by value with the general reader and with the
// column reader, and degrees of membership written into an N(19,11) field.

#include "host/shapefile/DbfTable.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace {

using quorel::host::shapefile::DbfField;

constexpr std::size_t kRecords = 1'000'000;
constexpr std::size_t kRecordLength = 8; // deletion flag and one N(7,2) field

DbfField SlopeField() {
    DbfField field;
    field.length = 7;
    field.decimals = 2;
    field.offset = 1;
    return field;
}

// Slopes from 0 to 60 degrees, one in 100 Null (blank).
const std::string& Records() {
    static const std::string records = [] {
        std::string text;
        text.reserve(kRecords * kRecordLength);
        std::mt19937_64 random(42);
        std::uniform_real_distribution<double> slope(0.0, 60.0);
        char field[16];
        for (std::size_t i = 0; i < kRecords; ++i) {
            text += ' ';
            if (i % 100 == 0) {
                text += "       ";
                continue;
            }
            std::snprintf(field, sizeof field, "%7.2f", slope(random));
            text += field;
        }
        return text;
    }();
    return records;
}

void BM_ParseValueByValue(benchmark::State& state) {
    const std::string& records = Records();
    const DbfField field = SlopeField();
    std::vector<double> values(kRecords);
    for (auto _ : state) {
        for (std::size_t r = 0; r < kRecords; ++r) {
            values[r] =
                quorel::host::shapefile::ParseDbfNumber(
                    quorel::host::shapefile::FieldBytes(records.data() + r * kRecordLength, field))
                    .value_or(0.0);
        }
        benchmark::DoNotOptimize(values.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kRecords));
}
BENCHMARK(BM_ParseValueByValue)->Unit(benchmark::kMillisecond);

void BM_ReadColumn(benchmark::State& state) {
    const std::string& records = Records();
    const quorel::host::shapefile::DbfNumberReader reader(SlopeField());
    std::vector<double> values(kRecords);
    std::vector<std::uint8_t> isNull(kRecords);
    for (auto _ : state) {
        reader.Read(records.data(), kRecordLength, kRecords, values.data(), isNull.data());
        benchmark::DoNotOptimize(values.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kRecords));
}
BENCHMARK(BM_ReadColumn)->Unit(benchmark::kMillisecond);

void BM_FormatDegrees(benchmark::State& state) {
    DbfField field;
    field.length = 19;
    field.decimals = 11;
    std::vector<double> degrees(kRecords);
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (std::size_t i = 0; i < kRecords; ++i) {
        // A third are 0 or 1, as outside a shape's slopes.
        degrees[i] = i % 3 == 0 ? static_cast<double>(i % 2) : unit(random);
    }
    std::string out(kRecords * field.length, ' ');
    for (auto _ : state) {
        for (std::size_t i = 0; i < kRecords; ++i) {
            quorel::host::shapefile::FormatDbfNumber(degrees[i], field,
                                                     out.data() + i * field.length);
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kRecords));
}
BENCHMARK(BM_FormatDegrees)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
