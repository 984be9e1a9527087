#pragma once

#include "Progress.h"

#include "kiv/store/StoreFileReader.h"

#include <string>

namespace kiv::app {

// What the actions of kiv store have in common. Messages go to standard error, behind the name of the command.
void complainOfStore(const std::string& text);

// A key from the command line; `name` says which, in the message.
bool readKey(const std::string& name, const std::string& text, Item& key);

// The key and value of one entry, as people see them.
std::string entryText(const Item& key, const Item& value);

// A store file that is read from its beginning to its end or to damage.
class StoreInput {
public:
    explicit StoreInput(const std::string& path);

    bool read(Item& key, Item& value);
    // Complains when the file is not whole. Flush standard output before.
    bool finish();
    bool isOpen() const { return m_reader.isOpen(); }
    bool isDamaged() const { return !isOpen() || !m_reader.getReason().empty(); }
    uint64_t getNumberOfEntries() const { return m_reader.getNumberOfEntries(); }
    // For messages.
    const std::string& getName() const { return m_name; }

private:
    StoreFileReader m_reader;
    const std::string m_name;
    Progress m_progress;
};

} // namespace kiv::app
