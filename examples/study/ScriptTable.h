#pragma once

#include "kiv/data/Item.h"

#include <initializer_list>
#include <utility>

// What scripts, and files of JSON, have as a table. A value is an item of one value.
inline kiv::Item makeTable(std::initializer_list<std::pair<const char*, kiv::Item>> pairs) {
    kiv::Item run, table;
    for (const auto& [name, value] : pairs) {
        run.add(name);
        run.concatItem(value);
    }
    table.addPrefix("table");
    table.addItem(run);
    return table;
}
