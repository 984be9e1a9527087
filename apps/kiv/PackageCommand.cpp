#include "PackageCommand.h"

#include "Actions.h"
#include "LogCatcher.h"
#include "Progress.h"
#include "Text.h"

#include "kiv/core/Buffer.h"
#include "kiv/core/Codecs.h"
#include "kiv/files/File.h"
#include "kiv/updates/ProductPackage.h"

#include <fmt/format.h>

#include <filesystem>
#include <string_view>

namespace kiv::app {

namespace {

constexpr std::string_view secretMark = "kivCore secret key ", publicMark = "kivCore public key ";
static_assert(secretMark.size() == publicMark.size());

using Key = Signature::PublicKey; // secret ones have the same form
static_assert(std::is_same_v<Key, Signature::SecretKey>);

int complain(const std::string& what) {
    internal::writeStandardError(fmt::format("kiv package: {}\n", withoutControls(what)));
    return 1;
}

int conclude(const ProductPackage::Manifest& manifest, const char* verdict) {
    internal::writeStandardError(
        fmt::format("kiv package: {} {}: {} files, {} bytes, {}\n", withoutControls(manifest.product.view()),
                    withoutControls(manifest.version.view()), manifest.files.size(), manifest.getTotalSize(), verdict));
    return 0;
}

// The reason of the library's last message.
int complainOf(LogCatcher& catcher) {
    std::string reason = catcher.takeText();
    reason.erase(reason.find_last_not_of("\r\n") + 1);
    const size_t mark = reason.rfind("[PACKAGE] ");
    return complain(mark == std::string::npos ? reason : reason.substr(mark + 10));
}

bool readKey(const std::string& path, std::string_view mark, Key& out) {
    Buffer bytes;
    if (!bytes.loadFromFile(path.c_str(), true)) return complain("the key '" + path + "' can't be read"), false;
    std::string_view text(reinterpret_cast<const char*>(bytes.getBytePointer()), bytes.getSize());
    text = text.substr(0, text.find_last_not_of("\r\n") + 1);
    if (text.size() != mark.size() + 2 * out.size() || !text.starts_with(mark) ||
        !kiv::internal::decodeBase16(text.data() + mark.size(), 2 * out.size(), out.data()))
        return complain(fmt::format("'{}' is no file with a {}", path, mark.substr(8, mark.size() - 9))), false;
    return true;
}

bool writeKey(const std::string& path, std::string_view mark, const Key& key) {
    std::string text(mark);
    text.resize(mark.size() + 2 * key.size());
    kiv::internal::encodeBase16(key.data(), key.size(), text.data() + mark.size());
    text += '\n';
    return File::writeFile(path, {reinterpret_cast<const uint8_t*>(text.data()), static_cast<unsigned>(text.size())});
}

// Where the system knows rights: nobody else is to read it, from the beginning.
bool makePrivate(const std::string& path) {
    using std::filesystem::perms;
    std::error_code failure;
    const std::u8string name(path.begin(), path.end());
    if (!File::writeFile(path, {})) return false;
    std::filesystem::permissions(name, perms::owner_read | perms::owner_write, failure);
    return !failure;
}

int makeKeys(const PackageCommand& command) {
    const std::string secretPath = command.file + ".secret", publicPath = command.file + ".public";
    for (const std::string& path : {secretPath, publicPath})
        if (File::exists(path)) return complain("'" + path + "' is there already");
    const Signature::SecretKey key = Signature::createSecretKey();
    if (!makePrivate(secretPath) || !writeKey(secretPath, secretMark, key) ||
        !writeKey(publicPath, publicMark, Signature::getPublicKey(key)))
        return complain("the keys '" + command.file + "' can't be written");
    internal::writeStandardError(
        withoutControls(fmt::format("kiv package: {} signs, and is to be kept; {} verifies", secretPath, publicPath)) +
        "\n");
    return 0;
}

int createPackage(const PackageCommand& command) {
    Signature::SecretKey key;
    if (!readKey(command.key, secretMark, key)) return 1;
    LogCatcher catcher;
    Progress progress("packed");
    const auto show = [&progress](uint64_t done, uint64_t total) { return progress.show(done, total), true; };
    ProductPackage::Manifest manifest;
    if (!ProductPackage::create(command.file, command.folder, command.product, command.version, key, show) ||
        !ProductPackage::readManifest(command.file, Signature::getPublicKey(key), manifest))
        return complainOf(catcher);
    return conclude(manifest, "packed");
}

void list(const ProductPackage::Manifest& manifest) {
    Output output;
    for (const ProductPackage::File& file : manifest.files)
        output.write(fmt::format("{} {:>12} {}\n", Sha256::toText(file.digest).to_std_string(), file.size,
                                 withoutControls(file.name.view())));
}

// Reads the manifest, and then all of the package with `action`, which shows its progress as `verb`.
template <class Action>
bool readPackage(const PackageCommand& command, const char* verb, ProductPackage::Manifest& manifest, Action action) {
    Signature::PublicKey key;
    if (!readKey(command.key, publicMark, key)) return false;
    LogCatcher catcher;
    Progress progress(verb);
    const auto show = [&progress](uint64_t done, uint64_t total) { return progress.show(done, total), true; };
    if (ProductPackage::readManifest(command.file, key, manifest) && action(key, show)) return true;
    complainOf(catcher);
    return false;
}

int verifyPackage(const PackageCommand& command) {
    ProductPackage::Manifest manifest;
    const auto verify = [&](const auto& key, const auto& show) {
        return ProductPackage::verify(command.file, key, show);
    };
    if (!readPackage(command, "verified", manifest, verify)) return 1;
    list(manifest);
    return conclude(manifest, "verified");
}

int unpackPackage(const PackageCommand& command) {
    ProductPackage::Manifest manifest;
    const auto unpack = [&](const auto& key, const auto& show) {
        return ProductPackage::unpack(command.file, command.folder, key, show);
    };
    return readPackage(command, "unpacked", manifest, unpack) ? conclude(manifest, "verified and unpacked") : 1;
}

} // namespace

void PackageCommand::describe(CLI::App& app) {
    const auto add = [&](int (*what)(const PackageCommand&), const char* name, const char* description,
                         const char* first) -> CLI::App& {
        CLI::App& sub = addAction(app, *this, what, name, description);
        sub.add_option(first, file, "The package")->required();
        return sub;
    };
    const auto addKey = [this](CLI::App& sub, const char* what) {
        sub.add_option("-k,--key", key, what)->type_name("FILE")->required();
    };
    app.require_subcommand(1);
    add(makeKeys, "key", "Makes the two keys NAME.secret and NAME.public", "NAME");
    CLI::App& create = add(createPackage, "create", "Packs a folder", "PACKAGE");
    create.add_option("FOLDER", folder, "With all files in it and below it, none of them a link")->required();
    create.add_option("-p,--product", product, "The product's name")->type_name("TEXT")->required();
    create.add_option("-v,--version", version, "Its version")->type_name("TEXT")->required();
    addKey(create, "The secret key to sign it with");
    addKey(add(verifyPackage, "verify", "Checks all of a package, and lists its files", "PACKAGE"), "The public key");
    CLI::App& unpack = add(unpackPackage, "unpack", "Unpacks a package that is right", "PACKAGE");
    unpack.add_option("FOLDER", folder, "Which is made, and must not be there")->required();
    addKey(unpack, "The public key");
    app.footer("The exit status is 1 when a package is not right or something can't be read or written; nothing is\n"
               "left of it then.\n"
               "    kiv package key maker\n"
               "    kiv package create viewer.package build/viewer -p Viewer -v 1.2 -k maker.secret\n"
               "    kiv package unpack viewer.package viewer -k maker.public");
}

int PackageCommand::run() const {
    return action(*this);
}

} // namespace kiv::app
