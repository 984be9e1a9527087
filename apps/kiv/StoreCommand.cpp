#include "StoreCommand.h"

#include "StoreActions.h"

namespace kiv::app {

int StoreCommand::run() const {
    switch (action) {
    case StoreAction::Tree:
        return showTree(*this);
    case StoreAction::Get:
        return getEntry(*this);
    case StoreAction::Set:
        return setEntry(*this);
    case StoreAction::Copy:
        return copyStore(*this);
    case StoreAction::Compare:
        return compareStores(*this);
    default:
        return dumpStore(*this);
    }
}

} // namespace kiv::app
