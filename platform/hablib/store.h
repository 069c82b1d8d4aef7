// store.h - one store file as used by this process: its path, its schema, and whether it is still in place. Any thread.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "file_watch.h"
#include "report.h"
#include "schema.h"
#include "sqlite.h"

namespace hab {

// SQLite application ID of store files, "HAB1": the letters and the version of the table layout.
inline constexpr std::int64_t kApplicationId = 0x48414231;

// Returns the path in HAB_STORE, or the default path.
const char* storePath();

// Identifies the file behind a path. A replaced file has a different identity.
struct FileIdentity {
    dev_t device = 0;
    ino_t file = 0;

    bool operator==(const FileIdentity&) const = default;
};

class Store {
 public:
    Store(std::string path, FileIdentity identity, Connection& connection);

    const std::string& path() const { return path_; }
    FileIdentity identity() const { return identity_; }
    const Schema& schema() const { return schema_; }

    // Opens another connection to the same file. Returns null when the path leads elsewhere; the store is then lost.
    // Throws SqliteError.
    std::unique_ptr<Connection> connect();

    // Returns true when the path no longer leads to the same file. The store then stays lost. The first detection is
    // reported on standard error. Throws SqliteError when the path cannot be checked.
    bool lost();
    // As lost(), for reads: much cheaper, and up to a millisecond late. It runs the full check only after an event on
    // the file or its folder. Changes further up the path are detected by the next write.
    bool lostLately() {
        watch_.lookLately();
        return lost_ || (watch_.touched() && lost());
    }
    // Returns false when the file has a different schema, after an older copy was restored. The store is then lost.
    // Throws SqliteError.
    bool fits(Connection& connection);

    // The events on the file.
    FileWatch& watch() { return watch_; }

    Episode& reads() { return reads_; }
    Episode& writes() { return writes_; }
    Episode& subscriptions() { return subscriptions_; }
    // Reports on standard error, once per process and file, that the file is damaged.
    void damaged(std::string_view what);

 private:
    void lose(std::string_view why);

    const std::string path_;
    const FileIdentity identity_;
    const Schema schema_;
    FileWatch watch_;
    Episode reads_{path_, "reads fail", "reads succeed again"};
    Episode writes_{path_, "writes fail", "writes succeed again"};
    Episode subscriptions_{path_, "subscriptions fail", "subscriptions succeed again"};
    std::once_flag lossReported_;
    std::once_flag damageReported_;
    std::atomic<bool> lost_{false};
};

struct OpenedStore {
    std::shared_ptr<Store> store;
    std::unique_ptr<Connection> connection;
};

// Opens the store at `path`. Sessions of one process share the Store of a file. On failure, reports the cause on
// standard error and returns null pointers.
OpenedStore openStore(const std::string& path);

// Opens the file and runs openStore's checks. Reports a failed check on standard error and returns null. `anySchema`
// accepts a file with a different schema version.
std::unique_ptr<Connection> connectChecked(const std::string& path, bool anySchema);

}  // namespace hab
