#include "kiv/files/File.h"

#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileReplacement.h"
#include "kiv/platform/FileSystem.h"

namespace kiv {
namespace {

using platform::FileKind;

// A link to a directory is none itself: it can be removed and renamed as files are.
bool isFileItself(const std::string& path) {
    const platform::FileInfo info = platform::fileInfo(path);
    return info.isLink || info.kind == FileKind::File || info.kind == FileKind::Other;
}

} // namespace

bool File::writeFile(TextArg path, const ConstByteSpan& bytes) {
    return platform::writeWholeFile(std::string(path), bytes.getBytePointer(), bytes.getSize());
}

bool File::readFile(TextArg path, bool quiet, const platform::FileSpace& space) {
    const auto [status, length] = platform::readWholeFile(std::string(path), 0xFFFFFFFF, space);
    if (status == platform::FileStatus::CantOpen && !quiet)
        logging::MessageStream(3, 2) << "cant open file '" << path << "'";
    if (status == platform::FileStatus::CantRead)
        logging::MessageStream(3, 2) << "cant read file '" << path << "' of " << length << " bytes";
    return status == platform::FileStatus::Ok;
}

bool File::exists(TextArg path) {
    const FileKind kind = platform::fileInfo(std::string(path)).kind;
    return kind == FileKind::File || kind == FileKind::Other;
}

std::optional<uint64_t> File::getSize(TextArg path) {
    const platform::FileInfo info = platform::fileInfo(std::string(path));
    return info.kind == FileKind::File ? std::optional(info.size) : std::nullopt;
}

GregorianDate File::getModificationTime(TextArg path) {
    const platform::FileInfo info = platform::fileInfo(std::string(path));
    return info.kind == FileKind::None ? GregorianDate() : GregorianDate::fromMicroseconds(info.modifiedMicroseconds);
}

bool File::appendFile(TextArg path, const ConstByteSpan& bytes) {
    return platform::appendToFile(std::string(path), bytes.getBytePointer(), bytes.getSize());
}

bool File::replaceFile(TextArg path, const ConstByteSpan& bytes) {
    platform::FileReplacement file{std::string(path)};
    return file.write(bytes.getBytePointer(), bytes.getSize()) && file.commit();
}

bool File::copy(TextArg from, TextArg to) {
    return platform::copyFile(std::string(from), std::string(to));
}

bool File::rename(TextArg from, TextArg to) {
    const std::string old(from);
    return isFileItself(old) && platform::renameEntry(old, std::string(to), platform::Existing::Replace);
}

bool File::remove(TextArg path) {
    const std::string name(path);
    return isFileItself(name) && platform::removeEntry(name);
}

} // namespace kiv
