#include "kiv/store/StoreKeeper.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileSystem.h"
#include "kiv/store/StoreBlob.h"
#include "kiv/store/StoreFile.h"
#include "kiv/tasks/LambdaTask.h"
#include "kiv/tasks/ThreadPool.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>

namespace kiv {

namespace {

constexpr char tooLarge[] = "it has more than 4 GiB";

bool logFailure(TextArg path, const char* reason) {
    logging::MessageStream(3, 2) << "[STORE] can't save '" << path << "': " << reason;
    return false;
}

} // namespace

// Where snapshots go: one is written while another, the newest, waits.
class StoreKeeper::Saving {
public:
    using Snapshot = std::unique_ptr<Buffer>; // a blob of all entries

    explicit Saving(String path) : m_path(std::move(path)) {}

    // True when somebody is to come and write.
    bool put(Snapshot snapshot) {
        const std::lock_guard lock(m_mutex);
        std::swap(m_waiting, snapshot); // the one before dies behind the lock
        m_hasFailed = false;
        return !m_isWriting && !std::exchange(m_isAsked, true);
    }
    // Leaves at once when another does it.
    void writeAll() {
        std::unique_lock lock(m_mutex);
        m_isAsked = false;
        if (!m_isWriting && !m_hasFailed) writeWaiting(lock);
    }
    // Also what has failed before.
    bool finish() {
        std::unique_lock lock(m_mutex);
        m_hasEnded.wait(lock, [this] { return !m_isWriting; });
        writeWaiting(lock);
        return m_isSaved;
    }
    void fail() {
        logFailure(m_path, tooLarge);
        const std::lock_guard lock(m_mutex);
        m_isSaved = false;
    }
    bool isSaved() {
        const std::lock_guard lock(m_mutex);
        return m_isSaved;
    }
    bool isBusy() {
        const std::lock_guard lock(m_mutex);
        return m_isWriting || (m_waiting && !m_hasFailed);
    }

private:
    using Lock = std::unique_lock<std::mutex>;

    void writeWaiting(Lock& lock);
    bool write(const Buffer& snapshot) noexcept;

    const String m_path;
    std::mutex m_mutex;
    std::condition_variable m_hasEnded;
    // All guarded by the mutex.
    Snapshot m_waiting;
    bool m_isAsked = false; // a task is on its way
    bool m_isWriting = false;
    bool m_hasFailed = false; // what waits was tried already
    bool m_isSaved = true;
};

void StoreKeeper::Saving::writeWaiting(Lock& lock) {
    while (m_waiting) {
        Snapshot snapshot = std::move(m_waiting);
        m_isWriting = true;
        lock.unlock();
        const bool isWritten = write(*snapshot);
        if (isWritten) snapshot.reset();
        lock.lock();
        m_isWriting = false;
        m_isSaved = isWritten;
        if (isWritten || m_waiting) continue;
        m_waiting = std::move(snapshot);
        m_hasFailed = true;
        break;
    }
    m_hasEnded.notify_all();
}

bool StoreKeeper::Saving::write(const Buffer& snapshot) noexcept {
    try {
        return StoreFile::saveBlob(snapshot.getConstByteSpan(), m_path);
    } catch (const std::exception& failure) {
        return logFailure(m_path, failure.what());
    }
}

StoreKeeper::StoreKeeper()
    : m_store(makeObject<MemoryStore>(true)),
      m_queue(ThreadPool::current() ? makeObject<TaskQueue>(TaskQueue::Serial | TaskQueue::IO) : nullptr) {}

StoreKeeper::~StoreKeeper() {
    flush();
}

bool StoreKeeper::open(TextArg path) {
    if (m_saving) {
        logging::MessageStream(3, 2) << "[STORE] can't open '" << path << "': another file is open";
        return false;
    }
    const String ownPath(path);
    const bool isThere = platform::fileInfo(ownPath).kind != platform::FileKind::None;
    if (isThere && !StoreFile::load(m_store.get(), path)) return false;
    m_saving = std::make_shared<Saving>(ownPath);
    return true;
}

std::unique_ptr<Buffer> StoreKeeper::copyStore() const {
    auto copy = std::make_unique<Buffer>();
    const auto encoded = [&](MemoryStore& store) {
        return StoreBlob::encode(store, *copy) ? std::move(copy) : nullptr;
    };
    if (m_store->getNumberOfLayers() == 1) return encoded(*m_store);
    MemoryStore committed(*m_store);
    while (committed.getNumberOfLayers() > 1) committed.rollback();
    return encoded(committed);
}

void StoreKeeper::saveSoon() {
    if (!m_saving) {
        logging::MessageStream(3, 2) << "[STORE] nothing is saved: no file is open";
        return;
    }
    std::unique_ptr<Buffer> snapshot = copyStore();
    if (!snapshot) return m_saving->fail();
    if (!m_saving->put(std::move(snapshot))) return;
    if (m_queue)
        m_queue->pushTask(makeTask([saving = m_saving] { saving->writeAll(); }));
    else
        m_saving->writeAll();
}

bool StoreKeeper::flush() {
    return m_saving && m_saving->finish();
}

bool StoreKeeper::saveCopy(TextArg path) const {
    const std::unique_ptr<Buffer> copy = copyStore();
    return copy ? StoreFile::saveBlob(copy->getConstByteSpan(), path) : logFailure(path, tooLarge);
}

bool StoreKeeper::isBusy() const {
    return m_saving && m_saving->isBusy();
}

bool StoreKeeper::isSaved() const {
    return m_saving && m_saving->isSaved();
}

} // namespace kiv
