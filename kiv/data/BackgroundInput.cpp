#include "kiv/data/BackgroundInput.h"

#include "kiv/tasks/LambdaTask.h"

#include <chrono>
#include <vector>

namespace kiv::internal {
namespace {

constexpr size_t pieceSize = 65536;
constexpr size_t mostWaiting = size_t{1} << 20;

} // namespace

BackgroundInput::BackgroundInput() : m_queue(new TaskQueue(TaskQueue::Serial | TaskQueue::IO)) {
    m_queue->pushTask(makeTask([this] {
        try {
            readAhead();
        } catch (...) {
            // Memory was short; nobody shall wait for what is not read any more.
            end();
            throw;
        }
        end();
    }));
}

BackgroundInput::~BackgroundInput() {
    m_input.cancel();
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_roomCondition.notify_all();
    m_queue->abort();
}

bool BackgroundInput::take(std::string& bytes) {
    bytes.clear();
    const std::lock_guard lock(m_mutex);
    bytes.swap(m_bytes);
    m_roomCondition.notify_all();
    return !m_hasEnded || !bytes.empty();
}

void BackgroundInput::wait(unsigned milliseconds) {
    std::unique_lock lock(m_mutex);
    const auto hasNews = [this] { return m_hasEnded || !m_bytes.empty(); };
    if (milliseconds == 0xFFFFFFFF) return m_newsCondition.wait(lock, hasNews);
    m_newsCondition.wait_for(lock, std::chrono::milliseconds(milliseconds), hasNews);
}

void BackgroundInput::readAhead() {
    std::vector<char> piece(pieceSize);
    while (waitForRoom() && m_input.wait()) {
        const size_t size = readStandardInput(piece.data(), piece.size());
        if (size == 0) return;
        add(piece.data(), size);
    }
}

// False when nobody will take what is read.
bool BackgroundInput::waitForRoom() {
    std::unique_lock lock(m_mutex);
    m_roomCondition.wait(lock, [this] { return m_bytes.size() < mostWaiting || m_isStopping; });
    return !m_isStopping;
}

void BackgroundInput::add(const char* bytes, size_t size) {
    const std::lock_guard lock(m_mutex);
    m_bytes.append(bytes, size);
    m_newsCondition.notify_all();
}

void BackgroundInput::end() {
    const std::lock_guard lock(m_mutex);
    m_hasEnded = true;
    m_newsCondition.notify_all();
}

} // namespace kiv::internal
