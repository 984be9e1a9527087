// Any bytes as the map of plug-ins that a worker is sent: nothing but names of plug-ins comes out of it.
#include "Silence.h"
#include "kiv/data/Item.h"
#include "kiv/files/Directory.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/script/VM.h"

#include <cstdlib>

using kiv::Item;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kivSq::VM vm;
    static const kiv::String empty = kiv::Directory::join(kiv::Directory::getTemporary(), "kiv-fuzz-plugins");
    static const bool isMade = kiv::Directory::create(empty);
    kiv::Plugins plugins;
    plugins.setPath(empty.c_str());
    const Item item(Item::ExternalBufferMode(), {data, static_cast<unsigned>(size)});
    plugins.executeBootstrapScripts(item, true);
    if (!isMade || !plugins.getBooted().empty()) std::abort();
    return 0;
}
