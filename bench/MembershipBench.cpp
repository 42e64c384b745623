// Degrees of membership over 10 million values per kind, beside a plain copy of the same array
// (the memory-bandwidth floor). Compare each kind's time with BM_Copy of the same run.

#include "criterion/Membership.h"
#include "criterion/Parameters.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr std::size_t kValues = 10'000'000;

const std::vector<double>& Values() {
    static const std::vector<double> values = [] {
        std::vector<double> v(kValues);
        std::mt19937_64 random(42);
        std::uniform_real_distribution<double> spread(-10.0, 40.0);
        for (auto& x : v) {
            x = spread(random);
        }
        return v;
    }();
    return values;
}

void BM_Copy(benchmark::State& state) {
    const auto& in = Values();
    std::vector<double> out(in.size());
    for (auto _ : state) {
        std::memcpy(out.data(), in.data(), in.size() * sizeof(double));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * in.size() * 8));
}
BENCHMARK(BM_Copy)->Unit(benchmark::kMillisecond);

void BM_Membership(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    double a = 0, b = 10, c = 20, d = 30;
    quorel::criterion::CompleteParameters(kind, a, b, c, d);
    const quorel::criterion::MembershipFunction degree(kind, a, b, c, d);
    const auto& in = Values();
    std::vector<double> out(in.size());
    for (auto _ : state) {
        degree.Evaluate(in.data(), out.data(), in.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * in.size() * 8));
}
BENCHMARK(BM_Membership)->DenseRange(1, 5)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
