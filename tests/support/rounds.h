// rounds.h - repetitions of attacks that depend on timing, and their figures. Any thread.
#pragma once

#include <cstdlib>
#include <iostream>
#include <string>

namespace dro_test {

// `campaign` when DRO_CAMPAIGN is 1, as tests/campaign sets it; else `few`.
inline int rounds(int few, int campaign) {
    const char* full = std::getenv("DRO_CAMPAIGN");
    return full != nullptr && std::string(full) == "1" ? campaign : few;
}

// Prints the figures for this attack's line in the campaign.
template <typename... Parts>
void print_figures(const Parts&... parts) {
    std::cout << "figures: ";
    (std::cout << ... << parts) << std::endl;
}

}  // namespace dro_test
