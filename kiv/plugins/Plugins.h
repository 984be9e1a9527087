#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/script/Object.h"

#include <functional>

namespace kiv {

// The plug-ins of a program: directories of scripts below one directory, each known by its name and a digest of what is
// in it. Whoever may write there owns the process: plug-ins are code with all its rights.
// Ownership: counted; System has one. Threads: the main thread. Failures are logged; none stops the other plug-ins.
class KIV_API Plugins : public Object {
    KIV_OBJECT(Plugins, Object)
public:
    Plugins();
    Plugins(const Plugins&);
    Plugins(Plugins&&) noexcept;
    Plugins& operator=(const Plugins&);
    Plugins& operator=(Plugins&&) noexcept;
    ~Plugins() override;

    // Null empties it: there are no plug-ins then.
    void setPath(const char* path);
    const String& getPath() const { return m_path; }

    // The name of each plug-in, in the order of the directory. Left out are plain files, names with separators or
    // control characters, and links that lead out of the directory.
    void foreachPlugin(std::function<void(const char*)> function) const;
    // By name; what can't be read is logged and left out.
    Map<String, unsigned int> getPluginHashes() const;
    // The same as an item: pairs of a name and an integer.
    Item getPluginHashesItem() const;

    // Boots plug-ins: makes each a place of modules and of resources, runs all autoexec scripts, then starts all mains
    // as script threads, by name. With `verifyHashes` one whose digest is another than the map says is left out.
    void executeBootstrapScripts(bool verifyHashes);
    // Those of a map that was received: names that lead elsewhere are left out.
    void executeBootstrapScripts(const Item& hashes, bool verifyHashes);

    // Calls what scripts have registered for the event, in the order in which they did. What fails is logged.
    void callListeners(const char* event, const Item& argument);
    bool hasListeners(const char* event) const;

    // The script class "Plugins".
    static void bindSqVM(kivSq::Object* table);

protected:
    void executeBootstrapScripts(const Map<String, unsigned int>& hashes, bool verifyHashes);
    // A value that is no closure is a script error.
    void addListener(const char* event, const kivSq::Object& closure);

private:
    String m_path;
    Map<String, Vector<kivSq::Object>> m_listeners;
    Vector<kivSq::Object> m_mains; // started threads' closures
};

} // namespace kiv
