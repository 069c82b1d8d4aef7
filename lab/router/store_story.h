// store_story.h - posts the agent's store writes to the timeline. Runs on its own session's delivery thread.
#pragma once

#include "store.h"
#include "timeline.h"

namespace lab {

class StoreStory {
 public:
    explicit StoreStory(Timeline& timeline);
    ~StoreStory() { store_.follow({}, nullptr); }
    StoreStory(const StoreStory&) = delete;
    StoreStory& operator=(const StoreStory&) = delete;

 private:
    void noticed(std::string_view table, std::string_view name);

    Timeline& timeline_;
    Store store_;
};

}  // namespace lab
