#pragma once

#include "ItemForms.h"

namespace CLI {
class App;
}

namespace kiv::app {

// The options --from and --to. Debug and Path can't be read.
void addSourceForm(CLI::App& app, ItemForm& form);
void addTargetForm(CLI::App& app, ItemForm& form);

} // namespace kiv::app
