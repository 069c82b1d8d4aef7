// cloud_record.h - every request that reached the cloud, in order of arrival. Any thread may add, read and wait.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "json.h"

namespace lab {

// NOLINTNEXTLINE(bugprone-exception-escape): its JSON throws only when memory runs out
struct CloudRequest {
    std::string endpoint;  // the path, for example /transactionAck/
    std::string body;
    Json json;          // discarded when the body is not JSON
    std::string fault;  // the failed check; empty for a valid request
    std::chrono::steady_clock::time_point at = std::chrono::steady_clock::now();

    bool good() const { return fault.empty(); }
    std::string text(const char* name) const { return textOf(json, name); }
};

class CloudRecord {
 public:
    using Request = std::shared_ptr<const CloudRequest>;
    using Wanted = std::function<bool(const CloudRequest&)>;

    void add(Request request);

    // The number of requests so far: a starting position for await() and since().
    std::size_t mark() const;

    // Returns the first matching request from position `from` on, waiting up to `timeout`; null when none arrived. Only
    // the newest 10,000 requests are kept.
    Request await(std::size_t from, const Wanted& wanted, std::chrono::milliseconds timeout) const;

    std::vector<Request> since(std::size_t from) const;

 private:
    Request find(std::size_t& from, const Wanted& wanted) const;

    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::deque<Request> requests_;
    std::size_t dropped_ = 0;
};

}  // namespace lab
