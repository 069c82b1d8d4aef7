#include "workbench.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <deque>
#include <utility>

std::string textAt(hab_session* session, const char* table, int row, const char* field) {
    std::array<char, HAB_HOST_TEXT_SIZE> text{};
    const int status = hab_host_get_text(session, table, row, field, text.data(), text.size());
    return status == HAB_OK ? text.data() : "[" + std::to_string(status) + "]";
}

std::string StoreTest::errorsOf(const std::function<void()>& action) {
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

void StoreTest::restore(const std::string& copy) const {
    sqlite3* from = nullptr;
    sqlite3* to = nullptr;
    EXPECT_EQ(sqlite3_open(copy.c_str(), &from), SQLITE_OK);
    EXPECT_EQ(sqlite3_open(path_.c_str(), &to), SQLITE_OK);
    sqlite3_backup* restoring = sqlite3_backup_init(to, "main", from, "main");
    EXPECT_EQ(sqlite3_backup_step(restoring, -1), SQLITE_DONE);
    EXPECT_EQ(sqlite3_backup_finish(restoring), SQLITE_OK);
    EXPECT_EQ(sqlite3_close(to), SQLITE_OK);
    EXPECT_EQ(sqlite3_close(from), SQLITE_OK);
}

void run(const std::vector<std::string>& words) {
    EXPECT_EQ(Child(words).end(0), 0) << words.front();
}

Child::Child(const std::vector<std::string>& words) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&id_, arguments[0], &actions, nullptr, arguments.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    output_ = ends[0];
}

Child::~Child() {
    if (id_ != 0) {
        end(SIGKILL);
    }
    close(output_);
}

bool Child::more(int milliseconds) {
    std::array<char, 4096> bytes{};
    pollfd ready{output_, POLLIN, 0};
    const ssize_t size = poll(&ready, 1, milliseconds) == 1 ? read(output_, bytes.data(), bytes.size()) : 0;
    read_.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return size > 0;
}

std::string Child::line(int milliseconds) {
    std::size_t end = 0;
    while ((end = read_.find('\n')) == std::string::npos) {
        if (!more(milliseconds)) {
            return {};
        }
    }
    std::string line = read_.substr(0, end);
    read_.erase(0, end + 1);
    return line;
}

int Child::end(int signal) {
    if (signal != 0) {
        kill(id_, signal);
    }
    int status = 0;
    waitpid(std::exchange(id_, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

Outcome habctl(std::vector<std::string> words) {
    const std::string script = R"(exec "$0" "$@" >"$HAB_STORE.output" 2>"$HAB_STORE.errors")";
    words.insert(words.begin(), {"/bin/sh", "-c", script, HABCTL});
    const int status = Child(words).end(0);
    const std::string store = std::getenv("HAB_STORE");
    return {status, file_text(store + ".output"), file_text(store + ".errors")};
}

Notices::Notices(hab_session* session, const std::vector<std::string>& tables, std::function<void()> also)
    : state_([]() -> State& {
          static auto* all = new std::deque<State>;
          return all->emplace_back();
      }()) {
    state_.also = std::move(also);
    EXPECT_EQ(hab_subscribe_cb(session, onNotice, &state_), HAB_OK);
    for (const std::string& table : tables) {
        EXPECT_EQ(hab_subscribe(session, table.c_str(), 1), HAB_OK);
    }
}

std::vector<std::string> Notices::await(std::size_t count) {
    std::unique_lock lock(state_.mutex);
    state_.more.wait_for(lock, std::chrono::seconds(10), [&] { return state_.seen.size() >= count; });
    return state_.seen;
}

void Notices::onNotice(const char* table, int row, const char* field, void* context) {
    auto& mine = *static_cast<State*>(context);
    const std::string notice = std::string(table) + "." + field + "@" + std::to_string(row);
    if (mine.also) {
        mine.also();
    }
    const std::lock_guard lock(mine.mutex);
    mine.seen.push_back(notice);
    mine.more.notify_all();
}
