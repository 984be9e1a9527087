// Hunts: bits lost or smeared where words meet, counters that hand out an identifier twice or run into their
// neighbours' bits, records that are believed although they are damaged.
#include "kiv/store/GUIDDomainDB.h"

#include "kiv/core/Random.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/store/MemoryStore.h"
#include "tests/support/LogLines.h"

#include <gtest/gtest.h>

#include <bitset>
#include <climits>
#include <set>

namespace {

using namespace kiv;
using Bits = std::bitset<256>;

Bits bitsOf(const GUID& guid) {
    Bits bits;
    for (unsigned i = 0; i < 256; ++i) bits[i] = (guid.getWord(i / 64) >> (i % 64)) & 1;
    return bits;
}

// Bit by bit.
Bits withNumber(Bits bits, uint64_t n, uint64_t offset) {
    for (unsigned i = 0; i < 64; ++i) {
        if (offset + i < 256 && ((n >> i) & 1) != 0) bits[static_cast<size_t>(offset + i)] = true;
    }
    return bits;
}

TEST(GUIDDomain, PutsNumbersWhereTheirBitsBelong) {
    const GUID bases[] = {GUID(), GUID(0x0123456789ABCDEF, 0xFEDCBA9876543210, 0x5555555555555555, 1)};
    for (const GUID& base : bases) {
        for (const uint64_t n : {uint64_t{0}, uint64_t{1}, UINT64_MAX, uint64_t{0x8000000000000001}}) {
            for (unsigned offset = 0; offset < 330; ++offset) {
                ASSERT_EQ(bitsOf(GUIDDomain(base, offset).createGUID(n)), withNumber(bitsOf(base), n, offset))
                    << n << " at " << offset;
            }
            EXPECT_EQ(GUIDDomain(base, UINT_MAX).createGUID(n), base);
        }
    }
}

TEST(GUIDDomain, DomainsWithinStartAboveTheirNumber) {
    const GUIDDomain inner = GUIDDomain(GUID(1, 0, 0, 0), 60).selectSubDomain(10, 0x3FF);
    EXPECT_EQ(inner.getOffset(), 70u);
    EXPECT_EQ(inner.getBase(), GUID(0xF000000000000001, 0x3F, 0, 0));
    EXPECT_EQ(inner.createGUID(1).getWord(1), 0x7Fu);
    const GUIDDomain end = GUIDDomain(GUID(), 10).selectSubDomain(UINT_MAX, 1);
    EXPECT_EQ(end.getOffset(), UINT_MAX); // does not wrap
    EXPECT_EQ(end.createGUID(UINT64_MAX), end.getBase());
}

struct GUIDDomainDBTest : testing::Test {
    GUIDDomainDBTest() : root(store.get()) { root.add("domain"); }

    SmartPointer<Store> store{new MemoryStore(true)};
    Item root;

