#pragma once

// What the statistics window Statistiques shows for a field, computed without any window so
// that the command line can print it too.

#include "host/api/Host.h"
#include "util/TextSource.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorel::criterion {

// At most this many distinct values are listed; more give the single line "Nb > 100".
inline constexpr std::int32_t kMaxListedValues = 100;
inline constexpr const char* kTooManyValues = "Nb > 100";
// The selection sort starts each pass from this minimum and marks taken values with the mark.
inline constexpr double kSortStartMinimum = 9999999999.0;
inline constexpr double kSortTakenMark = 99999999999.0;

struct FieldStatistics {
    std::vector<std::string> lines; // the lines of List1
    std::string summary;            // the text of Text1, lines separated by CR LF
};

// The values in ascending order by repeated selection of the smallest, places 1 to count of
// values (place 0 unused). Values of kSortStartMinimum or more come out as kSortStartMinimum.
std::array<double, kMaxListedValues + 1>
SelectionSort(std::array<double, kMaxListedValues + 1> values, std::int32_t count);

// The work of the "Stats" button before its window is shown. layerText is the text of the
// entry selected in Lst_shapes (empty when none is), fieldName that of Lst_fields (nullopt when
// none is selected: the result is then nullopt, after the layer has been searched). stepMarker
// is set to 4 before each comparison of a layer's name. Throws quorel::Error on any failure.
std::optional<FieldStatistics> ComputeFieldStatistics(host::IApplication* app,
                                                      const std::string& layerText,
                                                      const std::optional<std::string>& fieldName,
                                                      const util::ITextSource& texts,
                                                      char decimalMark, int& stepMarker);

} // namespace quorel::criterion
