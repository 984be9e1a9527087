#pragma once

#include "kiv/core/Object.h"
#include "kiv/data/Item.h"
#include "kiv/store/GUIDDomain.h"

namespace kiv {

// Hands out identifiers and domains of its own domain, each once: it counts in a store, below a root key
// (doc/formats/store-records.md), and goes on from there when it is made anew. An identifier is the domain's bits, a
// running number and a random rest.
// Ownership: counted; the store must outlive it. Threads: one at a time. A store that can't be written to is the
// caller's to notice. Identifiers handed out in a transaction that is rolled back are not handed out again by the same
// object.
class KIV_API GUIDDomainDB : public Object {
    KIV_OBJECT(GUIDDomainDB, Object)
public:
    // What entries of tables take their identifiers from; null when nothing is installed.
    static GUIDDomainDB* current();
    // Installs `db`, which may be null, and returns what was installed before. An installed object that dies uninstalls
    // itself; it is not kept. Any thread.
    static GUIDDomainDB* exchangeCurrent(GUIDDomainDB* db);
    // A new identifier of the installed object, or 256 random bits.
    static GUID createGUID();

    // Reads the record below `root` if there is one.
    explicit GUIDDomainDB(const Item& root);
    ~GUIDDomainDB() override;
    GUIDDomainDB(const GUIDDomainDB&) = delete;
    GUIDDomainDB& operator=(const GUIDDomainDB&) = delete;

    // Starts a record over: of `base`, `domainBits` more bits tell domains apart and `personalBits` after these count
    // identifiers. Logs an error and changes nothing when that is more than 256 bits, or the root is bound to no store.
    void initializeDomain(const GUIDDomain& base, unsigned domainBits, unsigned personalBits);
    bool hasDomain() const { return m_hasDomain; }

    // The first is the domain that the identifiers of this object are in: one who gives domains away discards it.
    // After 2^domainBits they start again with the second. Requires: hasDomain(), else an error is logged and the
    // domain of all identifiers returned.
    GUIDDomain generateDomain();
    // After 2^personalBits the numbers start again. 256 random bits without a domain.
    GUID generateGUID();

protected:
    // Without a domain when something is missing, of another type or out of range.
    void loadDomainFromDatabase();
    // The state that follows from the record's fields.
    void initializeInternals();

private:
    const Item* fetch(const char* field) const;
    bool read(const char* field, uint64_t& out) const;
    bool readBits(const char* field, unsigned& out) const;
    void write(const char* field, const Item& value) const;

    Item m_root;
    uint32_t m_domainBits = 0;
    uint32_t m_personalBits = 0;
    bool m_hasDomain = false;
    uint64_t m_domainIndex = 0;
    uint64_t m_personalIndex = 0;
    uint64_t m_domainLimit = 0; // 0 stands for 2^64
    uint64_t m_personalLimit = 0;
    GUIDDomain m_base;
    GUIDDomain m_domain; // of the identifiers
};

} // namespace kiv
