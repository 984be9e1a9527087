#include "Races.h"

#include <sqlite3.h>

namespace {

using Statement = sqlite3_stmt*;

// A table in memory that is its own index, with prepared statements.
class Sqlite : public bench::Contestant {
public:
    using Form = bench::Bytes;
    using Key = Form::Key;
    static constexpr const char* name = "SQLite";

    Sqlite() {
        check(sqlite3_open(":memory:", &m_database));
        check(sqlite3_exec(m_database,
                           "PRAGMA journal_mode = MEMORY; PRAGMA synchronous = OFF;"
                           "CREATE TABLE entries (key BLOB PRIMARY KEY, value BLOB) WITHOUT ROWID",
                           nullptr, nullptr, nullptr));
        m_set = prepared("INSERT OR REPLACE INTO entries VALUES (?1, ?2)");
        m_get = prepared("SELECT value FROM entries WHERE key = ?1");
        m_range = prepared("SELECT key, value FROM entries WHERE key >= ?1 ORDER BY key LIMIT ?2");
        m_scan = prepared("SELECT key, value FROM entries ORDER BY key");
        m_erase = prepared("DELETE FROM entries WHERE key BETWEEN ?1 AND ?2");
        m_begin = prepared("BEGIN");
        m_commit = prepared("COMMIT");
        m_rollback = prepared("ROLLBACK");
        m_save = prepared("SAVEPOINT inner");
        m_release = prepared("RELEASE inner");
        m_return = prepared("ROLLBACK TO inner");
    }
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;
    ~Sqlite() {
        for (const Statement statement : m_statements) sqlite3_finalize(statement);
        sqlite3_close(m_database);
    }

    // Changes outside of transactions share one.
    void startWriting() {
        if (sqlite3_get_autocommit(m_database)) run(m_begin);
    }
    void startReading() {
        if (!sqlite3_get_autocommit(m_database)) run(m_commit);
    }

    void set(const Key& key, std::string_view value) {
        bind(m_set, 1, Form::view(key));
        bind(m_set, 2, value);
        run(m_set);
    }

    uint64_t get(const Key& key) {
        bind(m_get, 1, Form::view(key));
        const uint64_t result = sqlite3_step(m_get) == SQLITE_ROW ? bench::head(sqlite3_column_blob(m_get, 0)) : 0;
        sqlite3_reset(m_get);
        return result;
    }

    uint64_t range(const Key& from, size_t count) {
        bind(m_range, 1, Form::view(from));
        check(sqlite3_bind_int64(m_range, 2, static_cast<sqlite3_int64>(count)));
        return sum(m_range);
    }

    uint64_t scan() { return sum(m_scan); }

    template <class Visit>
    void walk(Visit visit) {
        while (sqlite3_step(m_scan) == SQLITE_ROW) visit(column(m_scan, 0), column(m_scan, 1));
        sqlite3_reset(m_scan);
    }

    void erase(const Key& from, const Key& to) {
        bind(m_erase, 1, Form::view(from));
        bind(m_erase, 2, Form::view(to));
        run(m_erase);
    }

    void begin() {
        run(m_depth == 0 ? m_begin : m_save);
        ++m_depth;
    }
    void commit() {
        --m_depth;
        run(m_depth == 0 ? m_commit : m_release);
    }
    void rollback() {
        --m_depth;
        run(m_depth == 0 ? m_rollback : m_return);
        if (m_depth > 0) run(m_release);
    }

    size_t memory() { return static_cast<size_t>(sqlite3_memory_used()); }

private:
    static void check(int result) {
        if (result != SQLITE_OK) bench::fail(name, sqlite3_errstr(result));
    }

    Statement prepared(const char* text) {
        Statement statement = nullptr;
        check(sqlite3_prepare_v3(m_database, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
        m_statements.push_back(statement);
        return statement;
    }

    static void bind(Statement statement, int at, std::string_view bytes) {
        check(sqlite3_bind_blob(statement, at, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC));
    }
    static void run(Statement statement) {
        sqlite3_step(statement);
        check(sqlite3_reset(statement));
    }
    static std::string_view column(Statement statement, int at) {
        return {static_cast<const char*>(sqlite3_column_blob(statement, at)),
                static_cast<size_t>(sqlite3_column_bytes(statement, at))};
    }
    static uint64_t sum(Statement statement) {
        uint64_t sum = 0;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            sum += bench::head(sqlite3_column_blob(statement, 0)) + bench::head(sqlite3_column_blob(statement, 1));
        }
        sqlite3_reset(statement);
        return sum;
    }

    sqlite3* m_database = nullptr;
    std::vector<Statement> m_statements;
    Statement m_set, m_get, m_range, m_scan, m_erase, m_begin, m_commit, m_rollback, m_save, m_release, m_return;
    int m_depth = 0;
};

[[maybe_unused]] const bool added = bench::addAll<Sqlite>();

} // namespace
