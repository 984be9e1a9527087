#include "Pieces.h"

#include "kiv/data/Item.h"

#include <iostream>

void showValues() {
    kiv::Item value;
    value.add("spacing"); // a text
    value.add(0.5);
    value.add(200);
    value.add(true);
    std::cout << value.asString() << '\n';
    std::cout << value.getPlainSize() << " bytes: " << value.getBase16() << '\n';

    kiv::Item::Iterator it = value.getIterator();
    kiv::String name;
    double number = 0;
    long long count = 0;
    if (it.asString(name) && it.asFloat(number) && it.asInteger(count))
        std::cout << name << " is " << number << ", counted " << count << '\n';
    // The next element is a truth value: a reader of another type fails and stays where it is.
    if (!it.asFloat(number)) std::cout << "no float at offset " << it.getOffset() << '\n';

    kiv::Item head("series"), tail("series");
    head.add(9);
    tail.add(10);
    std::cout << (head < tail ? "9 comes before 10" : "10 comes before 9") << '\n';

    kiv::Item study;
    if (kiv::Item::TextError error; !study.setJSON(R"({"kind": "phantom", "size": [256, 256, 64]})", &error))
        std::cout << "offset " << error.offset << ": " << error.reason << '\n';
    kiv::Map<kiv::SmartCStr, kiv::Item> table;
    if (study.getIterator().asWeakTable(table)) std::cout << "kind: " << table["kind"].asString() << '\n';
    std::cout << study.getJSON(false) << '\n';
}
