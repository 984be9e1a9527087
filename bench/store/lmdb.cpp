#include "Races.h"

#include <lmdb.h>
#include <unistd.h>

namespace {

void check(int result) {
    if (result != 0) bench::fail("LMDB", mdb_strerror(result));
}

MDB_val valueOf(std::string_view bytes) {
    return {bytes.size(), const_cast<char*>(bytes.data())};
}

// On a file in memory that has no name any more, without locks and waiting for no disk. Changes outside of transactions
// share one that stays open, and so do reads; cursors are kept.
class Lmdb : public bench::Contestant {
public:
    using Form = bench::Bytes;
    using Key = Form::Key;
    static constexpr const char* name = "LMDB";

    Lmdb() : Lmdb(MDB_WRITEMAP) {}
    Lmdb(const Lmdb&) = delete;
    Lmdb& operator=(const Lmdb&) = delete;
    ~Lmdb() {
        endAll();
        mdb_env_close(m_environment);
    }

    void startWriting() {
        if (m_writing) return;
        endAll();
        check(mdb_txn_begin(m_environment, nullptr, 0, &m_writing));
        check(mdb_cursor_open(m_writing, m_table, &m_writer));
    }
    void startReading() {
        if (m_reading) return;
        endAll();
        check(mdb_txn_begin(m_environment, nullptr, MDB_RDONLY, &m_reading));
        check(mdb_cursor_open(m_reading, m_table, &m_reader));
    }

    void set(const Key& key, std::string_view value) {
        MDB_val entry = valueOf(Form::view(key)), content = valueOf(value);
        check(mdb_put(m_open.empty() ? m_writing : m_open.back(), m_table, &entry, &content, 0));
    }

    uint64_t get(const Key& key) {
        MDB_val entry = valueOf(Form::view(key)), content;
        return mdb_get(current(), m_table, &entry, &content) == 0 ? bench::head(content.mv_data) : 0;
    }

    uint64_t range(const Key& from, size_t count) {
        MDB_val key = valueOf(Form::view(from)), value;
        return sum(key, value, mdb_cursor_get(m_reader, &key, &value, MDB_SET_RANGE), count);
    }

    uint64_t scan() {
        MDB_val key, value;
        return sum(key, value, mdb_cursor_get(m_reader, &key, &value, MDB_FIRST), SIZE_MAX);
    }

    template <class Visit>
    void walk(Visit visit) {
        startReading();
        MDB_val key, value;
        for (int result = mdb_cursor_get(m_reader, &key, &value, MDB_FIRST); result == 0;
             result = mdb_cursor_get(m_reader, &key, &value, MDB_NEXT)) {
            visit(viewOf(key), viewOf(value));
        }
    }

    void erase(const Key& from, const Key& to) {
        MDB_val key = valueOf(Form::view(from)), value;
        const std::string_view last = Form::view(to);
        int result = mdb_cursor_get(m_writer, &key, &value, MDB_SET_RANGE);
        while (result == 0 && viewOf(key) <= last) {
            check(mdb_cursor_del(m_writer, 0));
            result = mdb_cursor_get(m_writer, &key, &value, MDB_NEXT);
        }
    }

    void begin() {
        if (m_open.empty()) endAll();
        MDB_txn* transaction = nullptr;
        check(mdb_txn_begin(m_environment, m_open.empty() ? nullptr : m_open.back(), 0, &transaction));
        m_open.push_back(transaction);
    }
    void commit() {
        check(mdb_txn_commit(m_open.back()));
        m_open.pop_back();
    }
    void rollback() {
        mdb_txn_abort(m_open.back());
        m_open.pop_back();
    }

    size_t memory() {
        MDB_envinfo info;
        MDB_stat stat;
        check(mdb_env_info(m_environment, &info));
        check(mdb_env_stat(m_environment, &stat));
        return (info.me_last_pgno + 1) * stat.ms_psize;
    }

protected:
    explicit Lmdb(unsigned flags) {
        char path[] = "/dev/shm/kivBenchXXXXXX";
        const int file = mkstemp(path);
        if (file < 0) bench::fail(name, "there is no /dev/shm to write to");
        close(file);
        check(mdb_env_create(&m_environment));
        check(mdb_env_set_mapsize(m_environment, size_t{1} << 30));
        const unsigned always = MDB_NOSUBDIR | MDB_NOSYNC | MDB_NOMETASYNC | MDB_NOLOCK;
        check(mdb_env_open(m_environment, path, flags | always, 0600));
        unlink(path);
        MDB_txn* transaction = nullptr;
        check(mdb_txn_begin(m_environment, nullptr, 0, &transaction));
        check(mdb_dbi_open(transaction, nullptr, 0, &m_table));
        check(mdb_txn_commit(transaction));
    }

private:
    static std::string_view viewOf(const MDB_val& value) {
        return {static_cast<const char*>(value.mv_data), value.mv_size};
    }

    MDB_txn* current() const { return m_writing ? m_writing : m_reading; }

    uint64_t sum(MDB_val& key, MDB_val& value, int result, size_t count) {
        uint64_t sum = 0;
        for (; result == 0 && count > 0; --count) {
            sum += bench::head(key.mv_data) + bench::head(value.mv_data);
            result = mdb_cursor_get(m_reader, &key, &value, MDB_NEXT);
        }
        return sum;
    }

    void endAll() {
        if (m_reader) mdb_cursor_close(m_reader);
        if (m_writer) mdb_cursor_close(m_writer);
        if (m_reading) mdb_txn_abort(m_reading);
        if (m_writing) check(mdb_txn_commit(m_writing));
        m_reader = m_writer = nullptr;
        m_reading = m_writing = nullptr;
    }

    MDB_env* m_environment = nullptr;
    MDB_dbi m_table = 0;
    MDB_txn* m_reading = nullptr;
    MDB_txn* m_writing = nullptr;
    MDB_cursor* m_reader = nullptr;
    MDB_cursor* m_writer = nullptr;
    std::vector<MDB_txn*> m_open;
};

// Transactions nest only where changes are not written through the mapping.
class LmdbNested : public Lmdb {
public:
    LmdbNested() : Lmdb(0) {}
};

[[maybe_unused]] const bool added = [] {
    bench::addWriting<Lmdb>();
    bench::addReading<Lmdb>();
    bench::addTransactions<Lmdb>();
    bench::addNestedTransactions<LmdbNested>();
    return true;
}();

} // namespace
