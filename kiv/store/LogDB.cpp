#include "kiv/store/LogDB.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/store/ScopedTransaction.h"

#include <algorithm>
#include <limits>

namespace kiv {
namespace {

constexpr int32_t usualLineLimit = 0xC00000;
constexpr int mostLinesTrimmedAtOnce = 2;

// A ring of more lines, or numbers as high as that, were never written: the record is damaged. Lines can be numbered on
// for ever from below.
constexpr int64_t mostLines = std::numeric_limits<int32_t>::max();
constexpr int64_t highestEnd = int64_t{1} << 62;

} // namespace

LogDB::LogDB(const Item& root) : LogDB(root, usualLineLimit) {}

LogDB::LogDB(const Item& root, int32_t lineLimit)
    : m_store(root.getStore()), m_lineLimit(std::max(lineLimit, 1)), m_root(root), m_data(below("data")),
      m_beginKey(below("firstPos")), m_endKey(below("pos")) {
    if (!m_store) logging::MessageStream(3, 2) << "[LOG] the log database has no store, its lines are dropped";
    reload();
}

LogDB::~LogDB() = default;

Item LogDB::below(const char* name) const {
    Item key(m_root);
    key.addString(name);
    return key;
}

Item LogDB::keyOf(int64_t index) const {
    Item key(m_data);
    key.add(index);
    return key;
}

int64_t LogDB::readCounter(const Item& key) const {
    int64_t number = 0;
    const Item* value = m_store ? m_store->get(key) : nullptr;
    if (value) value->getIterator().asInteger(number);
    return number;
}

void LogDB::reload() {
    m_end = readCounter(m_endKey);
    if (m_end < 0 || m_end > highestEnd) m_end = 0;
    const int64_t begin = readCounter(m_beginKey);
    m_wasBeginCorrected = begin < 0 || begin > m_end || m_end - begin > mostLines;
    m_begin = m_wasBeginCorrected ? std::max<int64_t>(0, m_end - m_lineLimit) : begin;
}

void LogDB::addLine(const logging::LogMessage* message) {
    if (!m_store || !message) return;
    Item line;
    line.add(message->getTime());
    line.addString(message->getText().c_str());

    int64_t begin = m_begin;
    const int64_t end = m_end + 1;
    ScopedTransaction transaction(m_store);
    m_store->set(m_endKey, end);
    for (int i = 0; i < mostLinesTrimmedAtOnce && end - begin > m_lineLimit; ++i, ++begin) keyOf(begin).remove();
    if (begin != m_begin || m_wasBeginCorrected) m_store->set(m_beginKey, begin);
    keyOf(m_end).store(line);
    transaction.commit();
    m_begin = begin;
    m_end = end;
    m_wasBeginCorrected = false;
}

std::optional<logging::LogMessage> LogDB::getLine(int64_t index) const {
    const Item* value = m_store && index >= m_begin && index < m_end ? m_store->get(keyOf(index)) : nullptr;
    if (!value) return std::nullopt;
    auto it = value->getIterator();
    int64_t time = 0;
    const bool hasTime = it.asInteger(time);
    const char* text = hasTime ? it.asWeakCStr() : nullptr;
    if (!text) return std::nullopt;
    return logging::LogMessage(time, text);
}

} // namespace kiv
