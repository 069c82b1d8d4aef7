// population.h - the devices on the router's network, as rows of its device tables. Any thread may use it.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "store.h"

namespace lab {

constexpr int kRows = 256;

struct Device {
    Mac mac{};
    std::string name;
    std::string type;
    std::string brand;
    std::string model;
    bool wired = false;
    bool online = true;
};

// Believable devices, the same for the same number each time: names differ, also in their case-folded forms.
Device deviceNumber(int number);

// The eight masks that name rows: bit b of mask m stands for row m * 32 + b.
std::array<std::uint32_t, 8> masksOf(const std::vector<int>& rows);

class Population {
 public:
    explicit Population(Store& store);

    // Makes the network consist of the first `count` devices, 0 to 256, rows in their order, without a notice to the
    // cloud. Throws std::runtime_error when there are more wanted.
    void resize(int count);

    // Puts a device of that name into the first free row and returns the row. Throws std::runtime_error when the name
    // is taken or every row is.
    int join(const std::string& name);
    void remove(int row);
    // What the user calls it; an empty text goes back to the default.
    void customise(int row, const std::string& name, const std::string& type, const std::string& brand,
                   const std::string& model);
    void setOnline(int row, bool online);
    // New signal values, as after a walk through the house.
    void refresh(int row);

    std::optional<int> rowOf(const Mac& mac) const;
    // By name (upper or lower case) or MAC text; throws std::runtime_error that names some who are there.
    int find(const std::string& nameOrMac) const;
    // Rows in use, in order: all, or those with the given state.
    std::vector<int> rows(std::optional<bool> online = std::nullopt) const;
    Device at(int row) const;

 private:
    void write(int row, const Device& device);
    std::vector<Value> signalOf(int row, const Device& device) const;
    int freeRow() const;

    Store& store_;
    mutable std::mutex mutex_;
    std::array<std::optional<Device>, kRows> devices_;
    int made_ = 0;    // devices given a number so far; each has its own MAC
    int walked_ = 0;  // refreshes so far
};

}  // namespace lab
