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
    using PacketScheme::addElement, PacketScheme::Buffer, PacketScheme::Cargo, PacketScheme::NextVersion;
    using PacketScheme::Number, PacketScheme::Numbers, PacketScheme::String, PacketScheme::Table;

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
    std::string layout;
    for (const PacketElement& element : scheme.getElements())
        layout +=
            std::string(element.name) + "@" + std::to_string(element.offset) + "/" + std::to_string(element.mask) + " ";
    // Of counted arrays the count is aligned, which is four bytes; the mask is that of the values.
    EXPECT_EQ(layout, "a@0/0 twelve@4/3 b@16/0 twentyFour@24/7 c@72/0 counted@76/1 text@80/0 id@88/7 ");
    EXPECT_EQ(scheme.versions(), "120/1 ");
    EXPECT_TRUE(scheme.hasTableKey());
    const auto name = [](const char* a, const char* b, const char* c) {
        return PacketScheme(Scheme::nextID(), a, b, c).getFullName();
    };
    EXPECT_EQ(name("Camera", "Data", "Picture"), "Camera::Data::Picture");
    EXPECT_EQ(name("Camera", nullptr, "Picture") + name(nullptr, "", "x") + name(nullptr, nullptr, nullptr),
              "Camera::Picturex");
}

TEST(PacketScheme, NextVersionGivesOneTableWhetherItStandsBehindOrBetweenVersions) {
    // n is NextVersion(), 4 and 1 are fields of that size, x is one of any size.
    const auto versions = [](const std::string& steps) {
        const Scheme scheme([&](Scheme& s) {
            for (const char step : steps) {
                if (step == 'n') s.NextVersion();
                if (step == '4') s.Number<uint32_t>("a");
                if (step == '1') s.Number<uint8_t>("a");
                if (step == 'x') s.Buffer("b", Scheme::UpTo());
            }
        });
        return scheme.versions();
    };
    EXPECT_EQ(versions("4nx"), "4/0 8/1 ");
    EXPECT_EQ(versions("4nnxn"), "4/0 8/1 ");
    EXPECT_EQ(versions("n1"), "0/0 1/0 ");
    EXPECT_EQ(versions(""), "0/0 ");
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
    for (const bool cargoFirst : {true, false}) {
        const Scheme scheme([=](Scheme& s) {
            if (cargoFirst) s.Cargo(8);
            for (const char* name : {"a", "b", "c"}) s.Number<uint8_t>(name), s.NextVersion();
            if (!cargoFirst) s.Cargo(8);
        });
        EXPECT_EQ(log.takeOne(), "packet scheme with cargo has versions, later members are not transmitted, "
                                 "getFullName()=T::S");
    }
}

TEST(PacketScheme, EveryNameIsFoundAndNoOther) {
    Scheme scheme([](Scheme&) {});
    std::string name;
    for (int i = 0; i < 300; ++i) {
        name = std::string(static_cast<size_t>(i % 19), 'x') + std::to_string(i);
        EXPECT_TRUE(scheme.Number<uint8_t>(name.c_str()));
        name += "zzzzz"; // the scheme keeps names of its own
    }
    for (const PacketElement& element : scheme.getElements()) {
        EXPECT_EQ(scheme.findElement(element.name.view()), &element);
        EXPECT_TRUE(scheme.field(element.name).getElement() == &element && !scheme.field(element.name + "x"));
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
