#include "Items.h"
#include "Maps.h"
#include "kiv/core/Containers.h"

#include <map>

namespace {

class ByteMap : public bench::MapContestant<bench::Bytes, std::map<std::string, std::string, std::less<>>> {
public:
    static constexpr const char* name = "std-map";
};

class ItemMap : public bench::MapContestant<bench::Items, std::map<kiv::Item, kiv::Item>> {
public:
    static constexpr const char* name = "std-map-items";
};

[[maybe_unused]] const bool added = bench::addAll<ByteMap>() && bench::addAll<ItemMap>();

} // namespace
