#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace quorel::tools {

// A synthetic district of `count` polygon parcels with realistic, correlated attributes:
// ALTITUDE (m) from a smooth relief, SLOPE (degrees) from its gradient, POPULATION dwindling
// with altitude, DISTANCE (m) to a river, LANDUSE, plus a few nulls as real data has. The same
// seed gives the same file.
void WriteSampleShapefile(const std::string& shpPath, std::size_t count, std::uint64_t seed = 1);

} // namespace quorel::tools
