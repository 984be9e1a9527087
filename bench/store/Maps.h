#pragma once

#include "Races.h"

#include <optional>
#include <utility>
#include <vector>

namespace bench {

// A map from the standard library, or one like it. What transactions need it gets by hand: a list of the values that
// were replaced, which a commit appends to the list of the outer transaction.
template <class FormOfMap, class Map>
class MapContestant : public Contestant {
public:
    using Form = FormOfMap;
    using Key = typename Form::Key;
    using Value = typename Form::Value;

    void set(const Key& key, const Value& value) {
        if (m_log.empty()) {
            m_map.insert_or_assign(typename Map::key_type(Form::probe(key)), value);
            return;
        }
        const auto at = m_map.find(Form::probe(key));
        if (at == m_map.end()) {
            m_log.back().push_back({typename Map::key_type(Form::probe(key)), std::nullopt});
            m_map.emplace(Form::probe(key), value);
        } else {
            m_log.back().push_back({at->first, std::move(at->second)});
            at->second = value;
        }
    }

    uint64_t get(const Key& key) {
        const auto at = m_map.find(Form::probe(key));
        return at == m_map.end() ? 0 : head(bytes(at->second));
    }

    uint64_t range(const Key& from, size_t count) {
        uint64_t sum = 0;
        for (auto at = m_map.lower_bound(Form::probe(from)); count > 0 && at != m_map.end(); ++at, --count)
            sum += heads(*at);
        return sum;
    }

    uint64_t scan() {
        uint64_t sum = 0;
        for (const auto& entry : m_map) sum += heads(entry);
        return sum;
    }

    template <class Visit>
    void walk(Visit visit) {
        for (const auto& [key, value] : m_map) visit(Form::view(key), Form::view(value));
    }

    void erase(const Key& from, const Key& to) {
        m_map.erase(m_map.lower_bound(Form::probe(from)), m_map.upper_bound(Form::probe(to)));
    }

    void begin() { m_log.emplace_back(); }
    void commit() {
        Log inner = std::move(m_log.back());
        m_log.pop_back();
        if (m_log.empty()) return;
        for (auto& change : inner) m_log.back().push_back(std::move(change));
    }
    void rollback() {
        Log inner = std::move(m_log.back());
        m_log.pop_back();
        for (auto change = inner.rbegin(); change != inner.rend(); ++change) {
            if (change->second) {
                m_map.find(change->first)->second = std::move(*change->second);
            } else {
                m_map.erase(change->first);
            }
        }
    }

private:
    using Log = std::vector<std::pair<typename Map::key_type, std::optional<typename Map::mapped_type>>>;

    static const void* bytes(const typename Map::mapped_type& value) { return Form::view(value).data(); }
    static uint64_t heads(const typename Map::value_type& entry) {
        return head(Form::view(entry.first).data()) + head(Form::view(entry.second).data());
    }

    Map m_map;
    std::vector<Log> m_log; // one per open transaction
};

} // namespace bench
