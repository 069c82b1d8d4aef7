#include "store.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "schema_writer.h"

namespace hab {

namespace {

constexpr const char* kDefaultPath = "/var/lib/hab/hab.db";

// Returns the problem with the file itself, found before SQLite opens it. Empty when there is none.
std::string troubleWith(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0) {
        return errno == ENOENT ? "no such store; make one with 'habctl init'"
                               : std::string("cannot be reached: ") + std::strerror(errno);
    }
    if (!S_ISREG(file.st_mode)) {
        return "not a regular file; name a store file with HAB_STORE";
    }
    // Checked here because a privileged process could write the file regardless of its mode.
    if ((file.st_mode & S_IWUSR) == 0) {
        return "read-only; make it writable for its owner";
    }
    return {};
}

std::string explain(const SqliteError& error) {
    switch (error.code() & 0xff) {
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
        case SQLITE_PROTOCOL:
            return "locked by another process for more than 2 s; try again, or end that process";
        case SQLITE_NOTADB:
        case SQLITE_CORRUPT:
        case SQLITE_ERROR:
            return std::string("damaged or not a store (") + error.what() +
                   "); restore a copy, or make a new one with 'habctl init --force'";
        case SQLITE_CANTOPEN:
        case SQLITE_READONLY:
        case SQLITE_PERM:
            return std::string("cannot be opened for writing (") + error.what() +
                   "); its owner must be able to write the file and its folder";
        default:
            return error.what();
    }
}

// Sessions share the Store of a file. It lives while a session has the file open, so the inode number cannot be reused.
struct KnownStores {
    std::mutex mutex;
    std::vector<std::weak_ptr<Store>> stores;
};

KnownStores& knownStores() {
    // Never destroyed: other threads may use it at exit.
    static auto* known = std::make_unique<KnownStores>().release();
    return *known;
}

std::shared_ptr<Store> shareStore(Connection& connection, FileIdentity identity) {
    KnownStores& known = knownStores();
    const std::lock_guard lock(known.mutex);
    std::erase_if(known.stores, [](const auto& store) { return store.expired(); });
    for (const auto& entry : known.stores) {
        std::shared_ptr<Store> store = entry.lock();
        if (store && store->identity() == identity && !store->lost()) {
            return store;
        }
    }
    auto store = std::make_shared<Store>(connection.path(), identity, connection);
    known.stores.emplace_back(store);
    return store;
}

// Returns the identity of the connection's open file, or `std::nullopt` when the path leads to another file.
std::optional<FileIdentity> identify(const Connection& connection) {
    struct stat file {};
    if (stat(connection.path().c_str(), &file) != 0 || connection.moved()) {
        return std::nullopt;
    }
    return FileIdentity{file.st_dev, file.st_ino};
}

}  // namespace

const char* storePath() {
    const char* named = std::getenv("HAB_STORE");
    return named != nullptr && *named != '\0' ? named : kDefaultPath;
}

Store::Store(std::string path, FileIdentity identity, Connection& connection)
    : path_(std::move(path)), identity_(identity), schema_(connection), watch_(path_) {}

std::unique_ptr<Connection> Store::connect() {
    auto connection = std::make_unique<Connection>(path_);
    return lost() || identify(*connection) != identity_ ? nullptr : std::move(connection);
}

bool Store::lost() {
    if (lost_.load(std::memory_order_acquire)) {
        return true;
    }
    struct stat file {};
    if (stat(path_.c_str(), &file) == 0) {
        if (FileIdentity{file.st_dev, file.st_ino} == identity_) {
            return false;
        }
    } else if (errno != ENOENT && errno != ENOTDIR) {
        throw SqliteError(SQLITE_IOERR, std::string("its path cannot be checked: ") + std::strerror(errno));
    }
    lose("replaced or deleted while in use; nothing is read or written any more, restart to use the new one");
    return true;
}

bool Store::fits(Connection& connection) {
    const Schema present(connection);
    if (schema_.keptIn(present, connection.number("SELECT max(seq) FROM sqlite_sequence WHERE name = 'hab_field'"))) {
        return true;
    }
    lose("restored from a copy with a different schema; nothing is read or written any more, restart to use it");
    return false;
}

void Store::lose(std::string_view why) {
    // Reported before any caller sees a resulting failure.
    std::call_once(lossReported_, [&] { complain(path_, why); });
    lost_.store(true, std::memory_order_release);
}

void Store::damaged(std::string_view what) {
    std::call_once(damageReported_, [&] { complain(path_, "damaged; restore a copy", what); });
}

std::unique_ptr<Connection> connectChecked(const std::string& path, bool anySchema) {
    const std::string trouble = troubleWith(path);
    if (!trouble.empty()) {
        complain(path, trouble);
        return nullptr;
    }
    try {
        auto connection = std::make_unique<Connection>(path);
        if (connection->number("PRAGMA application_id") != kApplicationId) {
            complain(path, "not a store of this format; make one with 'habctl init', or name another with HAB_STORE");
            return nullptr;
        }
        if (!anySchema && connection->number("PRAGMA user_version") != kSchemaId) {
            complain(path, "has an older schema than this program; bring it up to date with 'habctl init --upgrade'");
            return nullptr;
        }
        connection->run("PRAGMA journal_mode = WAL");  // a copied file may have another mode
        if (connection->readOnly()) {
            complain(path, "read-only; its owner must be able to write the file and its folder");
            return nullptr;
        }
        return connection;
    } catch (const SqliteError& error) {
        complain(path, explain(error));
        return nullptr;
    }
}

OpenedStore openStore(const std::string& path) {
    std::unique_ptr<Connection> connection = connectChecked(path, false);
    if (!connection) {
        return {};
    }
    try {
        const std::optional<FileIdentity> identity = identify(*connection);
        if (!identity) {
            complain(path, "replaced while it was being opened; try again");
            return {};
        }
        std::shared_ptr<Store> store = shareStore(*connection, *identity);
        if (store->lost()) {
            return {};  // replaced before its watch was set
        }
        return {std::move(store), std::move(connection)};
    } catch (const SqliteError& error) {
        complain(path, explain(error));
        return {};
    }
}

}  // namespace hab
