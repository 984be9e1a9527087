#pragma once

#include "kiv/data/Item.h"

#include <cmath>
#include <cstring>
#include <string>

namespace support {

inline int sign(int value) {
    return value < 0 ? -1 : value > 0 ? 1 : 0;
}

// The order as it is defined: both sides element by element from the start, nested items by recursion.
class ItemReference {
public:
    explicit ItemReference(bool total) : m_total(total) {}

    int compare(const kiv::Item& a, const kiv::Item& b) const {
        auto i = a.getIterator(), j = b.getIterator();
        for (;;) {
            const int x = code(i), y = code(j);
            if (!m_total && (x == 254 || y == 254)) {
                i.skip();
                j.skip();
                continue;
            }
            if (x != y) return x < y ? -1 : 1;
            if (x == 0) return bytes(rest(a, i), rest(b, j));
            if (const int order = element(x, i, j); order != 0) return order;
            i.skip();
            j.skip();
        }
    }

private:
    static int code(kiv::Item::Iterator it) {
        const int type = static_cast<int>(it.getType());
        return type >= 6 && type <= 8 ? 1 : type;
    }
    static std::string rest(const kiv::Item& item, kiv::Item::Iterator it) {
        const auto* from = reinterpret_cast<const char*>(item.getPlainBytePointer());
        return {from + it.getOffset(), from + item.getPlainSize()};
    }
    static int bytes(const std::string& a, const std::string& b) { return sign(a.compare(b)); }
    int element(int type, kiv::Item::Iterator i, kiv::Item::Iterator j) const {
        long long m = 0, n = 0;
        double x = 0, y = 0;
        kiv::Item p, q;
        kiv::GUID g, h;
        if (i.asInteger(m) && j.asInteger(n)) return m < n ? -1 : m > n;
        if (i.asFloat(x) && j.asFloat(y)) {
            if (m_total && (std::isnan(x) || std::isnan(y))) return std::isnan(x) - std::isnan(y);
            return x < y ? -1 : x > y;
        }
        if (i.asSubItem(p) && j.asSubItem(q)) return compare(p, q);
        if (i.asGUID(g) && j.asGUID(h)) return g < h ? -1 : g > h;
        const char* s = i.asWeakCStr();
        const char* t = j.asWeakCStr();
        if (s && t) return sign(std::strcmp(s, t));
        kiv::ConstByteSpan a, b;
        if (!i.asWeakBytes(static_cast<kiv::ValueType>(type), a) ||
            !j.asWeakBytes(static_cast<kiv::ValueType>(type), b))
            return 0;
        return bytes({a.begin(), a.end()}, {b.begin(), b.end()});
    }
    const bool m_total;
};

} // namespace support
