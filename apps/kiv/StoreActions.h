#pragma once

#include "StoreCommand.h"

// The actions of kiv store, by what they do to files; each returns the exit status.
namespace kiv::app {

int dumpStore(const StoreCommand& command);
int showTree(const StoreCommand& command);
int getEntry(const StoreCommand& command);
int compareStores(const StoreCommand& command);

int setEntry(const StoreCommand& command);
int copyStore(const StoreCommand& command);

} // namespace kiv::app
