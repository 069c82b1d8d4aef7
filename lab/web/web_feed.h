// web_feed.h - the page's data: the lab's newest events and the store's current values, in one numbered sequence. Any
// thread may add items. Each reader requests the items after its own position, so a slow or lost reader does not block
// the others.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "timeline.h"

namespace lab {

class WebFeed {
 public:
    // Adds {"event":`json`}. Only the newest 3,000 are kept, and no more than 16 MiB of them.
    void addEvent(const std::string& json);

    // Adds {"value":`json`} and drops the previous value of the same name.
    void addValue(const std::string& name, const std::string& json);

    struct News {
        std::uint64_t upTo = 0;  // position for the next call
        std::string items;       // a JSON array; empty on timeout
        bool over = false;       // the feed has ended; nothing follows these items
    };
    // Items after position `from` (0 for all), about 1 MiB at most. Waits up to `patience` for the first one.
    News after(std::uint64_t from, std::chrono::milliseconds patience) const;

    // Readers receive the remaining items and then the end of the feed.
    void end();

 private:
    std::uint64_t add(std::string item);

    mutable std::mutex mutex_;
    mutable std::condition_variable came_;
    std::uint64_t last_ = 0;
    std::map<std::uint64_t, std::string> items_;
    std::deque<std::uint64_t> events_;
    std::size_t eventBytes_ = 0;
    std::map<std::string, std::uint64_t> values_;
    bool over_ = false;
};

// A sink that adds the timeline's events to the feed.
std::unique_ptr<Sink> feedSink(std::shared_ptr<WebFeed> feed);

}  // namespace lab
