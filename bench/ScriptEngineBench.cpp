// The field calculator's script engine over 10 million values per kind, beside the direct
// evaluation of the same degrees over the same array. Compare BM_ScriptEngine/k with
// BM_DirectMembership/k of the same run.

#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/Script.h"
#include "host/script/ScriptEngine.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

using quorel::host::script::Column;
using quorel::host::script::Program;

constexpr std::size_t kValues = 10'000'000;

// Values spread over all the pieces of the shapes (parameters 0, 10, 20, 30), one in 100 Null.
const Column& Values() {
    static const Column column = [] {
        Column c;
        c.resize(kValues);
        std::mt19937_64 random(42);
        std::uniform_real_distribution<double> spread(-10.0, 40.0);
        for (std::size_t i = 0; i < kValues; ++i) {
            c.values[i] = spread(random);
            c.isNull[i] = i % 100 == 0 ? 1 : 0;
        }
        return c;
    }();
    return column;
}

struct Parameters {
    double a = 0, b = 10, c = 20, d = 30;
    explicit Parameters(int kind) { quorel::criterion::CompleteParameters(kind, a, b, c, d); }
};

void BM_DirectMembership(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    const Parameters p(kind);
    const quorel::criterion::MembershipFunction degree(kind, p.a, p.b, p.c, p.d);
    const Column& in = Values();
    std::vector<double> out(kValues);
    for (auto _ : state) {
        degree.Evaluate(in.values.data(), out.data(), kValues);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kValues));
}
BENCHMARK(BM_DirectMembership)->DenseRange(1, 5)->Unit(benchmark::kMillisecond);

void BM_ScriptEngine(benchmark::State& state) {
    const int kind = static_cast<int>(state.range(0));
    const Parameters p(kind);
    const Program program =
        Program::Compile(*quorel::criterion::BuildPreExpression(kind, "VALUE", p.a, p.b, p.c, p.d),
                         quorel::criterion::kCalculatorExpression);
    const std::vector<const Column*> inputs = {&Values()};
    Column out;
    for (auto _ : state) {
        program.Evaluate(inputs, out);
        benchmark::DoNotOptimize(out.values.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kValues));
}
BENCHMARK(BM_ScriptEngine)->DenseRange(1, 5)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
