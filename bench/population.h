// population.h - the devices of the measured router. Any thread.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

inline constexpr int kDevices = 256;

// Values as a store takes them: "TABLE.FIELD@ROW", and the text.
using Values = std::vector<std::pair<std::string, std::string>>;

// 256 devices of ordinary size.
Values population();

// The address of the device at row `row`.
std::string mac_of(int row);

// `text` with the row's number for its #.
std::string of_row(std::string_view text, int row);

}  // namespace bench
