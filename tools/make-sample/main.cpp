// make-sample OUTPUT.shp [COUNT] [SEED]: writes the synthetic parcels shapefile (the bundled
// sample has 400 parcels; the benchmark uses 100,000 and 1,000,000).
#include "tools/sample/SampleData.h"
#include "util/Error.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

namespace {

constexpr const char* kUsage = "Usage: make-sample OUTPUT.shp [COUNT (400)] [SEED (1)]\n";

} // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (first == "--help" || first == "-h") {
        std::cout << kUsage
                  << "\nWrites COUNT synthetic polygon parcels (population, slope, altitude,\n"
                     "distance, land use) to the shapefile OUTPUT.shp with its .shx, .dbf, .prj\n"
                     "and .cpg; the same SEED gives the same parcels.\n";
        return 0;
    }
    // An option is never an output name: "-x" would otherwise become a dataset.
    if (argc < 2 || argc > 4 || first.rfind('-', 0) == 0) {
        std::cerr << kUsage;
        return 64;
    }
    try {
        const std::size_t count = argc > 2 ? std::stoul(argv[2]) : 400;
        const std::uint64_t seed = argc > 3 ? std::stoull(argv[3]) : 1;
        quorel::tools::WriteSampleShapefile(argv[1], count, seed);
    } catch (const quorel::Error& e) {
        std::cerr << "make-sample: " << e.Description() << "\n";
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "make-sample: " << e.what() << "\n";
        return 64;
    }
    return 0;
}
