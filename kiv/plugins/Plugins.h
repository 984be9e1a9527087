#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/String.h"
#include "kiv/core/TextArg.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Object.h"

#include <cstdint>
#include <functional>
#include <memory>

namespace kiv {

// The plug-ins of a program: directories of scripts below one directory, each known by its name and a digest of what is
// in it. Whoever may write there owns the process: plug-ins are code with all its rights. One that everybody may write
// to, or to a part of it, is refused, but the digest is no signature.
// Ownership: counted; System has one. Threads: the main thread. Failures are logged; none stops the other plug-ins.
class KIV_API Plugins : public Object {
    KIV_OBJECT(Plugins, Object)
public:
    static const unsigned maximumNumber = 4096; // of plug-ins in a map that was received

    Plugins();
    // A copy begins with the same listeners.
    Plugins(const Plugins&);
    Plugins(Plugins&&) noexcept;
    Plugins& operator=(const Plugins&);
    Plugins& operator=(Plugins&&) noexcept;
    ~Plugins() override;

    // A single name on every system (see ResourceLocator::isResourceName) of at most 255 bytes.
    static bool isPluginName(std::string_view name);

    // Null empties it: there are no plug-ins then.
    void setPath(const char* path);
    const String& getPath() const { return m_path; }

    // The name of each plug-in, in the order of the directory. Left out are plain files and, logged, other
    // names, links that lead out of the directory, and what everybody may write to, or to a part of it.
    void foreachPlugin(std::function<void(const char*)> function) const;
    // By name; what can't be read is logged and left out.
    Map<String, unsigned int> getPluginHashes() const;
    // The same as an item: pairs of a name and an integer.
    Item getPluginHashesItem() const;

    // Boots plug-ins: makes each a place of modules and of resources, runs all autoexec scripts, then makes script
    // threads of all mains, which begin in the VM's next pass; by name. With `verifyHashes` one whose digest is another
    // than the map says is left out. What is read of a plug-in is read once, before its digest. Requires: a VM.
    void executeBootstrapScripts(bool verifyHashes);
    // Those of a map that was received: names that lead elsewhere, and what is no 32-bit digest, are left out.
    void executeBootstrapScripts(const Item& hashes, bool verifyHashes);
    // How often that has happened, and what it has booted last, by name.
    uint64_t getNumberOfBoots() const { return m_boots; }
    const Vector<String>& getBooted() const { return m_booted; }

    // Calls what scripts have registered for the event, in the order in which they did; those that register meanwhile
    // are called the next time. What fails is logged; of "tick" a listener that fails 20 times in a row is dropped.
    void callListeners(const char* event, const Item& argument);
    bool hasListeners(TextArg event) const;

    // The script class "Plugins", into a table.
    static void bindSqVM(kivSq::Object* table);

protected:
    void executeBootstrapScripts(const Map<String, unsigned int>& hashes, bool verifyHashes);
    // Throws, for a script error, when it is no script function.
    void addListener(const char* event, const kivSq::Object& closure);

private:
    struct Loaded;
    struct Listener {
        void call(const Item& argument, bool isTick);

        kivSq::Object closure; // null once it was dropped
        unsigned failures = 0; // in a row
    };

    bool hasDirectory() const;
    bool isUsable(std::string_view name) const;
    Vector<Loaded> load(const Map<String, unsigned int>& hashes, bool verifyHashes) const;

    String m_path;
    std::map<std::string, Vector<std::shared_ptr<Listener>>, std::less<>> m_listeners; // by the event
    Vector<kivSq::Object> m_mains;                                                     // the functions of the threads
    Vector<String> m_booted;
    uint64_t m_boots = 0;
};

} // namespace kiv