    SmartPointer<GUIDDomainDB> make() { return kiv::makeObject<GUIDDomainDB>(root); }
    SmartPointer<GUIDDomainDB> make(const GUIDDomain& base, unsigned domainBits, unsigned personalBits) {
        auto db = make();
        db->initializeDomain(base, domainBits, personalBits);
        return db;
    }
    Item field(const char* name) {
        Item key(root);
        key.add(name);
        return key;
    }
    uint64_t counter(const char* name) {
        uint64_t value = UINT64_MAX;
        Item::Iterator it = field(name).fetch()->getIterator();
        EXPECT_TRUE(it.asInteger(value));
        return value;
    }
};

TEST_F(GUIDDomainDBTest, DomainsAreHandedOutInTurnAndTheFirstOnce) {
    const auto db = make(GUIDDomain(GUID(5, 0, 0, 0), 3), 2, 8);
    ASSERT_TRUE(db->hasDomain());
    for (const unsigned index : {0u, 1u, 2u, 3u, 1u, 2u, 3u, 1u}) {
        const GUIDDomain domain = db->generateDomain();
        EXPECT_EQ(domain.getOffset(), 5u);
        EXPECT_EQ(domain.getBase(), GUID(5 + index * 8, 0, 0, 0));
    }
    EXPECT_EQ(counter("domainIndex"), 2u);
    const auto single = make(GUIDDomain(GUID(1, 0, 0, 0), 3), 0, 8);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(single->generateDomain().getBase(), GUID(1, 0, 0, 0));
}

// The bits of an identifier that fixes `fixed` bits for its domain, as the definition puts them together.
Bits expectedIdentifier(const GUID& domain, unsigned fixed, unsigned personalBits, uint64_t number) {
    Bits bits = withNumber(bitsOf(domain), number, fixed);
    unsigned at = fixed + personalBits;
    for (; at < 192; at += 64) bits = withNumber(bits, kiv::Random::current().randomUInt64(), at);
    return withNumber(bits, kiv::Random::current().randomUInt64(), at);
}

TEST_F(GUIDDomainDBTest, IdentifiersAreDomainThenNumberThenRandom) {
    const GUID base(1, 0, 0, 0);
    const struct {
        unsigned offset, domainBits, personalBits;
    } shapes[] = {{1, 0, 0},  {3, 2, 2},     {40, 30, 10},  {64, 64, 64},
                  {1, 62, 1}, {100, 60, 32}, {100, 60, 96}, {1, 0, 255}};
    for (const auto& shape : shapes) {
        const auto db = make(GUIDDomain(base, shape.offset), shape.domainBits, shape.personalBits);
        for (uint64_t i = 0; i < 6; ++i) {
            Bits expected;
            {
                const kiv::SeededRandom draws(i);
                const uint64_t number = shape.personalBits < 3 ? i % (uint64_t{1} << shape.personalBits) : i;
                expected = expectedIdentifier(base, shape.offset + shape.domainBits, shape.personalBits, number);
            }
            const kiv::SeededRandom draws(i);
            ASSERT_EQ(bitsOf(db->generateGUID()), expected) << shape.offset << " identifier " << i;
        }
    }
}

TEST_F(GUIDDomainDBTest, CountsOnAfterARestart) {
    std::set<GUID> seen;
    make(GUIDDomain(GUID(), 0), 16, 240); // without random bits
    for (int run = 0; run < 5; ++run) {
        const auto db = make();
        ASSERT_TRUE(db->hasDomain());
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(seen.insert(db->generateGUID()).second);
        EXPECT_EQ(db->generateDomain().getBase().getWord(0), static_cast<uint64_t>(run));
    }
    EXPECT_TRUE(root.exists() && counter("personalIndex") == 15u);
}

TEST_F(GUIDDomainDBTest, DamagedRecordsAreNone) {
    const auto check = [&](const char* name, const Item& value) {
        make(GUIDDomain(GUID(1, 0, 0, 0), 100), 56, 100);
        ASSERT_TRUE(make()->hasDomain());
        value.empty() ? field(name).remove() : field(name).store(value);
        EXPECT_FALSE(make()->hasDomain()) << name << " " << value.asString();
    };
    for (const char* name : {"base.guid", "base.num", "domainBits", "personalBits", "domainIndex", "personalIndex"}) {
        check(name, Item());
        check(name, Item("text"));
        check(name, name == std::string("base.guid") ? Item(1) : Item(GUID()));
    }
    for (const char* name : {"base.num", "domainBits", "personalBits"}) {
        for (const long long bits : {-1ll, 101ll, 257ll, 0x100000000ll, LLONG_MIN, LLONG_MAX}) check(name, Item(bits));
    }
}

TEST_F(GUIDDomainDBTest, DamagedCountersStartAgain) {
    make(GUIDDomain(GUID(), 0), 4, 252);
    field("domainIndex").store(Item(-1));
    const auto db = make();
    EXPECT_EQ(db->generateDomain().getBase(), GUID(1, 0, 0, 0));
    EXPECT_EQ(db->generateDomain().getBase(), GUID(2, 0, 0, 0));

    make(GUIDDomain(GUID(), 0), 64, 64);
    field("domainIndex").store(Item(-1)); // the last of 2^64
    field("personalIndex").store(Item(-1));
    const auto wide = make();
    EXPECT_EQ(wide->generateDomain().getBase(), GUID(UINT64_MAX, 0, 0, 0));
    EXPECT_EQ(wide->generateDomain().getBase(), GUID(1, 0, 0, 0));
    EXPECT_EQ(wide->generateGUID().getWord(1), UINT64_MAX);
    EXPECT_EQ(wide->generateGUID().getWord(1), 0u);
}

TEST_F(GUIDDomainDBTest, WhatCanNotBeADomainIsRefused) {
    support::LogLines log;
    const auto db = make(GUIDDomain(GUID(), 100), 100, 57);
    EXPECT_FALSE(db->hasDomain());
    EXPECT_EQ(log.takeOne(), "GUID domain needs more than 256 bits");
    db->initializeDomain(GUIDDomain(GUID(), UINT_MAX), UINT_MAX, 2);
    EXPECT_FALSE(db->hasDomain());
    log.take();
    Item key;
    EXPECT_FALSE(store->first(key));
    EXPECT_EQ(db->generateDomain().getOffset(), 0u);
    EXPECT_EQ(log.takeOne(), "GUID domain is not initialized");
    EXPECT_NE(db->generateGUID(), db->generateGUID());
    EXPECT_FALSE(store->first(key));

    GUIDDomainDB unbound(Item("root"));
    unbound.initializeDomain(GUIDDomain(), 1, 1);
    EXPECT_FALSE(unbound.hasDomain());
    EXPECT_EQ(log.takeOne(), "GUID domain has no store");
}

TEST_F(GUIDDomainDBTest, TheInstalledOneGoesWithItself) {
    auto db = make();
    EXPECT_EQ(GUIDDomainDB::exchangeCurrent(db.get()), nullptr);
    make().reset();
    EXPECT_EQ(GUIDDomainDB::current(), db.get());
    db.reset();
    EXPECT_EQ(GUIDDomainDB::current(), nullptr);
}

} // namespace
