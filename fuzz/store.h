// store.h - a real store whose values are reset between inputs, because creating one per input is slow. One thread.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "test_store.h"

namespace fuzz {

struct Held {
    std::string table;
    int row;
    std::string field;
    std::string text;

    std::string address() const { return table + "." + field + "@" + std::to_string(row); }
    bool operator==(const Held&) const = default;
};

class Store : public dro_test::TestStore {
 public:
    Store();

    // For values that the store may refuse.
    hab_session* session() const { return session_.get(); }
    // The values that differ from the schema's defaults, in the schema's order.
    std::vector<Held> changed() const;

    // Makes reset() restore the current values instead of the defaults.
    void keep() { kept_ = changed(); }
    void reset();

 private:
    dro_test::Session session_{hab_init()};
    std::map<std::string, std::string> defaults_;  // keyed by "TABLE.FIELD"
    std::vector<Held> kept_;
};

}  // namespace fuzz
