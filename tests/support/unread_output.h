// unread_output.h - output whose reader reads only when a test lets it. One thread at a time.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace dro_test {

class UnreadOutput {
 public:
    // A socket pair or a pipe.
    explicit UnreadOutput(bool socket) {
        if ((socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data()) : pipe(ends_.data())) != 0) {
            throw std::runtime_error("no pipe and no socket pair");
        }
        fcntl(ends_[0], F_SETFL, O_NONBLOCK);
    }
    ~UnreadOutput() {
        close(ends_[0]);
        close(ends_[1]);
    }
    UnreadOutput(const UnreadOutput&) = delete;
    UnreadOutput& operator=(const UnreadOutput&) = delete;

    int end() const { return ends_[1]; }

    // Reads what there is, and returns all that has been read so far.
    const std::string& read_all() {
        std::array<char, 4096> part{};
        for (ssize_t size = 0; (size = read(ends_[0], part.data(), part.size())) > 0;) {
            text_.append(part.data(), static_cast<std::size_t>(size));
        }
        return text_;
    }

 private:
    std::array<int, 2> ends_{};
    std::string text_;
};

inline std::vector<std::string> lines_of(const std::string& text) {
    std::istringstream lines(text);
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);) {
        all.push_back(line);
    }
    return all;
}

}  // namespace dro_test
