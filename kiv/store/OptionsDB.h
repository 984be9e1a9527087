#pragma once

#include "kiv/core/Containers.h"
#include "kiv/core/Object.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"
#include "kiv/store/Store.h"

#include <functional>
#include <map>

namespace kiv {

class RpcProvider;

// The named settings of an application: declared at start-up with title, default and flags; their values live in the
// store of the root key (doc/formats/store-records.md). An option without a stored value has its default.
// Ownership: counted; keeps the store of its root. Threads: one, the main thread. Failures: unknown names are logged
// and read as empty, 0 or false.
class KIV_API OptionsDB : public Object {
    KIV_OBJECT(OptionsDB, Object)
public:
    // Of the flags; other bits are for clients.
    static const int ConfidentialFlag = 2; // the value stays out of the log and of what clients are told
    static const int SecretFlag = 4;       // the same
    static const int SupportFlag = 128;    // changes are support messages

    struct OptionMeta {
        String name;
        String title;
        String description;
        String defaultValue;
        int flags = 0;
    };

    explicit OptionsDB(const Item& root);
    OptionsDB(const OptionsDB&) = delete;
    OptionsDB& operator=(const OptionsDB&) = delete;
    ~OptionsDB() override;

    // False, and nothing changed, when a text is null or the name has no ":". `mapped` is kept with the name,
    // nothing reads it. Of two declarations of one name, which is logged, look-ups find the first.
    bool addOption(const char* name, const char* defaultValue, const char* mapped, const char* title,
                   const char* description, int flags);
    bool hasOption(const char* name) const;
    unsigned getOptionCount() const;

    // The stored value, or the default where there is none or it is empty; resp. the stored one only.
    String getValue(const char* name) const;
    String getValueDirect(const char* name) const;
    // 0 for what is no decimal number; what is too large or small is the nearest.
    int getValueAsInt(const char* name) const;
    // Stores it, tells the change listener, and logs it if the option wants that. Null is the empty text.
    bool setValue(const char* name, const char* value);
    // Called with name and new value after every successful setValue(). May set others.
    void setChangeListener(std::function<void(const char* name, const char* value)> listener);

    String getDefaultValue(const char* name) const;
    String getTitle(const char* name) const;
    int getFlags(const char* name) const;
    // Of the option declared as number `index`: name, title, description, default and flags, resp. the stored value.
    // Empty outside.
    Item getMeta(int index) const;
    Item getData(int index) const;
    // All options, an element each: name, title, description, default, flags, value.
    Item getOptionsData() const;
    // Of the options whose names begin with "client_options:".
    Vector<OptionMeta> getClientOptionsMeta() const;

    // Forgets all declarations; stored values stay.
    void clear();

    // "advanced_option_get": answers getOptionsData() to callers with the right "rpc:advanced_option_get". The handler
    // fails once this is gone.
    void registerRpcCalls(RpcProvider* provider);

private:
    friend struct OptionsDBPeek; // of the tests

    struct Declared {
        unsigned offset; // of the first declaration in the metadata
        String mapped;
    };

    Item keyOf(const char* name) const;
    const Item* fetchValue(const char* name) const;
    bool findMeta(const char* name, Item& option) const;
    String getMetaText(const char* name, int position) const;
    template <class Visit>
    void visitMeta(Visit visit) const;
    Vector<OptionMeta> generateData() const;
    bool isConfidential(const OptionMeta& option) const;

    const SmartPointer<Store> m_store;
    const Item m_root;
    Item m_meta;                // an element each: name, title, description, default, flags
    Vector<unsigned> m_offsets; // of all declarations, in their order
    std::map<String, Declared, std::less<>> m_declared;
    std::function<void(const char* name, const char* value)> m_changeListener;
};

} // namespace kiv
