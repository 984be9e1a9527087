// Any bytes as the map of plug-ins that a worker is sent: nothing but names of plug-ins comes out of it.
#include "Folder.h"
#include "Silence.h"
#include "kiv/data/Item.h"
#include "kiv/plugins/Plugins.h"
#include "kiv/script/VM.h"

#include <cstdlib>

using kiv::Item;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kivSq::VM vm;
    static const Folder empty;
    kiv::Plugins plugins;
    plugins.setPath(empty.path().c_str());
    const Item item(Item::ExternalBufferMode(), {data, static_cast<unsigned>(size)});
    plugins.executeBootstrapScripts(item, true);
    if (!plugins.getBooted().empty()) std::abort();
    return 0;
}
