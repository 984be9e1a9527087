#include "SliceStatistics.h"

#include "examples/study/ScriptTable.h"

#include <algorithm>
#include <cmath>
#include <cstring>

void SliceStatistics::Sums::add(uint32_t sample, uint32_t maximum) {
    least = std::min(least, sample);
    greatest = std::max(greatest, sample);
    sum += sample;
    squares += uint64_t{sample} * sample;
    ++histogram[std::min(sample, maximum) * binCount / (maximum + 1)];
}

void SliceStatistics::Sums::add(const Sums& other) {
    least = std::min(least, other.least);
    greatest = std::max(greatest, other.greatest);
    sum += other.sum;
    squares += other.squares;
    for (size_t i = 0; i < binCount; ++i) histogram[i] += other.histogram[i];
}

void SliceStatistics::prepare(unsigned& parts) {
    parts = std::min(parts, m_geometry.height);
    m_parts.assign(parts, Sums());
}

void SliceStatistics::executePart(unsigned index) {
    const size_t sampleSize = m_geometry.getSampleSize();
    const auto bound = [&](uint64_t part) {
        return static_cast<size_t>(m_geometry.height * part / m_parts.size() * m_geometry.width);
    };
    Sums sums; // here, not beside those of other threads
    for (size_t i = bound(index); i < bound(uint64_t{index} + 1); ++i) {
        uint16_t sample = m_samples[i * sampleSize];
        if (sampleSize == 2) std::memcpy(&sample, m_samples + i * sampleSize, sizeof sample);
        sums.add(sample, m_geometry.maximum);
    }
    m_parts[index] = sums;
}

void SliceStatistics::finish() {
    for (const Sums& part : m_parts) m_total.add(part);
}

void SliceStatistics::executeAlone() {
    m_parts.resize(1);
    executePart(0);
    finish();
}

double SliceStatistics::getMean() const {
    return static_cast<double>(m_total.sum) / static_cast<double>(getCount());
}

double SliceStatistics::getDeviation() const {
    const double meanSquare = static_cast<double>(m_total.squares) / static_cast<double>(getCount());
    return std::sqrt(std::max(0.0, meanSquare - getMean() * getMean()));
}

kiv::Item SliceStatistics::describe() const {
    kiv::Item counts, histogram;
    for (const uint64_t count : m_total.histogram) counts.add(count);
    histogram.addItem(counts);
    return makeTable({{"min", m_total.least},
                      {"max", m_total.greatest},
                      {"mean", getMean()},
                      {"deviation", getDeviation()},
                      {"histogram", histogram}});
}
