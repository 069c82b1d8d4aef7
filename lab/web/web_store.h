// web_store.h - the store's tables for the page: their structure and every value as it changes. Created and destroyed
// by one thread; values are read on the session's delivery thread.
#pragma once

#include <mutex>
#include <string>

#include "json.h"
#include "store.h"
#include "web_feed.h"

namespace lab {

class WebStore {
 public:
    // Adds every value that differs from its default to the feed, then every value that is written, with its time.
    // Throws std::runtime_error.
    explicit WebStore(WebFeed& feed);
    ~WebStore() { store_.follow({}, nullptr); }
    WebStore(const WebStore&) = delete;
    WebStore& operator=(const WebStore&) = delete;

    // Tables in the schema's order: [{"name","rows","about","fields":[{"name","type","initial","about"}]}].
    static Json tables();

 private:
    void written(const std::string& table, int row, const std::string& name);

    WebFeed& feed_;
    std::mutex mutex_;  // held while a value is read and added to the feed, so values stay in order
    Store store_;
};

}  // namespace lab
