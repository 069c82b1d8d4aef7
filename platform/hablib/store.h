// store.h - one store file as this process sees it: where it is, what it describes, whether it is still there. Any
// thread.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "file_watch.h"
#include "schema.h"
#include "sqlite.h"

namespace hab {

// Marks our files for SQLite ("HAB1"): the letters, and the layout of the tables.
inline constexpr std::int64_t kApplicationId = 0x48414231;

// What HAB_STORE names, or where the store is without it.
std::string storePath();

// One line on standard error: "hablib: PATH: TEXT".
void complain(const std::string& path, std::string_view text);

// Which file a path leads to: a replaced file is another one.
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

    // Another connection to the same file; null when the path leads elsewhere by now (the store is lost then). Throws
    // SqliteError.
    std::unique_ptr<Connection> connect();

    // Looks whether `connection` still has the file that the path names. Once it has not, the store stays lost, and the
    // first to see it says so on standard error.
    bool lost(const Connection& connection);
    // The same for reads, at a fraction of the price and up to a millisecond late: looks closer only after something
    // happened to the file or its folder. What happens further up the path is seen by the next write.
    bool lostLately(const Connection& connection) { return lost_ || (watch_.touched() && lost(connection)); }
    // Reports a failure of the store itself on standard error, once per process and file.
    void failed(std::string_view what);

 private:
    const std::string path_;
    const FileIdentity identity_;
    const Schema schema_;
    FileWatch watch_;
    std::once_flag lossSaid_;
    std::atomic<bool> lost_{false};
    std::atomic<bool> complained_{false};
};

struct OpenedStore {
    std::shared_ptr<Store> store;
    std::unique_ptr<Connection> connection;
};

// Opens the store at `path`; sessions of one process share what is known of a file. When it cannot be used, says why on
// standard error and returns nulls.
OpenedStore openStore(const std::string& path);

// The checks that openStore makes before it trusts a file; each failure is said on standard error. Null when one
// failed. `anySchema` admits a file of another schema version.
std::unique_ptr<Connection> connectChecked(const std::string& path, bool anySchema);

}  // namespace hab
