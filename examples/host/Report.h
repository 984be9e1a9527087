#pragma once

#include "SliceStatistics.h"

#include "kiv/script/Object.h"

#include <optional>
#include <string>
#include <vector>

// The summary of a study as a script hands it in: a table of the text to show and the numbers in it.
class Report {
public:
    // Of a table that is no whole report nothing is taken.
    void take(const kivSq::Object& table);

    // Empty while there is none.
    const std::string& getText() const { return m_text; }
    // Whether its numbers are these, of so many samples. Each of its bins holds one or several of ours.
    bool agreesWith(const SliceStatistics::Sums& all, uint64_t samples) const;

private:
    struct Numbers {
        int64_t least = 0;
        int64_t greatest = 0;
        double mean = 0;
        std::vector<uint64_t> histogram;
    };

    std::string m_text;
    std::optional<Numbers> m_numbers;
};
