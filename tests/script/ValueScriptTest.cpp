#include "kiv/core/Clock.h"
#include "kiv/core/Version.h"
#include "kiv/files/ResourceLocator.h"
#include "kiv/script/Class.h"
#include "tests/script/ScriptValues.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

// The conversions of values between scripts and native classes; what scripts do with them is tested by the manual.

namespace {

using kiv::GregorianDate;
using kiv::IVec2;
using kiv::IVec3;
using kiv::Rect;

struct Slice {
    IVec2<int8_t> small{1, -2};
    IVec2<uint32_t> size{4, 5};
    IVec2<uint64_t> huge{1, UINT64_MAX};
    IVec3<double> spacing{1, 2, 3};
    IVec3<float> origin{1, 0.5F, 0};
    Rect area{1, 2, 3, 4};
    GregorianDate taken{2024, 2, 29};
};

class ValueScriptTest : public testing::Test, protected ScriptValues {
protected:
    ValueScriptTest() {
        kivSq::Class<Slice>(vm.getNamespace("t"), "Slice", kivSq::Constructor<void()>())
            .member("small", &Slice::small)
            .member("size", &Slice::size)
            .member("huge", &Slice::huge)
            .member("spacing", &Slice::spacing)
            .member("origin", &Slice::origin)
            .member("area", &Slice::area)
            .member("taken", &Slice::taken);
    }

    // The value of an expression as its tostring() gives it, with a slice `s`.
    std::string eval(const std::string& expression) {
        return ScriptValues::eval("(@(s) \"\" + (" + expression + "))(t.Slice())");
    }
};

TEST_F(ValueScriptTest, NativeValuesBringTheirClasses) {
    EXPECT_EQ(eval("s.small"), "(1, -2)");
    EXPECT_EQ(eval("s.spacing"), "(1, 2, 3)");
    EXPECT_EQ(eval("s.area.getSize()"), "(3, 4)");
    EXPECT_EQ(eval("s.taken"), "2024-02-29T00:00:00.000Z");
    // Importing them afterwards leaves the class as it is.
    EXPECT_EQ(eval("(import(\"kiv.IVec2\"), s.small + kiv.IVec2(1, 1))"), "(2, -1)");
    EXPECT_EQ(kivSq::Object::from(IVec3<uint8_t>(1, 2, 255)).get("z").describe(), "255");
}

TEST_F(ValueScriptTest, ComponentsAreConvertedExactlyOrNotAtAll) {
    eval("(import(\"kiv.IVec2\"), import(\"kiv.IVec3\"))");
    EXPECT_EQ(eval("s.small = kiv.IVec2(-128, 127)"), "(-128, 127)");
    EXPECT_EQ(eval("s.small = kiv.IVec2(0, 128)"), "error: value: expected IVec2 of 8-bit integers, got IVec2");
    EXPECT_EQ(eval("s.size = kiv.IVec2(4294967295, 0)"), "(4294967295, 0)");
    EXPECT_EQ(eval("s.size = kiv.IVec2(-1, 0)"), "error: value: expected IVec2 of unsigned 32-bit integers, got IVec2");
    EXPECT_EQ(eval("s.huge"), "error: IVec2 has no integers for (1, 18446744073709551615)");
    EXPECT_EQ(eval("s.huge = kiv.IVec2(0, -1)"), "error: value: expected IVec2 of unsigned 64-bit integers, got IVec2");
    EXPECT_EQ(eval("s.origin"), "error: IVec3 has no integers for (1, 0.5, 0)");
    EXPECT_EQ(eval("(s.origin = kiv.IVec3(7, 8, 9), s.origin)"), "(7, 8, 9)");
    EXPECT_EQ(eval("s.origin = kiv.IVec2(7, 8)"), "error: value: expected IVec3, got IVec2");
    EXPECT_EQ(eval("s.area = s.small"), "error: value: expected Rect, got IVec2");
    kiv::IVec2<double> limit;
    EXPECT_FALSE(kivSq::Object::from(IVec2<double>(0x1p63, 0)).to(limit));
    EXPECT_TRUE(kivSq::Object::from(IVec2<double>(-0x1p63, 0)).to(limit));
}

TEST_F(ValueScriptTest, SystemAsksTheInstalledServices) {
    eval("import(\"kiv.System\")");
    const kiv::ManualClock clock(0x100000005, 77);
    EXPECT_EQ(eval("kiv.System.getTime()"), "5");
    EXPECT_EQ(eval("kiv.System.getTime64()"), "4294967301");
    EXPECT_EQ(eval("kiv.System.getUTC()"), "77");
    EXPECT_EQ(eval("kiv.System.getVersion()"), kiv::getVersion());

    const support::TemporaryFolder folder;
    folder.write("resource", "abc");
    const std::string add = "kiv.System.addResourceDirectory(@\"" + folder.utf8("") + "\")";
    EXPECT_EQ(eval(add), "false");
    {
        const auto locator = kiv::makeObject<kiv::ResourceLocator>();
        EXPECT_EQ(eval(add), "true");
        EXPECT_EQ(eval("kiv.System.fetchResource(\"resource\").len()"), "3");
        EXPECT_EQ(eval("kiv.System.fetchResource(\"../resource\") == null"), "true");
    }
    EXPECT_EQ(eval(add), "false");
}

} // namespace
