#include "kiv/plugins/Plugins.h"

#include "kiv/core/Buffer.h"
#include "kiv/files/Directory.h"
#include "kiv/files/ResourceLocator.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/platform/FileSystem.h"
#include "kiv/script/Class.h"
#include "kiv/script/Functor.h"
#include "kiv/script/VM.h"

#include <algorithm>
#include <stdexcept>

namespace kiv {
namespace {

using logging::MessageStream;

constexpr size_t longestName = 255;
constexpr std::string_view tickEvent = "tick"; // comes in each pass
constexpr unsigned mostFailures = 20;          // in a row, of a listener of that
constexpr unsigned mostRefusalsTold = 20;      // of one map
constexpr char notAName[] = "that is no name of a plug-in";

// For the log: names come from outside.
String shown(std::string_view name) {
    constexpr size_t longestShown = 60;
    const String text = String(std::string(name.substr(0, longestShown))).utf8_escape_controlcode();
    return name.size() > longestShown ? text + "..." : text;
}

void refuse(std::string_view name, const char* why) {
    MessageStream(2, 2) << "[PLUGINS] [" << shown(name) << "] is left out: " << why;
}

bool isBelow(const std::string& path, const std::string& directory) {
    const std::string below = platform::canonicalPath(path), above = platform::canonicalPath(directory);
    return !above.empty() && below.size() > above.size() + 1 && below.starts_with(above) &&
           (above.back() == '/' || below[above.size()] == '/');
}

// The first place that everybody may write to, there or below: a path from `directory` on, "it" for that itself, empty
// when there is none. What is deeper has no digest.
std::string findOpenPlace(const std::string& directory, const std::string& below = "", unsigned levels = 64) {
    const std::string path(Directory::join(directory, below).view());
    if (platform::isWritableByAll(path)) return below.empty() ? "it" : below;
    std::string found;
    Vector<Directory::Entry> entries;
    if (levels == 0 || !Directory::list(path, entries)) return found;
    for (size_t i = 0; i < entries.size() && found.empty(); ++i) {
        const std::string name(Directory::join(below, entries[i].name).view());
        const bool isWalked = entries[i].isDirectory && !entries[i].isLink;
        found = findOpenPlace(directory, name, isWalked ? levels - 1 : 0);
    }
    return found;
}

// A script of a plug-in: what was read, once.
struct Script {
    bool exists = false;
    Buffer content;

    void load(const String& path) {
        const std::string file(path.view());
        // A pipe would be waited for, and is not part of the digest.
        exists = platform::fileInfo(file).kind == platform::FileKind::File && content.loadFromFile(file.c_str(), false);
    }
    const char* getText() const { return reinterpret_cast<const char*>(content.getBytePointer()); }
};

// Where case does not count two names may be one directory. Links are names of their own.
bool isFirst(const String& directory, Set<std::string>& all) {
    const std::string path(directory.view()), canonical = platform::canonicalPath(path);
    return canonical.empty() || platform::fileInfo(path).isLink || all.insert(canonical).second;
}

// The map of a received item.
class HashesReader {
public:
    Map<String, unsigned int> read(const Item& item) {
        int offset = 0;
        while (m_hashes.size() < Plugins::maximumNumber) {
            Item::Iterator name(item, offset);
            Item::Iterator value(item, offset + static_cast<int>(name.getSize()));
            if (!value.hasNextElement()) {
                if (offset != static_cast<int>(item.getPlainSize())) tell("", "the rest of the map is no map");
                break;
            }
            offset = value.getOffset() + static_cast<int>(value.getValueSize());
            add(name.getType() == ValueType::String ? name.asWeakCStr() : "", value);
        }
        if (m_hashes.size() == Plugins::maximumNumber && offset < static_cast<int>(item.getPlainSize()))
            tell("", "there are too many");
        if (m_refused > mostRefusalsTold)
            MessageStream(2, 2) << "[PLUGINS] and " << m_refused - mostRefusalsTold << " more of that map";
        return std::move(m_hashes);
    }

private:
    // Of equal names the first counts.
    void add(std::string_view name, Item::Iterator& value) {
        int64_t hash = -1;
        if (!Plugins::isPluginName(name)) {
            tell(name, notAName);
        } else if (!value.asInteger(hash) || hash < 0 || hash > UINT32_MAX) {
            tell(name, "it has no digest");
        } else {
            m_hashes.emplace(name, static_cast<unsigned int>(hash));
        }
    }
    void tell(std::string_view name, const char* why) {
        if (++m_refused <= mostRefusalsTold) refuse(name, why);
    }

