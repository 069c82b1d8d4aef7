// web_feed.h - what the page is told: the lab's newest events and the store's values as they are, in one numbered
// order. Any thread adds. Each reader asks for what is newer than what it has, so that one who is slow or gone holds up
// nobody.
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

    // Adds {"value":`json`} and drops the one of the same name that was there.
    void addValue(const std::string& name, const std::string& json);

    struct News {
        std::uint64_t upTo = 0;  // where to go on from
        std::string items;       // a JSON array, or empty when nothing came
        bool over = false;       // nothing will come any more
    };
    // What came after `from`, 0 for the beginning, about 1 MiB at most; waits for it until `patience` is over.
    News after(std::uint64_t from, std::chrono::milliseconds patience) const;

    // Readers get what is left, and then that it is over.
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

// Shows the timeline's events to the feed.
std::unique_ptr<Sink> feedSink(std::shared_ptr<WebFeed> feed);

}  // namespace lab
