#include "kiv/files/ResourceLocator.h"

#include "kiv/core/Buffer.h"

#include <algorithm>
#include <atomic>

namespace kiv {
namespace {

std::atomic<ResourceLocator*> g_current{nullptr};

bool isPortable(char character) {
    const auto code = static_cast<unsigned char>(character);
    return code >= 0x20 && code != 0x7F && std::string_view("\\:*?\"<>|").find(character) == std::string_view::npos;
}

// Of Windows, in every directory and whatever the extension.
bool isDevice(std::string_view part) {
    std::string stem(part.substr(0, part.find('.')));
    stem.erase(stem.find_last_not_of(' ') + 1);
    std::transform(stem.begin(), stem.end(), stem.begin(),
                   [](char c) { return 'a' <= c && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    if (stem.size() == 4 && '0' <= stem[3] && stem[3] <= '9') return stem.starts_with("COM") || stem.starts_with("LPT");
    return stem == "CON" || stem == "PRN" || stem == "AUX" || stem == "NUL" || stem == "CONIN$" || stem == "CONOUT$";
}

// Windows takes dots and blanks at the end for nothing: ".. " is "..".
bool isPart(std::string_view part) {
    return !part.empty() && part.back() != '.' && part.back() != ' ' && !isDevice(part) &&
           std::all_of(part.begin(), part.end(), isPortable);
}

} // namespace

ResourceLocator* ResourceLocator::current() {
    return g_current.load(std::memory_order_acquire);
}

ResourceLocator::ResourceLocator() : m_directories(std::make_shared<Directories>()) {
    ResourceLocator* none = nullptr;
    g_current.compare_exchange_strong(none, this);
}

ResourceLocator::~ResourceLocator() {
    ResourceLocator* self = this;
    g_current.compare_exchange_strong(self, nullptr);
}

bool ResourceLocator::isResourceName(std::string_view name) {
    for (;;) {
        const size_t end = name.find('/');
        if (!isPart(name.substr(0, end))) return false;
        if (end == std::string_view::npos) return true;
        name.remove_prefix(end + 1);
    }
}

bool ResourceLocator::addDirectory(TextArg path) {
    if (path.empty()) return false;
    std::string directory(path);
    if (directory.back() != '/') directory += '/';
    const std::lock_guard lock(m_mutex);
    const auto directories = std::make_shared<Directories>(*m_directories);
    std::erase(*directories, directory);
    directories->insert(directories->begin(), std::move(directory));
    m_directories = directories;
    return true;
}

bool ResourceLocator::fetch(TextArg name, Buffer& out) const {
    out.clear();
    if (!isResourceName(name)) return false;
    std::shared_ptr<const Directories> directories;
    {
        const std::lock_guard lock(m_mutex);
        directories = m_directories;
    }
    return std::any_of(directories->begin(), directories->end(), [&](const std::string& directory) {
        return out.loadFromFile((directory + std::string(name)).c_str(), true);
    });
}

} // namespace kiv
