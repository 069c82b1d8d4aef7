// population.h - the devices on the router's network, stored as rows of its device tables. Any thread may use it.
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

// A realistic device, always the same for the same number. Names are unique regardless of case.
Device deviceNumber(int number);

// The eight masks that mark rows: bit b of mask m marks row m * 32 + b.
std::array<std::uint32_t, 8> masksOf(const std::vector<int>& rows);

class Population {
 public:
    explicit Population(Store& store);

    // Fills the first `count` rows with the first `count` devices and clears the others, without notifying the agent.
    // Throws std::runtime_error unless `count` is 0 to 256.
    void resize(int count);

    // Adds a device with this name in the first free row and returns the row. Throws std::runtime_error when the name
    // is taken or no row is free.
    int join(const std::string& name);
    void remove(int row);
    // Sets the names that the user chose for a device; an empty text restores the default.
    void customise(int row, const std::string& name, const std::string& type, const std::string& brand,
                   const std::string& model);
    void setOnline(int row, bool online);
    // Writes new signal values, as if the device had moved.
    void refresh(int row);

    std::optional<int> rowOf(const Mac& mac) const;
    // Finds a device by its name, ignoring case, or by its MAC text. Throws std::runtime_error, which lists a few
    // names.
    int find(const std::string& nameOrMac) const;
    // Returns the rows in use in ascending order, optionally only those in the given state.
    std::vector<int> rows(std::optional<bool> online = std::nullopt) const;
    Device at(int row) const;

 private:
    void write(int row, const Device& device);
    std::vector<Value> signalOf(int row, const Device& device) const;
    int freeRow() const;

    Store& store_;
    mutable std::mutex mutex_;
    std::array<std::optional<Device>, kRows> devices_;
    int made_ = 0;    // devices created so far; numbers their MACs
    int walked_ = 0;  // number of refreshes
};

}  // namespace lab
