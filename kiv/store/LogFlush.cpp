// The part of LogBackend that knows the log database.
#include "kiv/core/Containers.h"
#include "kiv/logging/LogBackend.h"
#include "kiv/store/LogDB.h"
#include "kiv/store/ScopedTransaction.h"

namespace kiv::logging {
namespace {

constexpr size_t mostMessagesAtOnce = 512;

// An exception means that the store has not taken it.
bool tryAddLine(LogDB& db, const LogMessage& message) {
    try {
        db.addLine(&message);
        return true;
    } catch (...) {
        return false;
    }
}

void tryReload(LogDB& db) {
    try {
        db.reload();
    } catch (...) {
    }
}

} // namespace

unsigned LogBackend::flushTo(unsigned queue, LogDB* db) {
    if (!db || !db->getStore()) return 0;
    unsigned written = 0;
    bool isUndone = false;
    // Kept until they are committed: those that are not go back to where they came from.
    Vector<std::unique_ptr<LogMessage>> taken;
    taken.reserve(mostMessagesAtOnce);
    if (auto oldest = takeOldest(queue)) taken.push_back(std::move(oldest));
    if (taken.empty()) return 0;
    try {
        ScopedTransaction transaction(db->getStore());
        while (tryAddLine(*db, *taken.back())) {
            ++written;
            if (taken.size() == mostMessagesAtOnce) break;
            auto oldest = takeOldest(queue);
            if (!oldest) break;
            taken.push_back(std::move(oldest));
        }
        transaction.commit();
    } catch (...) {
        isUndone = true;
        written = 0;
    }
    for (; taken.size() > written; taken.pop_back()) putBack(queue, std::move(taken.back()));
    if (isUndone) tryReload(*db);
    return written;
}

} // namespace kiv::logging
