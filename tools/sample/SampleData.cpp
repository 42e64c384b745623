#include "tools/sample/SampleData.h"

#include "tools/sample/PolygonShapefile.h"

#include <cmath>
#include <numbers>
#include <random>

namespace quorel::tools {
namespace {

constexpr double kCellSize = 100.0;

double RiverY(double x, double extent) {
    return extent * (0.5 + 0.15 * std::sin(x / extent * 3.0 * std::numbers::pi));
}

// Relief in metres: a valley along a meandering river across the district, between hills.
double Altitude(double x, double y, double extent) {
    const double valley = std::abs(y - RiverY(x, extent));
    return 150.0 + 0.12 * valley + 120.0 * std::sin(x / 900.0) * std::cos(y / 700.0) +
           40.0 * std::sin((x + y) / 350.0);
}

} // namespace

void WriteSampleShapefile(const std::string& shpPath, std::size_t count, std::uint64_t seed) {
    const std::vector<FieldSpec> fields = {
        {"PARCEL_ID", 'N', 9, 0}, {"POPULATION", 'N', 9, 0}, {"SLOPE", 'N', 7, 2},
        {"ALTITUDE", 'N', 8, 1},  {"DISTANCE", 'N', 10, 1},  {"LANDUSE", 'C', 12, 0},
    };
    const auto columns = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(count))));
    const double extent = static_cast<double>(columns) * kCellSize;
    std::mt19937_64 random(seed);
    // Uniform in [0, 1) from the engine's raw output, so that the data do not depend on how a
    // standard library implements its distributions.
    auto uniform = [&random] { return static_cast<double>(random() >> 11) * 0x1.0p-53; };
    auto normal = [&uniform] {
        const double u = std::max(uniform(), 1e-300);
        return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * std::numbers::pi * uniform());
    };
    WritePolygonShapefile(shpPath, fields, count, [&](std::size_t index, auto& values) {
        const double x = (static_cast<double>(index % columns) + 0.5) * kCellSize;
        const double y = (static_cast<double>(index / columns) + 0.5) * kCellSize;
        const double altitude = Altitude(x, y, extent) + 4.0 * normal();
        const double h = 10.0;
        const double gx = (Altitude(x + h, y, extent) - Altitude(x - h, y, extent)) / (2 * h);
        const double gy = (Altitude(x, y + h, extent) - Altitude(x, y - h, extent)) / (2 * h);
        const double slope = std::max(
            0.0, std::atan(std::hypot(gx, gy)) * 180.0 / std::numbers::pi + 0.8 * normal());
        const double distance = std::abs(y - RiverY(x, extent));
        const double density =
            std::exp(6.5 - altitude / 120.0 - distance / 1500.0 + 1.2 * normal());
        const double population = std::floor(density * (uniform() < 0.08 ? 0.0 : 1.0));
        const char* landuse = population > 150 ? "urban"
                              : slope > 12     ? "forest"
                              : distance < 250 ? "meadow"
                                               : "crops";
        values[0] = static_cast<double>(index + 1);
        values[1] = population;
        values[2] = std::round(slope * 100.0) / 100.0;
        values[3] = std::round(altitude * 10.0) / 10.0;
        values[4] = std::round(distance * 10.0) / 10.0;
        values[5] = std::string(landuse);
        // Surveys have gaps: about one parcel in a hundred has no slope measured.
        if (uniform() < 0.01) {
            values[2] = host::Value{};
        }
    });
}

} // namespace quorel::tools
