// workbench.h - what the platform's tests share: a store in a folder of its own, other processes, collected notices.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <mutex>

#include "cases.h"
#include "habhost.h"
#include "test_store.h"

using dro_test::Cases;
using dro_test::file_text;
using dro_test::Session;

// A fresh store that HAB_STORE names, in a folder that goes with the test.
class StoreTest : public testing::Test {
 protected:
    static Session open() { return Session(hab_init()); }
    std::string sql(const std::string& statements) const { return store_.sql(statements); }

    const dro_test::StoreFolder store_;
    const std::string folder_ = store_.folder();
    const std::string path_ = store_.path();
};

// One with a session open.
class SessionTest : public StoreTest {
 protected:
    const Session session_ = open();
    hab_session* const s_ = session_.get();
};

// A value as text; the status in brackets when it cannot be read.
std::string textAt(hab_session* session, const char* table, int row, const char* field);

// A child process whose standard output comes through a pipe. Killed at the end if it still runs.
class Child {
 public:
    explicit Child(const std::vector<std::string>& words);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The next line of its output, without the newline; empty at the end, or when none came for `milliseconds`.
    std::string line(int milliseconds = 10'000);
    // Sends it a signal unless that is 0, and waits for its end: its exit status, or minus the signal that ended it.
    int end(int signal);

 private:
    bool more(int milliseconds);

    pid_t id_ = 0;
    int output_ = -1;
    std::string read_;
};

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};
// Runs habctl to its end.
Outcome habctl(std::vector<std::string> words);

// Collects the notices of one session as "TABLE.FIELD@ROW".
class Notices {
 public:
    // Subscribes the tables; `also` runs in the handler before a notice is noted.
    Notices(hab_session* session, const std::vector<std::string>& tables, std::function<void()> also = nullptr);

    // Waits until `count` notices have been handled, at most ten seconds, and gives all there are.
    std::vector<std::string> await(std::size_t count);

 private:
    struct State {
        std::mutex mutex;
        std::condition_variable more;
        std::vector<std::string> seen;
        std::function<void()> also;
    };
    static void onNotice(const char* table, int row, const char* field, void* context);

    // Never freed: a handler may still be on its way out when its session has been closed.
    State& state_;
};
