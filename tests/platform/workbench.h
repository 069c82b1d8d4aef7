// workbench.h - shared by the platform's tests: a store in its own folder, other processes, collected notices.
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

// A new store, named by HAB_STORE, in a folder that is removed after the test.
class StoreTest : public testing::Test {
 protected:
    static Session open() { return Session(hab_init()); }
    std::string sql(const std::string& statements) const { return store_.sql(statements); }
    // Standard error while `action` runs.
    static std::string errorsOf(const std::function<void()>& action);
    // Restores a copy over the store through SQLite.
    void restore(const std::string& copy) const;

    const dro_test::StoreFolder store_;
    const std::string folder_ = store_.folder();
    const std::string path_ = store_.path();
};

// A StoreTest with an open session.
class SessionTest : public StoreTest {
 protected:
    const Session session_ = open();
    hab_session* const s_ = session_.get();
};

// A value as text; the status in brackets when it cannot be read.
std::string textAt(hab_session* session, const char* table, int row, const char* field);

// A child process whose standard output is read through a pipe. The destructor kills it if it is still running.
class Child {
 public:
    explicit Child(const std::vector<std::string>& words);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // The next line of its output, without the newline; empty at end of file or after `milliseconds`.
    std::string line(int milliseconds = 10'000);
    // Sends `signal` unless it is 0, and waits for the exit. Returns the exit status, or minus the fatal signal.
    int end(int signal);

 private:
    bool more(int milliseconds);

    pid_t id_ = 0;
    int output_ = -1;
    std::string read_;
};

// Runs a program and expects it to succeed.
void run(const std::vector<std::string>& words);

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};
// Runs habctl and waits for its exit.
Outcome habctl(std::vector<std::string> words);

// Collects a session's notices as "TABLE.FIELD@ROW".
class Notices {
 public:
    // Subscribes to the tables. `also` runs in the handler before a notice is recorded.
    Notices(hab_session* session, const std::vector<std::string>& tables, std::function<void()> also = nullptr);

    // Waits up to ten seconds until `count` notices have been handled, and returns all of them.
    std::vector<std::string> await(std::size_t count);

 private:
    struct State {
        std::mutex mutex;
        std::condition_variable more;
        std::vector<std::string> seen;
        std::function<void()> also;
    };
    static void onNotice(const char* table, int row, const char* field, void* context);

    // Never freed: a handler may still be returning after its session has been closed.
    State& state_;
};
