#pragma once

#include "kiv/core/String.h"
#include "kiv/platform/Compiler.h"

namespace kiv {

// Takes what objects have to say about themselves, as sections of lines; what becomes of them is the subclass's
// business. One thread at a time.
class KIV_API ReportGenerator {
public:
    ReportGenerator() = default;
    ReportGenerator(const ReportGenerator&) = delete;
    ReportGenerator& operator=(const ReportGenerator&) = delete;
    virtual ~ReportGenerator();

    // Ends the section before. The title as the reader shall see it, as in "store:".
    virtual void beginSection(TextArg title) = 0;
    // One line of the section, without line end.
    virtual void addLine(TextArg text) = 0;
};

// The report as a text: titles, and below each its lines, two blanks in. An empty line between sections.
class KIV_API TextReportGenerator : public ReportGenerator {
public:
    void beginSection(TextArg title) override;
    void addLine(TextArg text) override;
    const String& getText() const { return m_text; }

private:
    String m_text;
};

} // namespace kiv
