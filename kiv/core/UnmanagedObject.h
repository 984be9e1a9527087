#pragma once

#include "kiv/core/Object.h"

namespace kiv {

// An Object that smart pointers never delete: for objects on the stack, in static storage or inside other objects.
// Only the default constructor takes the reference that is never released. A copied or moved one starts at 0 like any
// Object and is therefore deleted by its last SmartPointer: wrap such a copy only when it came from new.
class KIV_API UnmanagedObject : public Object {
    KIV_OBJECT(UnmanagedObject, Object)

public:
    UnmanagedObject() { disableSmartPointers(); }
    UnmanagedObject(const UnmanagedObject& other) : Object(other) {}
    UnmanagedObject(UnmanagedObject&& other) : Object(other) {}
    UnmanagedObject& operator=(const UnmanagedObject&) = default;
    UnmanagedObject& operator=(UnmanagedObject&&) = default;
    ~UnmanagedObject() override;
};

} // namespace kiv
