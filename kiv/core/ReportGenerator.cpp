#include "kiv/core/ReportGenerator.h"

namespace kiv {

ReportGenerator::~ReportGenerator() = default;

void TextReportGenerator::beginSection(TextArg title) {
    if (!m_text.empty()) m_text += '\n';
    m_text.append(title) += '\n';
}

void TextReportGenerator::addLine(TextArg text) {
    m_text.append("  ").append(text) += '\n';
}

} // namespace kiv
