// Hunts: contexts that share one answer, returned pointers that move or alias the caller's text, absent translations
// taken for present ones, a source called under the cache's lock.
#include "kiv/core/Translation.h"

#include "kiv/core/Object.h"
#include "kiv/core/String.h"
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kiv {
namespace {

// Knows "dog" in no context and "bank" in two; counts its calls.
class Translation : public testing::Test {
protected:
    Translation() {
        setTranslationSource([this](const char* context, const char* text, std::string& translation) {
            ++asked;
            const std::string question = std::string(context) + '/' + text;
            if (question == "/dog") return translation = "Hund", true;
            if (question == "river/bank") return translation = "Ufer", true;
            if (question == "money/bank") return translation = "Bank", true;
            if (question == "/nested") return translation = Object::tr("dog"), true;
            return false;
        });
    }
    ~Translation() override {
        setTranslationSource(nullptr);
        Object::clearTrCache();
    }
    std::atomic<int> asked = 0;
};

TEST_F(Translation, DependsOnTheContext) {
    const auto is = [](const char* context, const char* text, const char* translation) {
        EXPECT_STREQ(Object::tr(context, text), translation);
    };
    is("", "dog", "Hund"), is(nullptr, "dog", "Hund"), is("river", "dog", "dog"), is("", "nested", "Hund");
    is("river", "bank", "Ufer"), is("money", "bank", "Bank"), is("", "bank", "bank"), is("", "riverbank", "riverbank");
    EXPECT_STREQ(Object::tr("dog"), "Hund");
    EXPECT_STREQ(Object::tr(nullptr), "");
}

TEST_F(Translation, IsAskedForOnceAndStaysInPlaceUntilTheCacheIsCleared) {
    std::string text = "unknown";
    const char* unknown = Object::tr(text.c_str());
    const char* dog = Object::tr("dog");
    EXPECT_NE(unknown, text.c_str());
    text = "changed";
    for (int i = 0; i < 1000; ++i) Object::tr(std::to_string(i).c_str());
    asked = 0;
    EXPECT_TRUE(Object::tr("unknown") == unknown && Object::tr("dog") == dog);
    EXPECT_STREQ(unknown, "unknown");
    EXPECT_EQ(asked, 0);
    Object::clearTrCache();
    EXPECT_STREQ(Object::tr("dog"), "Hund");
    EXPECT_EQ(asked, 1);
}

TEST_F(Translation, FallsBackWhereThereIsNone) {
    EXPECT_EQ(Object::tr_l("river", "bank", "fallback") + Object::tr_l(nullptr, "dog", "fallback"), "UferHund");
    EXPECT_EQ(Object::tr_l("", "bank", "fallback") + Object::tr_l("", "bank", nullptr), "fallback");
    EXPECT_EQ(Object::tr_l("money", "unknown"), "unknown");
    EXPECT_TRUE(Object::isTrValid("dog") && !Object::isTrValid("bank") && !Object::isTrValid(nullptr));
    EXPECT_EQ(String("bank").apply_tr("river") + String("bank").apply_tr(), "Uferbank");
    setTranslationSource(nullptr);
    Object::clearTrCache();
    EXPECT_FALSE(Object::isTrValid("dog"));
}

TEST_F(Translation, AnswersOlderThanAClearingAreNotKept) {
    const char* language = "old";
    setTranslationSource([&](const char*, const char*, std::string& translation) {
        translation = language;
        // As if another thread changed the language just now.
        if (std::exchange(language, "new") != std::string("new")) Object::clearTrCache();
        return true;
    });
    EXPECT_STREQ(Object::tr("dog"), "new");
}

TEST_F(Translation, CopiesAreSafeWhileOthersClearTheCache) {
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 300; ++n) {
                if (i == 0) Object::clearTrCache();
                if (Object::tr_l("river", "bank") != "Ufer") ++wrong;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

} // namespace
} // namespace kiv
