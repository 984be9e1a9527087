#pragma once

#include "SliceStatistics.h"
#include "examples/study/StudyFolder.h"

#include "kiv/core/SmartPointer.h"
#include "kiv/script/VM.h"

#include <optional>
#include <string>
#include <vector>

// What report.sq sees of the study, as the object `study` at the root:
//     study.slices, study.maximum   how many there will be, and the greatest possible sample; 0 before the first tile
//     study.isOver                  no more slices come
//     study.findings(slice)         a table of what was measured, from the store; null before that
// Threads: the main thread.
class ScriptStudy : public kiv::Object {
    KIV_OBJECT(ScriptStudy, Object)
public:
    // The folder outlives this.
    explicit ScriptStudy(StudyFolder& folder) : m_folder(folder) {}

    // Binds the class, and makes the object.
    static kiv::SmartPointer<ScriptStudy> bind(kivSq::VM& vm, StudyFolder& folder);

    bool isOver = false;

private:
    int64_t getSlices() const;
    int64_t getMaximum() const;
    kivSq::Object getFindings(uint32_t slice) const;

    StudyFolder& m_folder;
};

// The summary of the study, which a script makes. It runs as a script thread from the beginning on and takes the
// slices' findings as they come. It returns a table: the text to show, and the numbers in it. Main thread; the System
// ends before this does.
class Report {
public:
    // The folder outlives this.
    explicit Report(StudyFolder& folder) : m_folder(folder) {}
    Report(const Report&) = delete;
    Report& operator=(const Report&) = delete;

    // False, and logged, when the script can't be read or compiled.
    bool start(const std::string& path);
    // Tells the script that no more slices come; it ends soon then.
    void setOver();
    bool isRunning() const { return m_isRunning; }

    // Once it has ended; empty when it has failed.
    const std::string& getText() const { return m_text; }
    // Whether its numbers are these, of so many samples.
    bool agreesWith(const SliceStatistics::Sums& all, uint64_t samples) const;

private:
    struct Numbers {
        int64_t least = 0;
        int64_t greatest = 0;
        double mean = 0;
        std::vector<uint64_t> histogram;
    };

    void take(const kivSq::Object& result);

    StudyFolder& m_folder;
    kiv::SmartPointer<ScriptStudy> m_study;
    bool m_isRunning = false;
    std::string m_text;
    std::optional<Numbers> m_numbers;
};
