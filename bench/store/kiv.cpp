#include "Items.h"
#include "Races.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/store/MemoryStore.h"

namespace {

using kiv::Item;

class KivStore : public bench::Contestant {
public:
    using Form = bench::Items;
    static constexpr const char* name = "kiv";

    void set(const Item& key, const Item& value) { m_store->set(key, value); }

    uint64_t get(const Item& key) {
        const Item* value = m_store->get(key);
        return value ? bench::head(value->getPlainBytePointer()) : 0;
    }

    uint64_t range(const Item& from, size_t count) {
        uint64_t sum = 0;
        for (auto at = m_store->lastData().above(from); at && count > 0; at.next(), --count) sum += heads(at);
        return sum;
    }

    uint64_t scan() {
        uint64_t sum = 0;
        for (auto at = m_store->lastData().first(); at; at.next()) sum += heads(at);
        return sum;
    }

    template <class Visit>
    void walk(Visit visit) {
        Item key;
        for (bool more = m_store->first(key); more; more = m_store->next(key, key)) {
            visit(Form::view(key), Form::view(*m_store->get(key)));
        }
    }

    void erase(const Item& from, const Item& to) { m_store->remove(from, to); }
    void begin() { m_store->begin(); }
    void commit() { m_store->commit(); }
    void rollback() { m_store->rollback(); }
    size_t memory() { return static_cast<size_t>(m_store->lastData().getPageMemory()); }

protected:
    static uint64_t heads(const kiv::PageTree::Cursor& at) {
        return bench::head(at.getKey().getBytePointer()) + bench::head(at.getValue().getBytePointer());
    }

    kiv::SmartPointer<kiv::MemoryStore> m_store{new kiv::MemoryStore(true)};
};

// Walks in the way of the interface that all stores share: each step asks for a key and then for its value.
class KivAsStore : public KivStore {
public:
    static constexpr const char* name = "kiv-step-by-step";

    uint64_t range(const Item& from, size_t count) {
        uint64_t sum = 0;
        Item key = from;
        for (; count > 0 && m_store->next(key, key); --count) sum += bench::head(key.getPlainBytePointer()) + get(key);
        return sum;
    }

    uint64_t scan() {
        uint64_t sum = 0;
        Item key;
        for (bool more = m_store->first(key); more; more = m_store->next(key, key)) {
            sum += bench::head(key.getPlainBytePointer()) + get(key);
        }
        return sum;
    }
};

[[maybe_unused]] const bool added = [] {
    bench::addAll<KivStore>();
    bench::add<KivAsStore>("scan", bench::scanRace<KivAsStore>);
    bench::add<KivAsStore>("range-100", bench::rangeRace<KivAsStore>);
    return true;
}();

} // namespace
