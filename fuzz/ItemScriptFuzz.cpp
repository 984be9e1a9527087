// Any bytes as an item: the values that become script values become the same item again, and the engine's stack stays.
#include "Silence.h"
#include "kiv/data/Item.h"
#include "kiv/script/Access.h"
#include "kiv/script/VM.h"

#include <cstdlib>

using kiv::Item;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static kivSq::VM vm;
    const SQInteger top = sq_gettop(vm.getSquirrelVM());
    const Item item(Item::ExternalBufferMode(), {data, static_cast<unsigned>(size)});
    Item::Iterator it = item.getIterator();
    kivSq::Object value, again;
    while (it.asSquirrel(value)) {
        if (value.isClosure()) std::abort();
        // What scripts have keeps its form from then on.
        const Item first(value);
        if (!first.decodeElementAsSquirrel(0, again)) std::abort();
        const Item second(again);
        if (first.getPlainSize() != second.getPlainSize()) std::abort();
    }
    if (sq_gettop(vm.getSquirrelVM()) != top) std::abort();
    return 0;
}
