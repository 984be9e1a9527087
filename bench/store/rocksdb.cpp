#include "Races.h"

#include <rocksdb/cache.h>
#include <rocksdb/db.h>
#include <rocksdb/env.h>
#include <rocksdb/filter_policy.h>
#include <rocksdb/table.h>

namespace {

void check(const rocksdb::Status& status) {
    if (!status.ok()) bench::fail("RocksDB", status.ToString().c_str());
}

rocksdb::Slice sliceOf(std::string_view bytes) {
    return {bytes.data(), bytes.size()};
}

std::string_view viewOf(const rocksdb::Slice& slice) {
    return {slice.data(), slice.size()};
}

// On files in memory, without a log; before it is read everything lies in tables with filters, and its cache holds them
// all.
class RocksDb : public bench::Contestant {
public:
    using Form = bench::Bytes;
    using Key = Form::Key;
    static constexpr const char* name = "RocksDB";

    RocksDb() : m_environment(rocksdb::NewMemEnv(rocksdb::Env::Default())) {
        rocksdb::BlockBasedTableOptions table;
        table.block_cache = rocksdb::NewLRUCache(size_t{512} << 20);
        table.filter_policy.reset(rocksdb::NewBloomFilterPolicy(10));
        table.data_block_index_type = rocksdb::BlockBasedTableOptions::kDataBlockBinaryAndHash;
        rocksdb::Options options;
        options.env = m_environment.get();
        options.create_if_missing = true;
        options.compression = rocksdb::kNoCompression;
        options.write_buffer_size = size_t{256} << 20;
        options.table_factory.reset(rocksdb::NewBlockBasedTableFactory(table));
        rocksdb::DB* database = nullptr;
        check(rocksdb::DB::Open(options, "/bench", &database));
        m_database.reset(database);
        m_writing.disableWAL = true;
        m_reading.verify_checksums = false;
    }

    void startReading() {
        check(m_database->Flush(rocksdb::FlushOptions()));
        check(m_database->CompactRange(rocksdb::CompactRangeOptions(), nullptr, nullptr));
    }

    void set(const Key& key, std::string_view value) {
        check(m_database->Put(m_writing, sliceOf(Form::view(key)), sliceOf(value)));
    }

    uint64_t get(const Key& key) {
        m_value.Reset();
        const auto status =
            m_database->Get(m_reading, m_database->DefaultColumnFamily(), sliceOf(Form::view(key)), &m_value);
        return status.ok() ? bench::head(m_value.data()) : 0;
    }

    uint64_t range(const Key& from, size_t count) {
        const auto at = iterator();
        uint64_t sum = 0;
        for (at->Seek(sliceOf(Form::view(from))); count > 0 && at->Valid(); at->Next(), --count) sum += heads(*at);
        return sum;
    }

    uint64_t scan() {
        const auto at = iterator();
        uint64_t sum = 0;
        for (at->SeekToFirst(); at->Valid(); at->Next()) sum += heads(*at);
        return sum;
    }

    template <class Visit>
    void walk(Visit visit) {
        const auto at = iterator();
        for (at->SeekToFirst(); at->Valid(); at->Next()) visit(viewOf(at->key()), viewOf(at->value()));
    }

private:
    std::unique_ptr<rocksdb::Iterator> iterator() {
        return std::unique_ptr<rocksdb::Iterator>(m_database->NewIterator(m_reading));
    }
    static uint64_t heads(const rocksdb::Iterator& at) {
        return bench::head(at.key().data()) + bench::head(at.value().data());
    }

    std::unique_ptr<rocksdb::Env> m_environment;
    std::unique_ptr<rocksdb::DB> m_database;
    rocksdb::WriteOptions m_writing;
    rocksdb::ReadOptions m_reading;
    rocksdb::PinnableSlice m_value;
};

[[maybe_unused]] const bool added = (bench::addReading<RocksDb>(), true);

} // namespace
