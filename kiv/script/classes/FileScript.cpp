// The script classes kiv.File and kiv.Directory.

#include "kiv/files/File.h"

#include "kiv/files/Directory.h"
#include "kiv/script/VM.h"
#include "kiv/script/classes/Bindings.h"
#include "kiv/script/classes/FileArguments.h"

namespace kivSq {
namespace {

using internal::Blob;
using internal::Bytes;
using internal::Path;
using internal::withPath;
using internal::withPaths;
using kiv::Directory;
using kiv::File;
using kiv::String;

std::optional<String> readText(Path path) {
    String text;
    if (!text.loadFromFile(path, true)) return {};
    return text;
}

std::optional<Blob> readBytes(Path path) {
    Blob blob;
    if (!blob.bytes.loadFromFile(path.text.data(), true)) return {};
    return blob;
}

template <bool (*function)(kiv::TextArg, const kiv::ConstByteSpan&)>
bool store(Path path, Bytes bytes) {
    return function(path, bytes.span);
}

std::optional<kiv::GregorianDate> getModificationTime(Path path) {
    const kiv::GregorianDate time = File::getModificationTime(path);
    if (!time.isValid()) return {};
    return time;
}

// An array of tables, or null.
Object list(Path path) {
    kiv::Vector<Directory::Entry> entries;
    if (!Directory::list(path, entries)) return {};
    const VM& vm = *VM::current();
    const Object array = vm.newArray(0);
    for (const Directory::Entry& entry : entries) {
        const Object table = vm.newTable();
        table.set("name", Object::from(entry.name));
        table.set("isDirectory", Object::from(entry.isDirectory));
        table.set("isLink", Object::from(entry.isLink));
        table.set("size", Object::from(entry.size));
        array.asArray().append(table);
    }
    return array;
}

std::optional<String> unlessEmpty(String path) {
    if (path.empty()) return {};
    return path;
}

} // namespace

void internal::bindFile(const Object& table) {
    if (AdapterData::of<File>().isInitialized()) return;
    Class<File>(table, "File")
        .staticMethod("readText", &readText)
        .staticMethod("readBytes", &readBytes)
        .staticMethod("write", &store<&File::writeFile>)
        .staticMethod("append", &store<&File::appendFile>)
        .staticMethod("replace", &store<&File::replaceFile>)
        .staticMethod("exists", &withPath<&File::exists>)
        .staticMethod(
            "getSize", +[](Path path) { return File::getSize(path); })
        .staticMethod("getModificationTime", &getModificationTime)
        .staticMethod("copy", &withPaths<&File::copy>)
        .staticMethod("rename", &withPaths<&File::rename>)
        .staticMethod("remove", &withPath<&File::remove>);
}

void internal::bindDirectory(const Object& table) {
    if (AdapterData::of<Directory>().isInitialized()) return;
    Class<Directory>(table, "Directory")
        .staticMethod("exists", &withPath<&Directory::exists>)
        .staticMethod("create", &withPath<&Directory::create>)
        .staticMethod("list", &list)
        .staticMethod("remove", &withPath<&Directory::remove>)
        .staticMethod("removeTree", &withPath<&Directory::removeTree>)
        .staticMethod("rename", &withPaths<&Directory::rename>)
        .staticMethod(
            "getDirectoryHash", +[](Path path) { return Directory::getDirectoryHash(path); })
        .staticMethod(
            "join", +[](Path path, Path name) { return Directory::join(path, name); })
        .staticMethod(
            "getTemporary", +[] { return unlessEmpty(Directory::getTemporary()); })
        .staticMethod(
            "getCurrent", +[] { return unlessEmpty(Directory::getCurrent()); });
}

} // namespace kivSq
