// Hunts: fields that move when a scheme grows, padding at the wrong place, version tables that depend on where
// NextVersion() is called, declarations that corrupt the version suffix, names found in the wrong place.

#include "kiv/data/PacketScheme.h"
#include "kiv/data/PacketSchemeRegistry.h"
#include "tests/data/Packets.h"

#include <functional>
#include <gtest/gtest.h>

namespace kiv {
namespace {

// Declares whatever a test wants.
struct Scheme : PacketScheme {
    explicit Scheme(const std::function<void(Scheme&)>& declare) : PacketScheme(nextID(), "T", nullptr, "S") {
        declare(*this);
    }
    static short nextID() {
        static short last = 2000;
        return ++last;
    }
    using PacketScheme::addElement;
    using PacketScheme::Buffer;
    using PacketScheme::Cargo;
    using PacketScheme::Item;
    using PacketScheme::NextVersion;
    using PacketScheme::Number;
    using PacketScheme::Numbers;
    using PacketScheme::String;
    using PacketScheme::Table;

    std::string versions() const {
        std::string text;
        for (unsigned i = 0; i <= getMaxVersion(); ++i)
            text += std::to_string(getVersion(i).staticSize) + "/" + std::to_string(getVersion(i).dynamicArrays) + " ";
        return text;
    }
};

TEST(PacketScheme, FieldsAreAlignedToTheLowestBitOfTheirSizeAndAtMostEight) {
    const Scheme scheme([](Scheme& s) {
        s.Number<uint8_t>("a");
        s.addElement("twelve", 1u, 12, nullptr);
        s.Number<uint8_t>("b");
        s.addElement("twentyFour", 2u, 24, nullptr);
        s.Number<uint8_t>("c");
        s.Numbers<uint16_t>("counted", Scheme::UpTo(3));
        s.String("text", 3);
        s.Table();
    });
    const auto at = [&](const char* name, uint32_t offset, uint32_t mask) {
        const PacketElement* element = scheme.findElement(name);
        ASSERT_NE(element, nullptr) << name;
        EXPECT_EQ(element->offset, offset) << name;
        EXPECT_EQ(element->mask, mask) << name;
    };
    at("a", 0, 0);
    at("twelve", 4, 3);
    at("b", 16, 0);
    at("twentyFour", 24, 7);
    at("c", 72, 0);
    at("counted", 76, 1); // the count is four bytes, the values two
    at("text", 80, 0);
    at("id", 88, 7);
    EXPECT_EQ(scheme.versions(), "120/1 ");
    EXPECT_TRUE(scheme.hasTableKey());
}

TEST(PacketScheme, NextVersionGivesOneTableWhetherItStandsBehindOrBetweenVersions) {
    const Scheme between([](Scheme& s) {
        s.Number<uint32_t>("a");
        s.NextVersion();
        s.Buffer("b", Scheme::UpTo());
    });
    const Scheme behind([](Scheme& s) {
        s.Number<uint32_t>("a");
        s.NextVersion();
        s.NextVersion();
        s.Buffer("b", Scheme::UpTo());
        s.NextVersion();
    });
    const Scheme emptyFirst([](Scheme& s) {
        s.NextVersion();
        s.Number<uint8_t>("a");
    });
    EXPECT_EQ(between.versions(), "4/0 8/1 ");
    EXPECT_EQ(behind.versions(), between.versions());
    EXPECT_EQ(emptyFirst.versions(), "0/0 1/0 ");
    EXPECT_EQ(Scheme([](Scheme&) {}).versions(), "0/0 ");
}

TEST(PacketScheme, FullNameJoinsTheNamesThatAreNotEmpty) {
    const auto name = [](const char* a, const char* b, const char* c) {
        return PacketScheme(Scheme::nextID(), a, b, c).getFullName();
    };
    EXPECT_EQ(name("Camera", "Data", "Picture"), "Camera::Data::Picture");
    EXPECT_EQ(name(nullptr, "", "Picture"), "Picture");
    EXPECT_EQ(name("Camera", nullptr, "Picture"), "Camera::Picture");
    EXPECT_EQ(name(nullptr, nullptr, nullptr), "");
}

TEST(PacketScheme, WhatWouldCorruptTheWireFormIsLoggedAndLeftOut) {
    LogLines log;
    Scheme scheme([](Scheme&) {});
    const auto refused = [&](PacketField field, const std::string& why, const char* name) {
        EXPECT_FALSE(field);
        EXPECT_EQ(log.takeOne(), "PacketScheme::addElement: " + why + ", member=" + name + ", getFullName()=T::S");
    };
    EXPECT_TRUE(scheme.Number<uint8_t>("a"));
    refused(scheme.Number<uint32_t>("a"), "member exists already", "a");
    refused(scheme.Buffer("b", 0xFFFFFF), "static part too large", "b");
    refused(scheme.addElement("b", 0x10000001u, 16, nullptr), "static part too large", "b"); // 16 in 32 bits
    refused(scheme.addElement("b", 1u, 0, nullptr), "bad element size", "b");
    refused(scheme.addElement("b", 1u, 2, &typeid(int)), "element size is not that of the type", "b");
    refused(scheme.String("b", 4, "four"), "default value too long", "b");
    EXPECT_EQ(scheme.versions(), "1/0 ");
    EXPECT_TRUE(scheme.Buffer("b", 0xFFFFFE));
    EXPECT_EQ(scheme.versions(), "16777215/0 ");

    Scheme versions([](Scheme&) {});
    for (int i = 0; i < 256; ++i) {
        EXPECT_TRUE(versions.Number<uint8_t>(std::to_string(i).c_str()));
        versions.NextVersion();
    }
    refused(versions.Number<uint8_t>("x"), "too many versions", "x");
    EXPECT_EQ(versions.getMaxVersion(), 255u);
}

TEST(PacketScheme, CargoBesideVersionsIsWarnedOfOnceInEitherOrder) {
    LogLines log;
    const std::string warning = "packet scheme with cargo has versions, later members are not transmitted, "
                                "getFullName()=T::S";
    const Scheme cargoFirst([](Scheme& s) {
        s.Cargo(8);
        s.Number<uint8_t>("a");
        s.NextVersion();
        s.Number<uint8_t>("b");
        s.NextVersion();
        s.Number<uint8_t>("c");
    });
    EXPECT_EQ(log.takeOne(), warning);
    const Scheme cargoLast([](Scheme& s) {
        s.Number<uint8_t>("a");
        s.NextVersion();
        s.Number<uint8_t>("b");
        s.Cargo(8);
    });
    EXPECT_EQ(log.takeOne(), warning);
}

TEST(PacketScheme, EveryNameIsFoundAndNoOther) {
    Scheme scheme([](Scheme&) {});
    std::string name;
    for (int i = 0; i < 300; ++i) {
        name = std::string(static_cast<size_t>(i % 19), 'x') + std::to_string(i);
        const PacketField declared = scheme.Number<uint8_t>(name.c_str());
        name += "zzzzz"; // the scheme keeps names of its own
        EXPECT_TRUE(declared);
    }
    for (const PacketElement& element : scheme.getElements()) {
        EXPECT_EQ(scheme.findElement(element.name.view()), &element);
        EXPECT_EQ(scheme.field(element.name).getElement(), &element);
        EXPECT_FALSE(scheme.field(element.name + "x"));
    }
    EXPECT_FALSE(scheme.field(""));
}

TEST(PacketScheme, TheRegistryKeepsTheFirstOfAnIdUntilItGoes) {
    LogLines log;
    EXPECT_EQ(PacketSchemeRegistry::find(-32768), nullptr);
    {
        const PacketScheme first(-32768, "A", nullptr, nullptr);
        {
            const PacketScheme second(-32768, "B", nullptr, nullptr);
            EXPECT_EQ(log.takeOne(), "packet scheme not registered, id in use, id=-32768, getFullName()=B");
            EXPECT_EQ(PacketSchemeRegistry::find(-32768), &first);
        }
        EXPECT_EQ(PacketSchemeRegistry::find(-32768), &first);
    }
    EXPECT_EQ(PacketSchemeRegistry::find(-32768), nullptr);
}

} // namespace
} // namespace kiv
