// cloud_record.h - every request that reached the cloud, in order, for whoever wants to wait for one. Any thread.
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
    std::string endpoint;  // the path, such as /transactionAck/
    std::string body;
    Json json;          // discarded when the body is none
    std::string fault;  // why the cloud does not believe it; empty when all is right
    std::chrono::steady_clock::time_point at = std::chrono::steady_clock::now();

    bool good() const { return fault.empty(); }
    std::string text(const char* name) const { return textOf(json, name); }
};

class CloudRecord {
 public:
    using Request = std::shared_ptr<const CloudRequest>;
    using Wanted = std::function<bool(const CloudRequest&)>;

    void add(Request request);

    // The number of requests so far: a place to look from.
    std::size_t mark() const;

    // The first request from place `from` on that is wanted; waits for it until `timeout` has passed, then null.
    // Only the newest 10,000 are kept.
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
