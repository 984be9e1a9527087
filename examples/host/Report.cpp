#include "Report.h"

#include "kiv/script/Access.h"

void Report::take(const kivSq::Object& table) {
    Numbers numbers;
    std::string text;
    const bool isWhole = table.get("text").to(text) && table.get("min").to(numbers.least) &&
                         table.get("max").to(numbers.greatest) && table.get("mean").to(numbers.mean);
    if (!isWhole) return;
    const kivSq::Object histogram = table.get("histogram");
    for (const kivSq::Object& count : histogram.asArray().getValues())
        if (!count.to(numbers.histogram.emplace_back())) return;
    m_text = text;
    m_numbers = numbers;
}

bool Report::agreesWith(const SliceStatistics::Sums& all, uint64_t samples) const {
    if (!m_numbers) return false;
    const size_t bins = m_numbers->histogram.size();
    if (bins == 0 || SliceStatistics::binCount % bins != 0) return false;
    std::vector<uint64_t> histogram(bins);
    for (size_t i = 0; i < all.histogram.size(); ++i) histogram[i * bins / all.histogram.size()] += all.histogram[i];
    return m_numbers->histogram == histogram && m_numbers->least == all.least && m_numbers->greatest == all.greatest &&
           m_numbers->mean == static_cast<double>(all.sum) / static_cast<double>(samples);
}
