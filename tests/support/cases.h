// cases.h - a table of cases of one rule, a row each; the loop over it names the columns.
#pragma once

#include <tuple>
#include <vector>

namespace dro_test {

template <typename... Columns>
using Cases = std::vector<std::tuple<Columns...>>;

}  // namespace dro_test
