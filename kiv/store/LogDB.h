#pragma once

#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/data/Item.h"
#include "kiv/logging/LogMessage.h"
#include "kiv/platform/Compiler.h"
#include "kiv/store/Store.h"

#include <cstdint>
#include <optional>

namespace kiv {

// Log lines in a store, under ascending numbers below a root key: a ring that drops its oldest lines when there are too
// many (doc/formats/store-records.md). Filled by logging::LogBackend::flushTo(). A database opened again goes on where
// it was.
// Ownership: counted; keeps the store of its root. Threads: one at a time. Failures: lines of a root that is not bound
// to a store are dropped; counters that can't be right are corrected on opening; exceptions of the store leave the
// database without the line.
class KIV_API LogDB : public Object {
    KIV_OBJECT(LogDB, Object)
public:
    explicit LogDB(const Item& root);
    LogDB(const LogDB&) = delete;
    LogDB& operator=(const LogDB&) = delete;
    ~LogDB() override;

    // Appends the line and removes up to two of those above the limit, in one transaction. The text is kept up to its
    // first zero character.
    void addLine(const logging::LogMessage* message);
    // Null when there is no such line or its record can't be read.
    std::optional<logging::LogMessage> getLine(int64_t index) const;
    // The kept lines are those from begin to before end.
    int64_t getBegin() const { return m_begin; }
    int64_t getEnd() const { return m_end; }

    // Reads the counters again, which is needed when a transaction that lines were added in has been rolled back.
    void reload();

    // The key that the lines are children of, the root, and their store: null when the root was not bound.
    Item& getData() { return m_data; }
    Item& getRoot() { return m_root; }
    Store* getStore() const { return m_store.get(); }

protected:
    // Requires: lineLimit > 0.
    LogDB(const Item& root, int32_t lineLimit);

private:
    Item below(const char* name) const;
    Item keyOf(int64_t index) const;
    int64_t readCounter(const Item& key) const;

    const SmartPointer<Store> m_store;
    const int64_t m_lineLimit;
    Item m_root;
    Item m_data;
    const Item m_beginKey;
    const Item m_endKey;
    int64_t m_begin = 0;
    int64_t m_end = 0;
    // The stored number is another.
    bool m_wasBeginCorrected = false;
};

} // namespace kiv
