#include "cloud_record.h"

#include <algorithm>

namespace lab {

namespace {

constexpr std::size_t kKept = 10000;

}  // namespace

void CloudRecord::add(Request request) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(request));
    if (requests_.size() > kKept) {
        requests_.pop_front();
        ++dropped_;
    }
    arrived_.notify_all();
}

std::size_t CloudRecord::mark() const {
    const std::lock_guard lock(mutex_);
    return dropped_ + requests_.size();
}

// Advances `from` past the requests it has examined, so that `wanted` sees each one once. The caller holds the lock.
CloudRecord::Request CloudRecord::find(std::size_t& from, const Wanted& wanted) const {
    for (from = std::max(from, dropped_); from < dropped_ + requests_.size(); ++from) {
        const Request& request = requests_.at(from - dropped_);
        if (wanted(*request)) {
            return request;
        }
    }
    return nullptr;
}

CloudRecord::Request CloudRecord::await(std::size_t from, const Wanted& wanted,
                                        std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    Request found;
    arrived_.wait_for(lock, timeout, [&] { return (found = find(from, wanted)) != nullptr; });
    return found;
}

std::vector<CloudRecord::Request> CloudRecord::since(std::size_t from) const {
    const std::lock_guard lock(mutex_);
    const std::size_t first = std::clamp(from, dropped_, dropped_ + requests_.size()) - dropped_;
    return {requests_.begin() + static_cast<std::ptrdiff_t>(first), requests_.end()};
}

}  // namespace lab
