#include "Items.h"
#include "Maps.h"

#include <absl/container/btree_map.h>

namespace {

class ByteMap : public bench::MapContestant<bench::Bytes, absl::btree_map<std::string, std::string, std::less<>>> {
public:
    static constexpr const char* name = "btree_map";
};

class ItemMap : public bench::MapContestant<bench::Items, absl::btree_map<kiv::Item, kiv::Item>> {
public:
    static constexpr const char* name = "btree_map-items";
};

[[maybe_unused]] const bool added = bench::addAll<ByteMap>() && bench::addAll<ItemMap>();

} // namespace
