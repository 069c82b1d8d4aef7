// Calls of the C library that fail, each in turn, while the host library uses or makes a store. An operation may fail,
// but nothing else: a successful write is stored and noticed, a failed one has no effect, and then everything works.
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "failing_calls.h"
#include "rounds.h"
#include "workbench.h"

namespace {

namespace fs = std::filesystem;

// Temporary files in memory, where fsync takes no time.
struct InMemory {
    InMemory() { setenv("TMPDIR", fs::exists("/dev/shm") ? "/dev/shm" : "/tmp", 1); }
    ~InMemory() { unsetenv("TMPDIR"); }
};

long entries(const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), {});
}

// Runs an operation of the library, whose calls count.
template <class Operation>
auto counted(Operation operation) {
    failing_calls_count(1);
    auto result = operation();
    failing_calls_count(0);
    return result;
}

struct Value {
    const char* table;
    const char* field;
    std::string text;  // what the store must hold
};

class Faults : public InMemory, public StoreTest {
 protected:
    Faults() { failing_calls_everywhere = 1; }

    // Repeats an operation until the failing calls are over.
    void succeed(const std::function<bool()>& operation) const {
        bool done = false;
        for (int i = 0; i <= times_ && !done; ++i) {
            done = counted(operation);
        }
        EXPECT_TRUE(done);
    }

    bool write(hab_session* session, Value& value) {
        const std::string text = std::to_string(++written_);
        const bool done =
            counted([&] { return hab_host_set_text(session, value.table, 0, value.field, text.c_str()) == HAB_OK; });
        if (done) {
            value.text = text;
            expected_.emplace_back(value.field);
        }
        return done;
    }

    void check(hab_session* session, bool mayFail) const {
        for (const Value& value : values_) {
            const std::string text = counted([&] { return textAt(session, value.table, 0, value.field); });
            EXPECT_TRUE(text == value.text || (mayFail && text.starts_with('['))) << text << " for " << value.text;
        }
    }

    static void onNotice(const char* /*table*/, int /*row*/, const char* field, void* context) {
        const int counts = failing_calls_count(0);
        auto& mine = *static_cast<Faults*>(context);
        const std::lock_guard lock(mine.mutex_);
        mine.seen_.emplace_back(field);
        failing_calls_count(counts);
    }

    // Two sessions with reads, writes and notices; their bells are removed in between. Returns the number of calls.
    long use() {
        expected_.clear();
        seen_.clear();
        hab_session* first = nullptr;
        hab_session* second = nullptr;
        succeed([&] { return (first = hab_init()) != nullptr; });
        succeed([&] { return (second = hab_init()) != nullptr; });
        succeed([&] { return hab_subscribe_cb(first, onNotice, this) == HAB_OK; });
        for (const Value& value : values_) {
            succeed([&] { return hab_subscribe(first, value.table, 1) == HAB_OK; });
        }
        for (int round = 0; round < 3; ++round) {
            for (Value& value : values_) {
                write(second, value);
                check(first, true);
                write(first, value);
                check(second, true);
            }
            for (const char* bell : {".bell", ".bell.1", ".bell.10"}) {
                syscall(SYS_unlink, (path_ + bell).c_str());
            }
        }
        const long calls = failing_calls_stop();
        for (hab_session* session : {first, second}) {
            check(session, false);
            for (Value& value : values_) {
                EXPECT_TRUE(write(session, value));
            }
            check(session, false);
        }
        const auto seen = [this] {
            const std::lock_guard lock(mutex_);
            return seen_;
        };
        dro_test::eventually([&] { return seen().size() >= expected_.size(); });
        EXPECT_EQ(seen(), expected_);
        hab_destroy(first);
        hab_destroy(second);
        EXPECT_TRUE(dro_test::eventually([] { return entries("/proc/self/task") == 1; }));
        return calls;
    }

    // Creation of a store, a value, an upgrade.
    long make() {
        fs::remove(path_);
        const long others = entries(folder_);
        succeed([&] {
            const bool made = hab_host_create(path_.c_str(), false) == HAB_OK;
            failing_calls_count(0);
            EXPECT_EQ(entries(folder_), others + (made ? 1 : 0)) << "a half-made store";
            return made;
        });
        values_ = kInitial;
        hab_session* session = nullptr;
        succeed([&] { return (session = hab_init()) != nullptr; });
        succeed([&] { return write(session, values_[0]); });
        hab_destroy(session);
        succeed([&] { return hab_host_upgrade(path_.c_str()) == HAB_OK; });
        const long calls = failing_calls_stop();
        check(open().get(), false);
        return calls;
    }

    // Runs `script` once for every `step`th call of the kind.
    void suffer(const std::function<long()>& script, failing_kind kind, int error, int times, int step) {
        times_ = times;
        const long files = entries("/proc/self/fd");
        for (long first = 1, calls = 1; calls >= first && !HasFailure(); first += step) {
            SCOPED_TRACE("kind " + std::to_string(kind) + ", call " + std::to_string(first));
            failing_calls_start(kind, first, times, error);
            calls = script();
            EXPECT_EQ(entries("/proc/self/fd"), files);
        }
    }

    static inline const std::array<Value, 2> kInitial{{{"General", "FSN", ""}, {"DALHConfig", "ProcessID", "0"}}};
    int times_ = 1;  // that many calls fail in a row
    std::array<Value, 2> values_ = kInitial;
    int written_ = 0;
    std::vector<std::string> expected_;
    std::mutex mutex_;
    std::vector<std::string> seen_;
};

TEST_F(Faults, AreSurvived) {
    // The steps leave ten to thirty calls of a kind for a short test.
    const Cases<failing_kind, int, int, int> cases{
        {FAILING_MEMORY, ENOMEM, 120, 1500}, {FAILING_OPEN, EMFILE, 1, 1},   {FAILING_READ, EIO, 4, 4},
        {FAILING_WRITE, ENOSPC, 3, 8},       {FAILING_SYNC, EIO, 1, 2},      {FAILING_MAP, ENOMEM, 1, 1},
        {FAILING_WATCH, ENOSPC, 1, 1},       {FAILING_THREAD, EAGAIN, 1, 1}, {FAILING_LOCK, EAGAIN, 4, 8},
        {FAILING_STAT, EIO, 4, 8},           {FAILING_POLL, ENOMEM, 1, 1}};
    const std::string errors = errorsOf([&] {
        for (const auto& [kind, error, step, makeStep] : cases) {
            for (const int times : {1, 4}) {
                suffer([this] { return use(); }, kind, error, times, dro_test::rounds(step * times * times, times));
            }
            suffer([this] { return make(); }, kind, error, 1,
                   dro_test::rounds(makeStep, kind == FAILING_MEMORY ? 50 : 1));
        }
    });
    const auto lines = [&errors](const std::string& text) {
        int count = 0;
        for (auto at = errors.find(text); at != std::string::npos; at = errors.find(text, at + 1)) {
            ++count;
        }
        return count;
    };
    EXPECT_GT(lines(" are held up: "), 0);
    EXPECT_EQ(lines(" are held up: "), lines(" continue; none was lost")) << errors;
}

}  // namespace