    Map<String, unsigned int> m_hashes;
    uint64_t m_refused = 0;
};

} // namespace

// A plug-in that is to be booted.
struct Plugins::Loaded {
    String name;
    String directory;
    Script autoexec;
    Script main;
};

const unsigned Plugins::maximumNumber;

Plugins::Plugins() = default;
Plugins::Plugins(const Plugins&) = default;
Plugins::Plugins(Plugins&&) noexcept = default;
Plugins& Plugins::operator=(const Plugins&) = default;
Plugins& Plugins::operator=(Plugins&&) noexcept = default;
Plugins::~Plugins() = default;

void Plugins::setPath(const char* path) {
    m_path = path ? path : "";
}

// ---- The directory.

// A path can't lead elsewhere by it.
bool Plugins::isPluginName(std::string_view name) {
    return name.size() <= longestName && name.find('/') == name.npos && ResourceLocator::isResourceName(name);
}

bool Plugins::hasDirectory() const {
    if (m_path.empty() || !Directory::exists(m_path)) return false;
    if (!platform::isWritableByAll(std::string(m_path.view()))) return true;
    MessageStream(2, 2) << "[PLUGINS] everybody may write to " << m_path << ": no plug-in of it is used";
    return false;
}

void Plugins::foreachPlugin(std::function<void(const char*)> function) const {
    if (!function || !hasDirectory()) return;
    Vector<Directory::Entry> entries;
    if (!Directory::list(m_path, entries)) MessageStream(3, 2) << "[PLUGINS] can't be listed: " << m_path;
    for (const Directory::Entry& entry : entries) {
        if (!entry.isDirectory) continue;
        if (!isPluginName(entry.name.view())) {
            refuse(entry.name.view(), notAName);
        } else if (isUsable(entry.name.view())) {
            function(entry.name.c_str());
        }
    }
}

// Whether what stands there may be booted; nothing may, too.
bool Plugins::isUsable(std::string_view name) const {
    const std::string path(Directory::join(m_path, name).view());
    if (platform::fileInfo(path).isLink && !isBelow(path, std::string(m_path.view()))) {
        refuse(name, "it is a link that leads elsewhere");
        return false;
    }
    const std::string open = findOpenPlace(path);
    if (!open.empty()) refuse(name, ("everybody may write to " + shown(open).to_std_string()).c_str());
    return open.empty();
}

Map<String, unsigned int> Plugins::getPluginHashes() const {
    Map<String, unsigned int> hashes;
    foreachPlugin([&](const char* name) {
        if (const auto hash = Directory::getDirectoryHash(Directory::join(m_path, name))) {
            hashes[name] = *hash;
        } else {
            MessageStream(3, 2) << "[PLUGINS] [" << name << "] is left out: not all of it can be read";
        }
    });
    return hashes;
}

Item Plugins::getPluginHashesItem() const {
    Item item;
    for (const auto& [name, hash] : getPluginHashes()) {
        item.addString(name);
        item.add(hash);
    }
    return item;
}

// ---- Booting.

void Plugins::executeBootstrapScripts(bool verifyHashes) {
    executeBootstrapScripts(getPluginHashes(), verifyHashes);
}

void Plugins::executeBootstrapScripts(const Item& hashes, bool verifyHashes) {
    executeBootstrapScripts(HashesReader().read(hashes), verifyHashes);
}

// Scripts are read before the digest is: one that is changed behind it is not run as it is then.
Vector<Plugins::Loaded> Plugins::load(const Map<String, unsigned int>& hashes, bool verifyHashes) const {
    Vector<Loaded> all;
    if (hashes.empty() || !hasDirectory()) return all;
    Set<std::string> directories;
    for (const auto& [name, hash] : hashes) {
        if (!isPluginName(name.view())) {
            refuse(name.view(), notAName);
            continue;
        }
        if (!isUsable(name.view())) continue;
        Loaded plugin{name, Directory::join(m_path, name), {}, {}};
        plugin.autoexec.load(plugin.directory + "/autoexec.sq");
        plugin.main.load(plugin.directory + "/main.sq");
        if (verifyHashes && Directory::getDirectoryHash(plugin.directory) != hash) {
            MessageStream(3, 2) << "[PLUGINS] [" << name << "] is left out: its digest is another";
            continue;
        }
        if (!isFirst(plugin.directory, directories)) {
            refuse(name, "it is booted by another name");
            continue;
        }
        all.push_back(std::move(plugin));
    }
    return all;
}

void Plugins::executeBootstrapScripts(const Map<String, unsigned int>& hashes, bool verifyHashes) {
    kivSq::VM* const vm = kivSq::VM::current();
    if (!vm) {
        MessageStream(3, 2) << "[PLUGINS] there is no VM to boot them in";
        return;
    }
    const Vector<Loaded> all = load(hashes, verifyHashes);
    ResourceLocator* const resources = ResourceLocator::current();
    Vector<String> paths = vm->getLibrary().getSearchPaths();
    m_booted.clear();
    for (const Loaded& plugin : all) {
        m_booted.push_back(plugin.name);
        if (std::find(paths.begin(), paths.end(), plugin.directory) == paths.end())
            vm->addImportSearchPath(plugin.directory.c_str());
        if (resources && Directory::exists(plugin.directory)) resources->addDirectory(plugin.directory);
    }
    // A script may end the VM.
    const auto isThere = [vm] { return kivSq::VM::current() == vm; };
    for (const Loaded& plugin : all)
        if (plugin.autoexec.exists && isThere())
            vm->executeBuffer(plugin.autoexec.getText(), plugin.autoexec.content.getSize(), plugin.name.c_str());
    for (const Loaded& plugin : all) {
        if (!plugin.main.exists || !isThere()) continue;
        MessageStream(1, 2) << '[' << plugin.name << "] starting main";
        const kivSq::Object main =
            vm->newClosure(plugin.main.getText(), plugin.main.content.getSize(), plugin.name.c_str());
        if (!main) continue;
        vm->createThread(main);
        m_mains.push_back(main);
    }
    ++m_boots;
}

// ---- Listeners.

void Plugins::addListener(const char* event, const kivSq::Object& closure) {
    if (!closure.isClosure()) throw std::invalid_argument("trying to add a listener of non-closure type");
    m_listeners[event ? event : ""].push_back(std::make_shared<Listener>(Listener{closure}));
}

bool Plugins::hasListeners(TextArg event) const {
    return !m_listeners.empty() && m_listeners.contains(std::string_view(event));
}

void Plugins::callListeners(const char* event, const Item& argument) {
    const auto found = m_listeners.find(std::string_view(event ? event : ""));
    if (found == m_listeners.end()) return;
    // Those of a VM that has ended, and those that were dropped.
    std::erase_if(found->second, [](const auto& listener) { return !listener->closure.isClosure(); });
    const SmartPointer<Plugins> self = getReferenceCount() > 0 ? this : nullptr;
    const bool isTick = found->first == tickEvent;
    const auto listeners = found->second;
    for (const auto& listener : listeners)
        if (listener->closure.isClosure()) listener->call(argument, isTick);
}

// Else a log would have nothing but the failures of each pass.
void Plugins::Listener::call(const Item& argument, bool isTick) {
    kivSq::Object result;
    if (kivSq::Functor(closure).tryCall(result, argument)) {
        failures = 0;
    } else if (++failures >= mostFailures && isTick) {
        MessageStream(3, 2) << "[PLUGINS] a listener of '" << tickEvent << "' is dropped: it has failed "
                            << mostFailures << " times in a row";
        closure = {};
    }
}

void Plugins::bindSqVM(kivSq::Object* table) {
    if (kivSq::AdapterData::of<Plugins>().isInitialized()) return;
    kivSq::Class<Plugins>(*table, "Plugins")
        .method("getClassName", &Plugins::getDynamicClassName)
        .method("addListener", &Plugins::addListener);
}

} // namespace kiv
