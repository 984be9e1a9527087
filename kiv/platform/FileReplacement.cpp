// What is the same on every system.

#include "kiv/platform/FileReplacement.h"

namespace kiv::platform {

namespace {

// So many may work on one file at once.
constexpr int mostNames = 16;

} // namespace

FileReplacement::~FileReplacement() {
    closeAndRemove();
}

void FileReplacement::openFirstFree() {
    for (int i = 0; i < mostNames && m_file == -1; ++i) {
        m_newPath = m_path + ".new" + (i == 0 ? "" : std::to_string(i));
        if (!open()) return;
    }
    if (m_file == -1) m_failure = "is being replaced by too many at once";
}

bool FileReplacement::commit() {
    if (!m_failure.empty()) return false;
    const bool isReplaced = replace();
    closeAndRemove();
    return isReplaced;
}

} // namespace kiv::platform
