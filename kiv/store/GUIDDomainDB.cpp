#include "kiv/store/GUIDDomainDB.h"

#include "kiv/core/Random.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/store/ScopedTransaction.h"

#include <atomic>

namespace kiv {

namespace {

constexpr unsigned bitsOfGUID = 256;

constexpr char baseField[] = "base.guid";
constexpr char baseBitsField[] = "base.num";
constexpr char domainBitsField[] = "domainBits";
constexpr char personalBitsField[] = "personalBits";
constexpr char domainIndexField[] = "domainIndex";
constexpr char personalIndexField[] = "personalIndex";

std::atomic<GUIDDomainDB*> installed{nullptr};

// 2^64 does not fit, and is 0.
uint64_t limitOf(unsigned bits) {
    return bits < 64 ? uint64_t{1} << bits : 0;
}

bool isPast(uint64_t index, uint64_t limit) {
    return limit != 0 && index >= limit;
}

} // namespace

GUIDDomainDB* GUIDDomainDB::current() {
    return installed.load(std::memory_order_acquire);
}

GUIDDomainDB* GUIDDomainDB::exchangeCurrent(GUIDDomainDB* db) {
    return installed.exchange(db);
}

GUID GUIDDomainDB::createGUID() {
    if (GUIDDomainDB* db = current()) return db->generateGUID();
    Random& random = Random::current();
    const uint64_t words[] = {random.randomUInt64(), random.randomUInt64(), random.randomUInt64(),
                              random.randomUInt64()};
    return {words[0], words[1], words[2], words[3]};
}

GUIDDomainDB::GUIDDomainDB(const Item& root) : m_root(root) {
    loadDomainFromDatabase();
}

GUIDDomainDB::~GUIDDomainDB() {
    GUIDDomainDB* expected = this;
    installed.compare_exchange_strong(expected, nullptr);
}

const Item* GUIDDomainDB::fetch(const char* field) const {
    Item key(m_root);
    key.addString(field);
    return key.fetch();
}

bool GUIDDomainDB::read(const char* field, uint64_t& out) const {
    const Item* value = fetch(field);
    if (!value) return false;
    Item::Iterator it = value->getIterator();
    return it.asInteger(out);
}

bool GUIDDomainDB::readBits(const char* field, unsigned& out) const {
    uint64_t bits = 0;
    if (!read(field, bits) || bits > bitsOfGUID) return false;
    out = static_cast<unsigned>(bits);
    return true;
}

void GUIDDomainDB::write(const char* field, const Item& value) const {
    Item key(m_root);
    key.addString(field);
    key.store(value);
}

void GUIDDomainDB::loadDomainFromDatabase() {
    m_hasDomain = false;
    const Item* value = fetch(baseField);
    if (!value) return;
    GUID base;
    unsigned baseBits = 0;
    Item::Iterator it = value->getIterator();
    if (!it.asGUID(base)) return;
    if (!readBits(baseBitsField, baseBits) || !readBits(domainBitsField, m_domainBits) ||
        !readBits(personalBitsField, m_personalBits) || !read(domainIndexField, m_domainIndex) ||
        !read(personalIndexField, m_personalIndex))
        return;
    if (baseBits + m_domainBits + m_personalBits > bitsOfGUID) return;
    m_base = GUIDDomain(base, baseBits);
    initializeInternals();
}

void GUIDDomainDB::initializeInternals() {
    m_domain = GUIDDomain(m_base.getBase(), m_base.getOffset() + m_domainBits);
    m_domainLimit = limitOf(m_domainBits);
    m_personalLimit = limitOf(m_personalBits);
    m_hasDomain = true;
}

void GUIDDomainDB::initializeDomain(const GUIDDomain& base, unsigned domainBits, unsigned personalBits) {
    if (uint64_t{base.getOffset()} + domainBits + personalBits > bitsOfGUID) {
        logging::MessageStream(3, 2) << "GUID domain needs more than 256 bits";
        return;
    }
    if (!m_root.getStore()) {
        logging::MessageStream(3, 2) << "GUID domain has no store";
        return;
    }
    ScopedTransaction transaction(m_root);
    write(baseField, base.getBase());
    write(baseBitsField, base.getOffset());
    write(domainBitsField, domainBits);
    write(personalBitsField, personalBits);
    write(domainIndexField, 0);
    write(personalIndexField, 0);
    transaction.commit();
    m_base = base;
    m_domainBits = domainBits;
    m_personalBits = personalBits;
    m_domainIndex = m_personalIndex = 0;
    initializeInternals();
}

// The index past the last, which a damaged record may have, starts again as well: its bits would be those of others.
GUIDDomain GUIDDomainDB::generateDomain() {
    if (!m_hasDomain) {
        logging::MessageStream(3, 2) << "GUID domain is not initialized";
        return {};
    }
    const uint64_t again = m_domainLimit == 1 ? 0 : 1;
    if (isPast(m_domainIndex, m_domainLimit)) m_domainIndex = again;
    const GUIDDomain domain = m_base.selectSubDomain(m_domainBits, m_domainIndex);
    ++m_domainIndex;
    if (m_domainIndex == 0 || isPast(m_domainIndex, m_domainLimit)) m_domainIndex = again;
    write(domainIndexField, m_domainIndex);
    return domain;
}

GUID GUIDDomainDB::generateGUID() {
    GUIDDomain rest; // the identifier so far, and where the random bits begin
    if (m_hasDomain) {
        if (isPast(m_personalIndex, m_personalLimit)) m_personalIndex = 0;
        rest = m_domain.selectSubDomain(m_personalBits, m_personalIndex);
        ++m_personalIndex;
        if (isPast(m_personalIndex, m_personalLimit)) m_personalIndex = 0;
        write(personalIndexField, m_personalIndex);
    }
    Random& random = Random::current();
    while (rest.getOffset() < bitsOfGUID - 64) rest = rest.selectSubDomain(64, random.randomUInt64());
    return rest.createGUID(random.randomUInt64());
}

} // namespace kiv
