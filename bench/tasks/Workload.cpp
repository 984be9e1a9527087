#include "Workload.h"

#include <atomic>
#include <deque>
#include <emmintrin.h>
#include <mutex>
#include <numeric>
#include <sys/resource.h>

namespace bench {
namespace {

struct alignas(64) Count {
    std::atomic<uint64_t> runs{0};
};

struct Counts {
    std::mutex mutex;
    std::deque<Count> all;
};

Counts& counts() {
    static Counts& instance = *new Counts;
    return instance;
}

Count* newCount() {
    const std::lock_guard lock(counts().mutex);
    return &counts().all.emplace_back();
}

} // namespace

void countRun() {
    static thread_local Count* const mine = newCount();
    mine->runs.store(mine->runs.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

uint64_t runsCounted() {
    const std::lock_guard lock(counts().mutex);
    uint64_t runs = 0;
    for (const Count& count : counts().all) runs += count.runs.load(std::memory_order_relaxed);
    return runs;
}

const std::vector<uint32_t>& integers() {
    static const std::vector<uint32_t> all = [] {
        std::vector<uint32_t> made(10'000'000);
        std::iota(made.begin(), made.end(), 7);
        return made;
    }();
    return all;
}

uint32_t sumOf(const uint32_t* begin, const uint32_t* end) {
    __m128i sums[4] = {};
    for (; end - begin >= 16; begin += 16) {
        for (int i = 0; i < 4; ++i) {
            sums[i] = _mm_add_epi32(sums[i], _mm_loadu_si128(reinterpret_cast<const __m128i*>(begin + 4 * i)));
        }
    }
    const __m128i all = _mm_add_epi32(_mm_add_epi32(sums[0], sums[1]), _mm_add_epi32(sums[2], sums[3]));
    uint32_t lanes[4];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), all);
    return std::accumulate(begin, end, lanes[0] + lanes[1] + lanes[2] + lanes[3]);
}

uint32_t sumOfPart(unsigned index, unsigned parts) {
    const uint32_t* const begin = integers().data();
    const size_t size = integers().size();
    return sumOf(begin + size * index / parts, begin + size * (index + 1) / parts);
}

double processSeconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

} // namespace bench
