#include "StoreCommand.h"

#include "Actions.h"
#include "FormOptions.h"
#include "StoreActions.h"

namespace kiv::app {

void StoreCommand::describe(CLI::App& app) {
    const auto add = [&](int (*what)(const StoreCommand&), const char* name, const char* description,
                         const char* first = "FILE") -> CLI::App& {
        CLI::App& sub = addAction(app, *this, what, name, description);
        sub.add_option(first, file, "A store file")->required();
        return sub;
    };
    app.require_subcommand(1);
    add(dumpStore, "dump", "Lists all entries, a line each: key = value, as debug texts");
    CLI::App& tree = add(showTree, "tree", "Shows the tree of keys, or the part of it at and below a key");
    tree.add_option("KEY", key, "Where to begin");
    tree.add_option("-d,--depth", depth, "Show so many levels below it")->type_name("LEVELS");
    CLI::App& get = add(getEntry, "get", "Prints the value of an entry");
    get.add_option("KEY", key, "Of the entry")->required();
    addTargetForm(get, form);
    CLI::App& set = add(setEntry, "set", "Adds or changes an entry; makes the file when it is not there");
    set.add_option("KEY", key, "Of the entry; what is missing above it is added, too")->required();
    set.add_option("VALUE", value, "JSON; behind \"--\" it may begin with a dash")->required();
    CLI::App& copy = add(copyStore, "copy", "Copies a store", "FROM");
    copy.add_option("TO", secondFile, "The file to make or replace")->required();
    copy.add_option("-x,--exclude", excluded, "Leave out this key and all below it; may be repeated")
        ->type_name("KEY")
        ->allow_extra_args(false);
    CLI::App& compare = add(compareStores, "compare", "Lists what differs between two stores", "A");
    compare.add_option("B", secondFile, "The other store file")->required();
    app.footer("A KEY is a JSON array of its elements, or a text, which is a key of one element.\n"
               "The exit status is 1 when a file is damaged or can't be read or written, when there is no such entry,\n"
               "and when stores differ. A file that is written is replaced at once, or stays as it was.\n"
               "    kiv store set settings.store '[\"viewer\", \"gamma\"]' 2.2\n"
               "    kiv store get settings.store '[\"viewer\", \"gamma\"]'\n"
               "    kiv store tree settings.store viewer");
}

int StoreCommand::run() const {
    return action(*this);
}

} // namespace kiv::app
