#include "Races.h"
#include "kiv/platform/AddressWait.h"
#include "kiv/platform/Compiler.h"

#include <atomic>

namespace {

// Nothing but the work: calls through a pointer, one thread, and two threads with a word between them.
struct OneThread {
    static constexpr const char* name = "one-thread";

    void serial(size_t tasks) { call(tasks); }
    void parallel(size_t tasks) { call(tasks); }
    void countedSerial(size_t runs) { call(runs); }
    void countedParallel(size_t runs) { call(runs); }
    uint32_t sum() { return bench::sumOfPart(0, 1); }

    void call(size_t tasks) {
        void (*volatile task)() = &bench::countRun;
        for (size_t i = 0; i < tasks; ++i) task();
    }
};

struct Spin {
    static constexpr const char* name = "spinning";
    static void wait(const std::atomic<uint32_t>&, uint32_t) { KIV_PAUSE(); }
    static void wake(std::atomic<uint32_t>&) {}
};

struct Futex {
    static constexpr const char* name = "futex";
    static void wait(const std::atomic<uint32_t>& word, uint32_t value) { kiv::platform::waitOnAddress(word, value); }
    static void wake(std::atomic<uint32_t>& word) { kiv::platform::wakeOneOnAddress(&word); }
};

template <class Way>
class Word {
public:
    static constexpr const char* name = Way::name;

    void pingPong(size_t rounds) {
        const auto last = static_cast<uint32_t>(2 * rounds);
        m_word = 0;
        std::thread other([=, this] {
            for (uint32_t turn = 1; turn < last; turn += 2) {
                waitFor(turn);
                bench::countRun();
                give(turn + 1);
            }
        });
        for (uint32_t turn = 0; turn < last; turn += 2) {
            give(turn + 1);
            waitFor(turn + 2);
        }
        other.join();
    }

private:
    void give(uint32_t turn) {
        m_word = turn;
        Way::wake(m_word);
    }
    void waitFor(uint32_t turn) {
        for (;;) {
            const uint32_t seen = m_word;
            if (seen == turn) return;
            Way::wait(m_word, seen);
        }
    }

    std::atomic<uint32_t> m_word{0};
};

const bool added[] = {bench::addAll<OneThread>(), bench::addAll<Word<Spin>>(), bench::addAll<Word<Futex>>()};

} // namespace
