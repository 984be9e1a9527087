// The script classes kiv.IVec2 and kiv.IVec3.

#include "kiv/script/classes/ValueClass.h"

#include <fmt/format.h>

#include <stdexcept>

namespace kivSq {
namespace {

using kiv::IVec2;
using kiv::IVec3;
using Vec2 = IVec2<int64_t>;
using Vec3 = IVec3<int64_t>;

constexpr const char* keys[] = {"x", "y", "z"};

// The right side of an operator; an integer stands for a vector of nothing else.
template <class V>
struct Operand {
    V value;
};

} // namespace

template <class V>
struct Access<Operand<V>> {
    static bool get(SQVM* v, int64_t index, Operand<V>& out) {
        if (sq_gettype(v, index) != OT_INTEGER) return Access<V>::get(v, index, out.value);
        SQInteger number = 0;
        sq_getinteger(v, index, &number);
        out.value = V::filled(number);
        return true;
    }
    static const char* name() {
        static const std::string text = std::string(V::getStaticClassName()) + " or integer";
        return text.c_str();
    }
};

namespace {

template <class V>
V divided(const V& a, const Operand<V>& by) {
    const V isZero = V::zip([](int64_t c) { return int64_t{c == 0}; }, by.value);
    if (!isZero.isZero()) throw std::domain_error("division by zero");
    const V isTooLarge = V::zip([](int64_t c, int64_t d) { return int64_t{c == INT64_MIN && d == -1}; }, a, by.value);
    if (!isTooLarge.isZero()) throw std::overflow_error("integer overflow");
    return a / by.value;
}

template <class V>
V clamped(const V& a, const V& low, const V& high) {
    if (low.min(high) != low) throw std::domain_error("the lower limit is above the upper");
    return a.clamp(low, high);
}

const char* keyOfVec2(const Vec2&, const Object& previous) {
    return internal::keyBehind({keys[0], keys[1]}, previous);
}

const char* keyOfVec3(const Vec3&, const Object& previous) {
    return internal::keyBehind(keys, previous);
}

template <class V>
void addVectorMethods(Class<V>& vector) {
    internal::addValueMethods(vector);
    vector.staticMethod("filled", &V::filled)
        .method("isZero", &V::isZero)
        .method("dot", &V::dot)
        .method("squaredLength", &V::squaredLength)
        .method("length", &V::length)
        .method("minComponent", &V::minComponent)
        .method("maxComponent", &V::maxComponent)
        .method("product", &V::product)
        .method("min", &V::min)
        .method("max", &V::max)
        .method("clamp", &clamped<V>)
        .method("abs", &V::abs)
        .method("_cmp", &internal::compareValues<V>)
        .method(
            "_add", +[](const V& a, const Operand<V>& b) { return a + b.value; })
        .method(
            "_sub", +[](const V& a, const Operand<V>& b) { return a - b.value; })
        .method(
            "_mul", +[](const V& a, const Operand<V>& b) { return a * b.value; })
        .method("_div", &divided<V>)
        .method(
            "_unm", +[](const V& a) { return -a; });
}

} // namespace

namespace internal {

bool refuseVector(SQVM* v, const char* className, const std::string& value) {
    sq_throwerror(v, fmt::format("{} has no integers for {}", className, value).c_str());
    return false;
}

template <class Wide>
bool getWide(SQVM* v, int64_t index, Wide& out) {
    return getCopy(v, index, out);
}
template KIV_API bool getWide(SQVM* v, int64_t index, Vec2& out);
template KIV_API bool getWide(SQVM* v, int64_t index, Vec3& out);

template <>
KIV_API bool pushWide(SQVM* v, const Vec2& value) {
    return pushBound<&bindIVec2>(v, value);
}
template <>
KIV_API bool pushWide(SQVM* v, const Vec3& value) {
    return pushBound<&bindIVec3>(v, value);
}

void bindIVec2(const Object& table) {
    if (AdapterData::of<Vec2>().isInitialized()) return;
    Class<Vec2> vector(table, "IVec2", Constructor<void(), void(int64_t, int64_t)>());
    addVectorMethods(vector);
    vector.method("_nexti", &keyOfVec2).member("x", &Vec2::x).member("y", &Vec2::y);
}

void bindIVec3(const Object& table) {
    if (AdapterData::of<Vec3>().isInitialized()) return;
    Class<Vec3> vector(table, "IVec3",
                       Constructor<void(), void(const Vec2&, int64_t), void(int64_t, int64_t, int64_t)>());
    addVectorMethods(vector);
    vector.method("xy", &Vec3::xy)
        .method("cross", &Vec3::cross)
        .method("_nexti", &keyOfVec3)
        .member("x", &Vec3::x)
        .member("y", &Vec3::y)
        .member("z", &Vec3::z);
}

} // namespace internal
} // namespace kivSq
