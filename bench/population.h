// population.h - the devices of the measured router. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

inline constexpr int kDevices = 256;

// Store values: "TABLE.FIELD@ROW" and the text.
using Values = std::vector<std::pair<std::string, std::string>>;

// Returns 256 devices with values of typical length.
Values population();

// Returns the address of the device in row `row`.
std::string mac_of(int row);

// Returns `text` with # replaced by the row number.
std::string of_row(std::string_view text, int row);

}  // namespace bench
