#include "kiv/files/Directory.h"

#include "kiv/platform/FileStream.h"
#include "kiv/platform/FileSystem.h"

#include <algorithm>
#include <crc32c/crc32c.h>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace kiv {

namespace {

using platform::FileInfo;
using platform::FileKind;

struct Named {
    std::string name;
    FileInfo info;
};

bool listSorted(const std::string& path, std::vector<Named>& out) {
    const bool isWhole = platform::listDirectory(path, [&](const std::string& name, const FileInfo& info) {
        out.push_back({name, info});
    });
    std::sort(out.begin(), out.end(), [](const Named& a, const Named& b) { return a.name < b.name; });
    return isWhole;
}

bool isDirectoryItself(const FileInfo& info) {
    return info.kind == FileKind::Directory && !info.isLink;
}

bool isDirectoryItself(const std::string& path) {
    return isDirectoryItself(platform::fileInfo(path));
}

std::string joined(std::string_view path, std::string_view name) {
    if (path.empty() || name.empty()) return std::string(path.empty() ? name : path);
    // A root of slashes only becomes the one between them.
    const size_t end = path.find_last_not_of('/') + 1, begin = name.find_first_not_of('/');
    const std::string_view rest = begin == name.npos ? "" : name.substr(begin);
    return std::string(path.substr(0, end)) + '/' + std::string(rest);
}

// Works out the digest: of each entry, in the order of the names level by level, the kind, the length of the path below
// the first directory, the path, and of files the size and the sum of the contents, numbers as four resp. eight bytes.
class Digest {
public:
    // `below` is the path from the first directory to this one, with "/" at the end unless it is empty.
    bool addDirectory(const std::string& path, const std::string& below, unsigned levels) {
        std::vector<Named> entries;
        if (levels == 0 || !listSorted(path, entries)) return false;
        return std::all_of(entries.begin(), entries.end(), [&](const Named& entry) {
            return addEntry(joined(path, entry.name), below + entry.name, entry.info, levels);
        });
    }
    uint32_t get() const { return m_sum; }

private:
    bool addEntry(const std::string& path, const std::string& below, const FileInfo& info, unsigned levels) {
        if (info.kind == FileKind::File) return addFile(path, below);
        addName(isDirectoryItself(info) ? 'd' : 'x', below);
        return !isDirectoryItself(info) || addDirectory(path, below + '/', levels - 1);
    }

    bool addFile(const std::string& path, const std::string& below) {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
            platform::openFile(path.c_str(), platform::FileMode::Read), &std::fclose);
        if (!file) return false;
        m_piece.resize(size_t{1} << 16);
        uint64_t size = 0;
        uint32_t sum = 0;
        while (const size_t count = std::fread(m_piece.data(), 1, m_piece.size(), file.get())) {
            sum = crc32c::Extend(sum, m_piece.data(), count);
            size += count;
        }
        addName('f', below);
        addNumber(size, 8);
        addNumber(sum, 4);
        return !std::ferror(file.get());
    }

    void addName(char kind, const std::string& name) {
        addNumber(static_cast<uint8_t>(kind), 1);
        addNumber(name.size(), 4);
        m_sum = crc32c::Extend(m_sum, reinterpret_cast<const uint8_t*>(name.data()), name.size());
    }

    void addNumber(uint64_t number, unsigned bytes) {
        uint8_t little[8];
        for (unsigned i = 0; i < bytes; ++i) little[i] = static_cast<uint8_t>(number >> (8 * i));
        m_sum = crc32c::Extend(m_sum, little, bytes);
    }

    uint32_t m_sum = 0;
    std::vector<uint8_t> m_piece;
};

} // namespace

bool Directory::exists(TextArg path) {
    return platform::fileInfo(std::string(path)).kind == FileKind::Directory;
}

bool Directory::create(TextArg path) {
    return platform::createDirectories(std::string(path));
}

bool Directory::list(TextArg path, Vector<Entry>& out) {
    out.clear();
    std::vector<Named> entries;
    if (!listSorted(std::string(path), entries)) return false;
    for (const auto& [name, info] : entries)
        out.push_back({name, info.kind == FileKind::Directory, info.isLink, info.size});
    return true;
}

bool Directory::remove(TextArg path) {
    const std::string name(path);
    return isDirectoryItself(name) && platform::removeEntry(name);
}

bool Directory::removeTree(TextArg path) {
    const std::string name(path);
    std::string_view last(name);
    last = last.substr(0, last.find_last_not_of("/\\") + 1);
    last.remove_prefix(last.find_last_of("/\\:") + 1);
    if (last.empty() || last == "." || last == "..") return false;
    return isDirectoryItself(name) && platform::removeTree(name);
}

bool Directory::rename(TextArg from, TextArg to) {
    const std::string old(from);
    return isDirectoryItself(old) && platform::renameEntry(old, std::string(to), platform::Existing::Refuse);
}

std::optional<uint32_t> Directory::getDirectoryHash(TextArg path) {
    Digest digest;
    return digest.addDirectory(std::string(path), "", 64) ? std::optional(digest.get()) : std::nullopt;
}

String Directory::join(TextArg path, TextArg name) {
    return joined(path, name);
}

String Directory::getTemporary() {
    return platform::temporaryDirectory();
}

String Directory::getCurrent() {
    return platform::currentDirectory();
}

} // namespace kiv
