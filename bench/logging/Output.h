#pragma once

#include <cstdio>
#include <string>
#include <unistd.h>

// The work: one warning with a text and two numbers, flushed to a file line by line.
struct Line {
    const char* text = "slice of volume reconstructed, row";
    int row = 1234;
    double milliseconds = 56.75;
};

// Turns standard output into a file while it lives, so that every contestant writes to the same place in its own way;
// the benchmark's own report is printed between the runs.
class OutputToFile {
public:
    OutputToFile() {
        std::fflush(stdout);
        m_terminal = dup(STDOUT_FILENO);
        std::FILE* file = std::tmpfile();
        dup2(fileno(file), STDOUT_FILENO);
        std::fclose(file);
    }
    OutputToFile(const OutputToFile&) = delete;
    OutputToFile& operator=(const OutputToFile&) = delete;
    ~OutputToFile() {
        std::fflush(stdout);
        dup2(m_terminal, STDOUT_FILENO);
        close(m_terminal);
    }

private:
    int m_terminal = -1;
};
