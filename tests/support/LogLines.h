#pragma once

#include "tests/support/OutputCapture.h"

#include <string>
#include <vector>

namespace support {

// The log lines of a block of code, without time stamps and level tags.
class LogLines {
public:
    std::vector<std::string> take() {
        std::vector<std::string> lines;
        std::string all = m_capture.take();
        while (!all.empty()) {
            std::string line = all.substr(0, all.find('\n'));
            all.erase(0, line.size() + 1);
            if (line.size() > 9 && line[0] == '[' && line[4] == '.') line.erase(0, line.find("] ") + 2);
            if (line.starts_with("[ERROR] ") || line.starts_with("[WARNING] ")) line.erase(0, line.find(' ') + 1);
            lines.push_back(line);
        }
        return lines;
    }
    // The only line; what else came instead of one, joined.
    std::string takeOne() {
        std::string joined;
        for (const std::string& line : take()) joined += (joined.empty() ? "" : " AND ") + line;
        return joined;
    }

private:
    support::OutputCapture m_capture;
};

} // namespace support
