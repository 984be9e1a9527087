#include "kiv/core/String.h"
#include "kiv/files/File.h"

namespace kiv {

bool String::loadFromFile(TextArg path, bool quiet) {
    std::string text;
    const bool isRead = File::readFile(path, quiet, [&text](uint64_t size) {
        text.resize(static_cast<size_t>(size));
        return text.data();
    });
    if (!isRead) text.clear();
    m_text = std::move(text);
    return isRead;
}

bool String::saveToFile(TextArg path) const {
    return platform::writeWholeFile(std::string(path), m_text.data(), m_text.size());
}

} // namespace kiv
