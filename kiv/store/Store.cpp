#include "kiv/store/Store.h"

#include "kiv/core/Clock.h"
#include "kiv/core/ReportGenerator.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileStream.h"
#include "kiv/store/EntryWalk.h"
#include "kiv/store/ItemBound.h"
#include "kiv/store/ScopedTransaction.h"

#include <cstdio>
#include <memory>

namespace kiv {
namespace {

struct FileClose {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

template <class Write>
void writeLines(Store& store, Write write) {
    internal::visitEntries(store, [&](const Item& key, const Item& value) {
        String line = key.asString();
        line.append(" = ").append(value.asString());
        write(line);
        return true;
    });
}

bool canCopy(const Store* source, const Store* target) {
    if (source && source != target) return true;
    logging::MessageStream(3, 2) << (source ? "[STORE] cant copy a database to itself" : "[STORE] no database to copy");
    return false;
}

void logCopied(uint64_t count, int64_t milliseconds) {
    const double seconds = static_cast<double>(milliseconds) / 1000.0;
    const double rate = count == 0 ? 0 : static_cast<double>(count) / seconds; // "inf" when no time has passed
    // The time is divided once more on purpose: readers of these lines know it so.
    logging::MessageStream(1, 2) << "[STORE] copied " << count << " items in " << seconds / 1000.0 << "s (" << rate
                                 << "items/s)";
}

// Finds the entries that a copy leaves out, in one walk beside all entries: those at and below excluded keys, and those
// with a marker among their elements, which no walk from child to child comes to.
class CopyFilter {
public:
    explicit CopyFilter(const Set<Item>& exclude) : m_at(exclude.begin()), m_end(exclude.end()) {}

    // For keys in ascending order: null for one to be copied, else the end of the range that is left out with it. Valid
    // until the next call.
    const Item* rejects(const Item& key) {
        // An excluded key leaves out one range, so those whose range lies before `key` are done with.
        for (; m_at != m_end && Item::compareTotal(*m_at, key) <= 0; ++m_at) {
            // What ends in the middle of an element has nothing below it, and a marker behind it would complete it.
            if (!isWhole(*m_at)) {
                if (Item::compareTotal(*m_at, key) == 0) return &key;
                continue;
            }
            m_last.set(*m_at, m_at->getPlainSize(), ValueType::End);
            if (Item::compareTotal(key, m_last) <= 0) return &m_last.get();
        }
        for (auto it = key.getIterator(); it.hasNextElement(); it.skip()) {
            const ValueType type = it.getType();
            if (type < ValueType::Meta) continue;
            if (type == ValueType::End) return &key;
            m_last.set(key, static_cast<unsigned>(it.getOffset()), ValueType::End);
            return &m_last.get();
        }
        return nullptr;
    }

private:
    static bool isWhole(const Item& key) {
        auto it = key.getIterator();
        it.skipToEnd();
        return static_cast<unsigned>(it.getOffset()) == key.getPlainSize();
    }

    Set<Item>::const_iterator m_at, m_end;
    ItemBound m_last;
};

// Without a filter, all entries.
void copyEntries(Store* source, Store& target, CopyFilter* filter) {
    if (!canCopy(source, &target)) return;
    logging::MessageStream(1, 2) << "[STORE] copying database" << (filter ? " with exclude filters" : "");
    const int64_t start = Clock::current().getMilliseconds();
    uint64_t count = 0;
    ScopedTransaction transaction(&target);
    Item key, copy;
    for (bool more = source->first(key); more;) {
        const Item* last = filter ? filter->rejects(key) : nullptr;
        const Item* value = last ? nullptr : source->get(key);
        if (value) {
            copy = *value; // the stores may share what is behind them
            target.set(key, copy);
            ++count;
        }
        more = source->next(last ? *last : key, key);
    }
    transaction.commit();
    target.flush();
    logCopied(count, Clock::current().getMilliseconds() - start);
}

} // namespace

void Store::copyFrom(Store* source) {
    copyEntries(source, *this, nullptr);
}

void Store::copyFrom(Store* source, const Set<Item>& exclude) {
    CopyFilter filter(exclude);
    copyEntries(source, *this, &filter);
}

void Store::dumpraw() {
    logging::MessageStream(1, 2) << "store raw dump begin:";
    writeLines(*this, [](const String& line) { logging::MessageStream(1, 2) << line; });
    logging::MessageStream(1, 2) << "store raw dump end";
}

void Store::dumpToFile(const char* path) {
    std::unique_ptr<std::FILE, FileClose> file(platform::openFile(path, platform::FileMode::Write));
    if (!file) {
        logging::MessageStream(3, 2) << "cant open file '" << path << "'";
        return;
    }
    logging::MessageStream(1, 2) << "store raw dump to " << path;
    bool isWritten = true;
    writeLines(*this, [&](String& line) {
        line += '\n';
        isWritten &= std::fwrite(line.data(), 1, line.size(), file.get()) == line.size();
    });
    isWritten &= std::fclose(file.release()) == 0;
    if (!isWritten) logging::MessageStream(3, 2) << "cant write file '" << path << "'";
    logging::MessageStream(1, 2) << "store raw dump end";
}

void Store::report(ReportGenerator* generator) {
    if (!generator) return;
    generator->beginSection("store:");
    writeLines(*this, [&](const String& line) { generator->addLine(line); });
}

void Store::benchmark() {
    const int64_t start = Clock::current().getMilliseconds();
    internal::visitEntries(*this, [](const Item&, const Item&) { return true; });
    logging::MessageStream(1, 2) << "store benchmark: " << Clock::current().getMilliseconds() - start << "ms";
}

} // namespace kiv
