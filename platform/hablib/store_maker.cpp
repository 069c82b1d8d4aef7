#include "store_maker.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "file_watch.h"
#include "hablib.h"
#include "schema_writer.h"
#include "store.h"

namespace hab {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void fillStore(const std::string& path) {
    Connection connection(path);
    {
        Transaction transaction(connection);
        connection.run(("PRAGMA application_id = " + std::to_string(kApplicationId)).c_str());
        writeLayout(connection);
        writeSchema(connection);
        transaction.commit();
    }
    // Last, so that everything is in the file itself: failures of the checkpoint that closes a log are not reported.
    connection.run("PRAGMA journal_mode = WAL");
}

// Removes an old store, main file first. Processes that have it open detect that at once and do not touch the new files
// of the same name.
void removeStore(const std::string& path) {
    for (const char* part : {"", "-wal", "-shm"}) {
        if (unlink((path + part).c_str()) != 0 && errno != ENOENT) {
            fail("cannot remove " + path + part);
        }
    }
}

// Opens an old store if there is one that SQLite can read. While it is open, no other process closes it as the last
// one and deletes the files beside it by name, which may already belong to the new store.
std::unique_ptr<Connection> keepOpen(const std::string& path) {
    try {
        auto connection = std::make_unique<Connection>(path);
        connection->number("SELECT count(*) FROM sqlite_schema");
        return connection;
    } catch (const SqliteError&) {
        return nullptr;
    }
}

void publish(const std::string& draft, const std::string& path, bool replace) {
    std::unique_ptr<Connection> old;
    if (replace) {
        old = keepOpen(path);
        removeStore(path);
    }
    // Unlike rename, link fails when another process has created a store there in the meantime.
    if (link(draft.c_str(), path.c_str()) == 0) {
        return;
    }
    if (errno == EEXIST) {
        throw std::runtime_error("there is a store already; 'habctl init --force' replaces it with an empty one");
    }
    fail("cannot be made");
}

// Runs an operation. Reports its failure on standard error and returns the status.
template <class Operation>
int reported(const std::string& path, Operation operation) {
    try {
        operation();
        return HAB_OK;
    } catch (const SqliteError& error) {
        complain(path, error.what());
        return statusOf(error.code());
    } catch (const std::exception& error) {
        complain(path, error.what());
        return HAB_ERROR;
    }
}

}  // namespace

int makeStore(const std::string& path, bool replace) {
    return reported(path, [&] {
        const std::filesystem::path folder = std::filesystem::path(path).parent_path();
        if (!folder.empty() && mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) {
            fail("its folder cannot be made");
        }
        Draft draft(path);
        if (!draft) {
            fail("cannot make a file there");
        }
        draft.close();  // closing it after publication would drop this process's locks on the store
        fillStore(draft.name());
        publish(draft.name(), path, replace);
    });
}

int upgradeStore(const std::string& path) {
    const std::unique_ptr<Connection> connection = connectChecked(path, true);
    if (!connection) {
        return HAB_ERROR;
    }
    return reported(path, [&] {
        Transaction transaction(*connection);
        renewLayout(*connection);
        writeSchema(*connection);
        const std::int64_t dropped = dropMisfits(*connection);
        transaction.commit();
        if (dropped > 0) {
            complain(path, std::to_string(dropped) + " values have no place in the new schema and were dropped");
        }
    });
}

}  // namespace hab
