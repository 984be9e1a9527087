// The script class kiv.Rect.

#include "kiv/script/classes/ValueClass.h"

#include <stdexcept>

namespace kivSq {
namespace {

using internal::Int32;
using kiv::Rect;

constexpr const char* keys[] = {"x", "y", "width", "height"};

// A rectangle, or a point as the one of its pixel.
struct Area {
    Rect rect;
};

template <int32_t Rect::*edge>
int32_t getEdge(const Rect& rect) {
    return rect.*edge;
}

template <int32_t Rect::*edge>
void setEdge(Rect& rect, Int32 value) {
    rect.*edge = value;
}

Rect::Point clamped(const Rect& rect, const Rect::Point& point) {
    if (rect.isEmpty()) throw std::domain_error("the rectangle is empty");
    return rect.clamped(point);
}

const char* nextKey(const Rect&, const Object& previous) {
    return internal::keyBehind(keys, previous);
}

} // namespace

template <>
struct Access<Area> {
    static bool get(SQVM* v, int64_t index, Area& out) {
        if (Access<Rect>::get(v, index, out.rect)) return true;
        Rect::Point point;
        if (!Access<Rect::Point>::get(v, index, point)) return false;
        out.rect = Rect(point, {1, 1});
        return true;
    }
    static const char* name() { return "Rect or IVec2 of 32-bit integers"; }
};

bool Access<Rect>::get(SQVM* v, int64_t index, Rect& out) {
    return internal::getCopy(v, index, out);
}

bool Access<Rect>::push(SQVM* v, const Rect& value) {
    return internal::pushBound<&internal::bindRect>(v, value);
}

void internal::bindRect(const Object& table) {
    if (AdapterData::of<Rect>().isInitialized()) return;
    using Point = Rect::Point;
    Class<Rect> rect(table, "Rect",
                     Constructor<void(), void(const Point&, const Point&), void(Int32, Int32, Int32, Int32)>());
    addValueMethods(rect);
    rect.staticMethod("fromEdges", &Rect::fromEdges)
        .method("isEmpty", &Rect::isEmpty)
        .method("getPosition", &Rect::getPosition)
        .method("getSize", &Rect::getSize)
        .method("getRight", &Rect::getRight)
        .method("getBottom", &Rect::getBottom)
        .method("getArea", &Rect::getArea)
        .method("getCenter", &Rect::getCenter)
        .method(
            "contains", +[](const Rect& a, const Area& b) { return a.contains(b.rect); })
        .method("intersects", &Rect::intersects)
        .method("intersected", &Rect::intersected)
        .method("united", &Rect::united)
        .method("translated", &Rect::translated)
        .method("expanded", &Rect::expanded)
        .method("clamped", &clamped)
        .method("_nexti", &nextKey)
        .property("x", &getEdge<&Rect::x>, &setEdge<&Rect::x>)
        .property("y", &getEdge<&Rect::y>, &setEdge<&Rect::y>)
        .property("width", &getEdge<&Rect::width>, &setEdge<&Rect::width>)
        .property("height", &getEdge<&Rect::height>, &setEdge<&Rect::height>);
}

} // namespace kivSq
