#include "Silence.h"

#include "kiv/data/Item.h"
#include "kiv/store/LogDB.h"
#include "kiv/store/MemoryStore.h"

#include <algorithm>
#include <cstdlib>

namespace {

using namespace kiv;

void require(bool holds) {
    if (!holds) std::abort();
}

struct SmallLogDB : LogDB {
    explicit SmallLogDB(const Item& root) : LogDB(root, 4) {}
};

// The input cut into pieces: a byte of length before each.
class Pieces {
public:
    Pieces(const uint8_t* data, size_t size) : m_data(data), m_left(size) {}
    bool empty() const { return m_left == 0; }
    Item next() {
        if (m_left == 0) return Item();
        const size_t size = std::min<size_t>(*m_data, m_left - 1);
        const Item piece(Item::PlainMode(), {m_data + 1, static_cast<unsigned>(size)});
        m_data += 1 + size;
        m_left -= 1 + size;
        return piece;
    }

private:
    const uint8_t* m_data;
    size_t m_left;
};

} // namespace

// A log database opened on a record of any two counters and any other entries, then used: the numbers stay in order,
// what is added can be read, and it goes on where it was when it is opened again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Pieces pieces(data, std::min<size_t>(size, 4096));
    const SmartPointer<Store> store(new MemoryStore(true));
    const Item root(store.get());
    store->set("pos", pieces.next());
    store->set("firstPos", pieces.next());
    while (!pieces.empty()) {
        Item key("data");
        key.concatItem(pieces.next());
        store->set(key, pieces.next());
    }
    const SmartPointer<LogDB> db(new SmallLogDB(root));
    for (int i = 0; i < 8; ++i) {
        const int64_t begin = db->getBegin(), end = db->getEnd();
        require(0 <= begin && begin <= end);
        for (int64_t line = begin; line < std::min(end, begin + 8); ++line) db->getLine(line);
        const logging::LogMessage message(end, "line");
        db->addLine(&message);
        require(db->getEnd() == end + 1 && db->getBegin() >= begin && db->getBegin() <= begin + 2);
        require(db->getLine(end) && db->getLine(end)->getTime() == end);
        require(db->getEnd() - db->getBegin() <= std::max<int64_t>(4, end - begin));
        const SmartPointer<LogDB> again(new SmallLogDB(root));
        require(again->getBegin() == db->getBegin() && again->getEnd() == db->getEnd());
    }
    return 0;
}
