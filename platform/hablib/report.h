// report.h - lines on standard error: "hablib: PATH: TEXT". Without memory allocation, so a report also works when
// memory is short. Any thread.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

namespace hab {

// Prints the text, followed by ": CAUSE" unless `cause` is empty.
void complain(std::string_view path, std::string_view text, std::string_view cause = {}) noexcept;

// Operations of one kind that may fail for a while. The first failure of an episode is reported, and the success that
// ends it.
class Episode {
 public:
    // `path` must outlive the object; the texts are constants.
    Episode(const std::string& path, std::string_view begin, std::string_view end)
        : path_(path), begin_(begin), end_(end) {}

    void failed(std::string_view cause) noexcept;
    void succeeded() noexcept {
        if (failing_.load(std::memory_order_relaxed)) {
            end();
        }
    }

 private:
    void end() noexcept;

    const std::string& path_;
    const std::string_view begin_;
    const std::string_view end_;
    std::atomic<bool> failing_{false};
};

}  // namespace hab
