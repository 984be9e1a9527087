#pragma once

#include "examples/study/Study.h"

#include "kiv/data/Item.h"
#include "kiv/tasks/Parallel.h"

#include <array>
#include <cstdint>
#include <vector>

// What the samples of a slice amount to. As a kernel, each part counts some of the rows:
//     SliceStatistics statistics(geometry, samples);
//     kiv::System::execute(statistics);
class SliceStatistics : public kiv::Parallel::Kernel {
public:
    static constexpr size_t binCount = 16; // of equal width, from 0 to the maximum

    struct Sums {
        uint32_t least = UINT32_MAX;
        uint32_t greatest = 0;
        uint64_t sum = 0;
        uint64_t squares = 0; // 2^29 samples of 2^32 fit
        std::array<uint64_t, binCount> histogram{};

        void add(uint32_t sample, uint32_t maximum);
        void add(const Sums& other);
    };

    // The samples outlive this.
    SliceStatistics(const study::Geometry& geometry, const uint8_t* samples)
        : m_geometry(geometry), m_samples(samples) {}

    void prepare(unsigned& parts) override;
    void executePart(unsigned index) override;
    void finish() override;
    // All of it on this thread.
    void executeAlone();

    uint64_t getCount() const { return uint64_t{m_geometry.width} * m_geometry.height; }
    const Sums& getTotal() const { return m_total; }
    double getMean() const;
    double getDeviation() const;
    // A table of everything.
    kiv::Item describe() const;

private:
    const study::Geometry m_geometry;
    const uint8_t* const m_samples;
    std::vector<Sums> m_parts;
    Sums m_total;
};
