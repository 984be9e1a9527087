#include "Races.h"

#include <algorithm>
#include <array>

namespace {

// An array that is sorted before it is read, entry beside entry: what nothing that can be changed is likely to beat.
class SortedArray : public bench::Contestant {
public:
    using Form = bench::Bytes;
    using Key = Form::Key;
    static constexpr const char* name = "sorted-array-limit";

    void startReading() {
        std::sort(m_entries.begin(), m_entries.end(),
                  [](const Entry& a, const Entry& b) { return below(a.key, b.key); });
    }

    void set(const Key& key, std::string_view value) {
        Entry entry;
        entry.key = key;
        std::copy(value.begin(), value.end(), entry.value.begin());
        m_entries.push_back(entry);
    }

    uint64_t get(const Key& key) {
        const auto at = find(key);
        return at != m_entries.end() && at->key == key ? bench::head(at->value.data()) : 0;
    }

    uint64_t range(const Key& from, size_t count) {
        uint64_t sum = 0;
        for (auto at = find(from); count > 0 && at != m_entries.end(); ++at, --count) sum += heads(*at);
        return sum;
    }

    uint64_t scan() {
        uint64_t sum = 0;
        for (const Entry& entry : m_entries) sum += heads(entry);
        return sum;
    }

    template <class Visit>
    void walk(Visit visit) {
        for (const Entry& entry : m_entries) {
            visit(Form::view(entry.key), std::string_view(entry.value.data(), entry.value.size()));
        }
    }

private:
    struct Entry {
        Key key;
        std::array<char, bench::valueSize> value;
    };

    static bool below(const Key& a, const Key& b) { return std::memcmp(a.data(), b.data(), a.size()) < 0; }

    std::vector<Entry>::const_iterator find(const Key& key) const {
        return std::lower_bound(m_entries.begin(), m_entries.end(), key,
                                [](const Entry& entry, const Key& sought) { return below(entry.key, sought); });
    }
    static uint64_t heads(const Entry& entry) {
        return bench::head(entry.key.data()) + bench::head(entry.value.data());
    }

    std::vector<Entry> m_entries;
};

[[maybe_unused]] const bool added = (bench::addReading<SortedArray>(), true);

} // namespace
