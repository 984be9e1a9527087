// The actions of kiv store that write: they hold the whole store in memory and replace a file at once.

#include "LogCatcher.h"
#include "StoreActions.h"
#include "StoreInput.h"
#include "Text.h"

#include "kiv/store/StoreFile.h"

#include <fmt/format.h>

#include <filesystem>

namespace kiv::app {

namespace {

// Runs `work`, a load or save with a progress line; what it logs becomes our message.
template <class Work>
bool runLogged(const std::string& what, const Work& work) {
    std::string text;
    bool isGood;
    {
        LogCatcher catcher;
        Progress progress(what);
        isGood = work([&progress](uint64_t done, uint64_t total) { progress.show(done, total); });
        text = catcher.takeText();
    }
    text.erase(text.find_last_not_of("\r\n") + 1);
    constexpr std::string_view mark = "[STORE] ";
    if (const size_t at = text.find(mark); at != text.npos) text.erase(0, at + mark.size());
    if (!isGood) complainOfStore(withoutControls(text));
    return isGood;
}

bool load(MemoryStore& store, const std::string& path) {
    return runLogged("reading " + withoutControls(path),
                     [&](const StoreFile::Progress& progress) { return StoreFile::load(&store, path, progress); });
}

bool save(MemoryStore& store, const std::string& path) {
    return runLogged("writing " + withoutControls(path),
                     [&](const StoreFile::Progress& progress) { return StoreFile::save(&store, path, progress); });
}

bool exists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(std::u8string(path.begin(), path.end()), error) || error;
}

uint64_t numberOfEntries(Store& store) {
    uint64_t count = 0;
    Item key;
    for (bool more = store.first(key); more; more = store.next(key, key)) ++count;
    return count;
}

bool readValue(const std::string& text, Item& value) {
    Item::TextError error;
    if (value.setJSON(String(text), &error)) return true;
    std::string refusal = refusalOf("VALUE", text, 0, text.size(), error);
    refusal.pop_back();
    complainOfStore(refusal);
    return false;
}

} // namespace

int setEntry(const StoreCommand& command) {
    MemoryStore store(false);
    Item value, key;
    if (!readKey("KEY", command.key, key) || !readValue(command.value, value)) return 1;
    key.setStore(&store);
    const bool isNew = !exists(command.file);
    if (!isNew && !load(store, command.file)) return 1;
    const bool wasThere = key.exists();
    key.store(value);
    if (!save(store, command.file)) return 1;
    complainOfStore(fmt::format("{}: {} {}, {} entries now", withoutControls(command.file),
                                isNew ? "file made, entry" : "entry", wasThere ? "changed" : "added",
                                numberOfEntries(store)));
    return 0;
}

int copyStore(const StoreCommand& command) {
    Set<Item> excluded;
    for (const std::string& text : command.excluded) {
        Item key;
        if (!readKey("--exclude", text, key)) return 1;
        excluded.insert(key);
    }
    MemoryStore from(false), to(false);
    if (!load(from, command.file)) return 1;
    {
        LogCatcher quiet;
        to.copyFrom(&from, excluded);
    }
    if (!save(to, command.secondFile)) return 1;
    complainOfStore(fmt::format("{} of {} entries copied to {}", numberOfEntries(to), numberOfEntries(from),
                                withoutControls(command.secondFile)));
    return 0;
}

} // namespace kiv::app
