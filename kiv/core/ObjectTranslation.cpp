#include "kiv/core/Object.h"
#include "kiv/core/String.h"
#include "kiv/core/Translation.h"
#include <memory>
#include <mutex>
#include <unordered_map>

namespace kiv {
namespace {

struct Answer {
    std::string text; // the translation, or a copy of the text that has none
    bool isTranslated = false;
};

// Answers stay where they are while others come and go, so that pointers into them can be handed out.
struct Cache {
    std::mutex mutex;
    std::shared_ptr<const TranslationSource> source;
    std::unordered_map<std::string, Answer> answers;
    unsigned clearings = 0;
};

// Never destroyed: translated texts are in use until the process ends.
Cache& cache() {
    static Cache& instance = *new Cache;
    return instance;
}

const char* orEmpty(const char* text) {
    return text ? text : "";
}

Answer askSource(const TranslationSource* source, const char* context, const char* text) {
    Answer answer;
    answer.isTranslated = source && *source && (*source)(context, text, answer.text);
    if (!answer.isTranslated) answer.text = text;
    return answer;
}

// Calls `use` with the answer under the cache's lock and returns its result.
template <class Use>
auto withAnswer(const char* context, const char* text, Use use) {
    constexpr char separator = '\4';
    std::string key = context;
    key += separator;
    key += text;
    std::unique_lock lock(cache().mutex);
    for (;;) {
        const auto known = cache().answers.find(key);
        if (known != cache().answers.end()) return use(known->second);
        const unsigned clearings = cache().clearings;
        const auto source = cache().source;
        lock.unlock();
        Answer answer = askSource(source.get(), context, text);
        lock.lock();
        // An answer that is older than a clearing would outlive the change that the cache was cleared for.
        if (clearings == cache().clearings) cache().answers.try_emplace(key, std::move(answer));
    }
}

} // namespace

void setTranslationSource(TranslationSource source) {
    auto shared = std::make_shared<const TranslationSource>(std::move(source));
    const std::lock_guard lock(cache().mutex);
    cache().source.swap(shared);
}

const char* Object::tr(const char* text) {
    return tr("", text);
}

const char* Object::tr(const char* context, const char* text) {
    return withAnswer(orEmpty(context), orEmpty(text), [](const Answer& answer) { return answer.text.c_str(); });
}

bool Object::isTrValid(const char* text) {
    return withAnswer("", orEmpty(text), [](const Answer& answer) { return answer.isTranslated; });
}

void Object::clearTrCache() {
    decltype(Cache::answers) forgotten;
    const std::lock_guard lock(cache().mutex);
    forgotten.swap(cache().answers);
    ++cache().clearings;
}

String Object::tr_l(const char* context, const char* text, const char* fallback) {
    return withAnswer(orEmpty(context), orEmpty(text), [&](const Answer& answer) {
        return answer.isTranslated ? String(answer.text) : String(fallback);
    });
}

// A copy under the lock: the pointer tr() returns may go with a clearTrCache() on another thread.
String Object::tr_l(const char* context, const char* text) {
    return withAnswer(orEmpty(context), orEmpty(text), [](const Answer& answer) { return String(answer.text); });
}

} // namespace kiv
