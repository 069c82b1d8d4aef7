#include "web_feed.h"

namespace lab {

namespace {

constexpr std::size_t kEventsKept = 3000;
constexpr std::size_t kEventBytesKept = 16UL * 1024 * 1024;
constexpr std::size_t kNewsBytes = 1024UL * 1024;

class FeedSink : public Sink {
 public:
    explicit FeedSink(std::shared_ptr<WebFeed> feed) : feed_(std::move(feed)) {}
    void show(const Event& event) override { feed_->addEvent(jsonOf(event)); }

 private:
    const std::shared_ptr<WebFeed> feed_;
};

}  // namespace

// The caller holds the lock.
std::uint64_t WebFeed::add(std::string item) {
    items_.emplace_hint(items_.end(), ++last_, std::move(item));
    came_.notify_all();
    return last_;
}

void WebFeed::addEvent(const std::string& json) {
    const std::lock_guard lock(mutex_);
    std::string item = R"({"event":)" + json + "}";
    eventBytes_ += item.size();
    events_.push_back(add(std::move(item)));
    while (events_.size() > kEventsKept || (eventBytes_ > kEventBytesKept && events_.size() > 1)) {
        const auto oldest = items_.find(events_.front());
        eventBytes_ -= oldest->second.size();
        items_.erase(oldest);
        events_.pop_front();
    }
}

void WebFeed::addValue(const std::string& name, const std::string& json) {
    const std::lock_guard lock(mutex_);
    std::uint64_t& place = values_[name];
    items_.erase(place);
    place = add(R"({"value":)" + json + "}");
}

WebFeed::News WebFeed::after(std::uint64_t from, std::chrono::milliseconds patience) const {
    std::unique_lock lock(mutex_);
    came_.wait_for(lock, patience, [&] { return last_ > from || over_; });
    News news{from, {}, over_};
    for (auto item = items_.upper_bound(from); item != items_.end(); ++item) {
        if (news.items.size() > kNewsBytes) {
            news.over = false;
            break;
        }
        news.items += (news.items.empty() ? "[" : ",") + item->second;
        news.upTo = item->first;
    }
    if (!news.items.empty()) {
        news.items += "]";
    }
    return news;
}

void WebFeed::end() {
    const std::lock_guard lock(mutex_);
    over_ = true;
    came_.notify_all();
}

std::unique_ptr<Sink> feedSink(std::shared_ptr<WebFeed> feed) {
    return std::make_unique<FeedSink>(std::move(feed));
}

}  // namespace lab
