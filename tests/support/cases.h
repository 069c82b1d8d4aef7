// cases.h - a table of test cases for one rule, one row each. The loop over it names the columns.
#pragma once

#include <tuple>
#include <vector>

namespace dro_test {

template <typename... Columns>
using Cases = std::vector<std::tuple<Columns...>>;

}  // namespace dro_test
