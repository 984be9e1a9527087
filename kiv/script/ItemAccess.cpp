// Items and script values. Both walks keep their place in a stack of their own, so that a few slots of the engine's do:
// a container that is made is entered into the one around it at once, which keeps it, and every container that is read
// is kept by the one around it, for no script runs meanwhile.

#include "kiv/core/Buffer.h"
#include "kiv/data/Item.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/Access.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/TypeName.h"
#include "kiv/script/VM.h"

#include <cstring>

namespace kivSq {
namespace {

using internal::handleAt;
using kiv::GUID;
using kiv::Item;
using kiv::Trust;
using kiv::ValueType;
using kiv::internal::loadUnaligned;
using kiv::internal::storeUnaligned;

constexpr const char* tooDeep = "nested deeper than 128 levels";
constexpr const char* tablePrefix = "table";
constexpr const char* codePrefix = "squirrel";

bool isContainer(SQObjectType type) {
    return type == OT_TABLE || type == OT_ARRAY;
}

// ---- Script values into items.

class ValueWriter {
public:
    ValueWriter(SQVM* v, Item& out) : m_vm(v), m_out(out), m_start(out.getPlainSize()) {}
    ValueWriter(const ValueWriter&) = delete;
    ValueWriter& operator=(const ValueWriter&) = delete;
    ~ValueWriter() {
        if (!m_isDone) m_out.resizePlain(m_start);
    }

    bool write(SQInteger index) {
        const HSQOBJECT value = handleAt(m_vm, index);
        if (isContainer(value._type)) {
            m_isDone = open(value) && writeContainers();
        } else {
            writeElement(value, index);
            m_isDone = true;
        }
        return m_isDone;
    }

private:
    struct Frame {
        HSQOBJECT container;
        SQInteger position; // of the engine's iteration; -1 before the first
        unsigned head;      // where the length of the nested item is
        HSQOBJECT value;    // beside a key that is a container
        bool hasValue;
    };

    // The containers one by one: the innermost and its iterator are on the engine's stack.
    bool writeContainers() {
        while (m_depth > 0) {
            Frame& frame = m_frames[m_depth - 1];
            if (frame.hasValue) {
                frame.hasValue = false;
                sq_pushobject(m_vm, frame.value);
                const bool isGood = writeValue();
                sq_poptop(m_vm);
                if (!isGood) return false;
            } else if (!(frame.container._type == OT_TABLE ? writePairs(frame) : writeElements(frame))) {
                return false;
            }
        }
        return true;
    }

    // These go on up to the end of the container, or to one that is opened in it.
    bool writeElements(Frame& frame) {
        const unsigned depth = m_depth;
        sq_pushobject(m_vm, frame.container);
        const SQInteger size = sq_getsize(m_vm, -1);
        bool isGood = true;
        while (isGood && m_depth == depth && ++frame.position < size) {
            sq_pushinteger(m_vm, frame.position);
            sq_rawget(m_vm, -2);
            isGood = writeValue();
            sq_poptop(m_vm);
        }
        sq_poptop(m_vm);
        if (isGood && m_depth == depth) close(frame);
        return isGood;
    }
    bool writePairs(Frame& frame) {
        const unsigned depth = m_depth;
        sq_pushobject(m_vm, frame.container);
        if (frame.position < 0) {
            sq_pushnull(m_vm);
        } else {
            sq_pushinteger(m_vm, frame.position);
        }
        bool isGood = true;
        while (isGood && m_depth == depth && SQ_SUCCEEDED(sq_next(m_vm, -2))) {
            isGood = writeKey(frame);
            if (isGood && m_depth == depth) isGood = writeValue();
            if (m_depth != depth) frame.position = handleAt(m_vm, -3)._unVal.nInteger;
            sq_pop(m_vm, 2);
        }
        sq_pop(m_vm, 2);
        if (isGood && m_depth == depth) close(frame);
        return isGood;
    }
    // Of the pair at the top. A container is opened, and the value waits for its end.
    bool writeKey(Frame& frame) {
        const HSQOBJECT key = handleAt(m_vm, -2);
        if (!isContainer(key._type)) {
            writeElement(key, -2);
            return true;
        }
        frame.value = handleAt(m_vm, -1);
        frame.hasValue = true;
        return open(key);
    }
    // At the top.
    bool writeValue() {
        const HSQOBJECT value = handleAt(m_vm, -1);
        if (isContainer(value._type)) return open(value);
        writeElement(value, -1);
        return true;
    }

    bool open(const HSQOBJECT& container) {
        if (m_depth == static_cast<unsigned>(Item::maximumDepth)) return false;
        if (container._type == OT_TABLE) m_out.addPrefix(tablePrefix);
        m_out.addItem(Item());
        Frame& frame = m_frames[m_depth++];
        frame.container = container;
        frame.position = -1;
        frame.head = m_out.getPlainSize() - 4;
        frame.hasValue = false;
        return true;
    }
    void close(const Frame& frame) {
        storeUnaligned(m_out.getPlainBytePointer() + frame.head, m_out.getPlainSize() - frame.head - 4);
        --m_depth;
    }

    // What is no container; the slot is counted from the top.
    void writeElement(const HSQOBJECT& value, SQInteger index) {
        switch (value._type) {
        case OT_INTEGER:
            m_out.addInteger(value._unVal.nInteger);
            break;
        case OT_FLOAT:
            m_out.addFloat(value._unVal.fFloat);
            break;
        case OT_BOOL:
            m_out.addBool(value._unVal.nInteger != 0);
            break;
        case OT_STRING:
            writeText(index);
            break;
        case OT_CLOSURE:
            writeClosure(index);
            break;
        case OT_INSTANCE:
            writeInstance(index);
            break;
        default:
            m_out.addNIL();
            break;
        }
    }
    void writeText(SQInteger index) {
        const SQChar* text = nullptr;
        sq_getstring(m_vm, index, &text);
        const auto size = static_cast<size_t>(sq_getsize(m_vm, index));
        // It stops at a zero byte, if there is one.
        const unsigned before = m_out.getPlainSize();
        m_out.addString(text);
        if (m_out.getPlainSize() - before == size + 2) return;
        m_out.resizePlain(before);
        m_out.addBuffer(reinterpret_cast<const uint8_t*>(text), static_cast<unsigned>(size));
    }
    void writeClosure(SQInteger index) {
        kiv::Buffer bytecode;
        if (Object(m_vm, index).asClosure().getBytecode(bytecode)) {
            m_out.addPrefix(codePrefix);
            m_out.addBuffer(bytecode);
        } else {
            m_out.addNIL();
        }
    }
    void writeInstance(SQInteger index) {
        if (const void* guid = AdapterData::of<GUID>().getInstance(m_vm, index)) {
            m_out.addGUID(*static_cast<const GUID*>(guid));
        } else {
            sq_reseterror(m_vm);
            m_out.addNIL();
        }
    }

    SQVM* const m_vm;
    Item& m_out;
    const unsigned m_start;
    bool m_isDone = false;
    unsigned m_depth = 0;
    Frame m_frames[Item::maximumDepth]; // as many as the depth
};

// ---- Items into script values.

class ValueReader {
public:
    ValueReader(SQVM* v, Trust trust) : m_vm(v), m_trust(trust) {}

    // Pushes the value; nothing when it is too deep.
    bool read(Item::Iterator& from) {
        const SQInteger top = sq_gettop(m_vm);
        for (bool isAgain = false;; isAgain = true) {
            m_checksKeys = isAgain;
            m_hasEqualKeys = false;
            m_depth = 0;
            Item::Iterator it = from;
            if (!readValue(it)) break;
            // With equal keys the last has won: again, with a look whether a key is there.
            if (!m_hasEqualKeys || isAgain) {
                from = it;
                sq_settop(m_vm, top + 1);
                return true;
            }
            sq_settop(m_vm, top);
        }
        sq_settop(m_vm, top);
        return false;
    }

private:
    struct Frame {
        HSQOBJECT container;
        const uint8_t* at;
        const uint8_t* end;
        HSQOBJECT key; // that waits for its value
        bool hasKey;
        SQInteger pairs;
    };

    enum class Outcome { Value, Container, End, TooDeep };

    bool readValue(Item::Iterator& it) {
        const unsigned size = it.getValueSize();
        const uint8_t* at = it.getItem()->getPlainBytePointer() + it.getOffset();
        const uint8_t* const end = at + size;
        it.skip(size == it.getSize() ? 1 : 2);
        const Outcome outcome = readElement(at, end);
        if (outcome != Outcome::Container) return outcome == Outcome::Value;
        // The outermost stays below the one that is filled.
        sq_push(m_vm, -1);
        while (m_depth > 0) {
            Frame& frame = m_frames[m_depth - 1];
            if (!(frame.container._type == OT_TABLE ? readPairs(frame) : readElements(frame))) return false;
        }
        return true;
    }

    // These read up to the end of the container, which is at the top, or to one that is opened in it and takes its
    // place.
    bool readElements(Frame& frame) {
        for (;;) {
            const Outcome outcome = readElement(frame.at, frame.end);
            if (outcome == Outcome::End) return close();
            if (outcome == Outcome::TooDeep) return false;
            sq_arrayappend(m_vm, -2);
            if (outcome == Outcome::Container) return replaceTop(m_frames[m_depth - 1].container);
        }
    }
    bool readPairs(Frame& frame) {
        for (;;) {
            if (frame.hasKey) {
                sq_pushobject(m_vm, frame.key);
                frame.hasKey = false;
            } else {
                const Outcome key = readElement(frame.at, frame.end);
                if (key == Outcome::Container) return enterContainerAsKey(frame);
                if (key == Outcome::TooDeep) return false;
                if (key == Outcome::End) break;
                if (isLeftOut()) {
                    sq_poptop(m_vm);
                    frame.at += sizeOfValue(frame.at, frame.end);
                    continue;
                }
                ++frame.pairs;
            }
            const Outcome value = readElement(frame.at, frame.end);
            if (value == Outcome::TooDeep) return false;
            if (value == Outcome::End) { // a key alone
                sq_poptop(m_vm);
                --frame.pairs;
                break;
            }
            sq_rawset(m_vm, -3);
            if (value == Outcome::Container) return replaceTop(m_frames[m_depth - 1].container);
        }
        if (sq_getsize(m_vm, -1) != frame.pairs) m_hasEqualKeys = true;
        return close();
    }
    // With null for its value, so that the table keeps it while it is filled.
    bool enterContainerAsKey(Frame& frame) {
        frame.key = handleAt(m_vm, -1);
        frame.hasKey = true;
        ++frame.pairs;
        sq_pushnull(m_vm);
        sq_rawset(m_vm, -3);
        return replaceTop(frame.key);
    }
    // The key at the top.
    bool isLeftOut() {
        if (sq_gettype(m_vm, -1) == OT_NULL) return true;
        if (!m_checksKeys) return false;
        sq_push(m_vm, -1);
        const bool isThere = SQ_SUCCEEDED(sq_rawget(m_vm, -3));
        if (isThere) {
            sq_poptop(m_vm);
        } else {
            sq_reseterror(m_vm);
        }
        return isThere;
    }

    bool replaceTop(const HSQOBJECT& container) {
        sq_poptop(m_vm);
        sq_pushobject(m_vm, container);
        return true;
    }
    bool close() {
        --m_depth;
        return m_depth == 0 || replaceTop(m_frames[m_depth - 1].container);
    }

    static unsigned sizeOf(const uint8_t* at, const uint8_t* end) {
        return kiv::internal::sizeOfElement(at, static_cast<unsigned>(end - at));
    }
    static unsigned sizeOfValue(const uint8_t* at, const uint8_t* end) {
        const unsigned first = sizeOf(at, end);
        if (first == 0) return 0;
        return isPairOf(at, end, first, tablePrefix, ValueType::SubItem) ||
                       isPairOf(at, end, first, codePrefix, ValueType::Buffer)
                   ? first + sizeOf(at + first, end)
                   : first;
    }
    // Whether a prefix of `size` bytes and an element of that type are there.
    static bool isPairOf(const uint8_t* at, const uint8_t* end, unsigned size, const char* prefix, ValueType type) {
        return at[0] == static_cast<uint8_t>(ValueType::Prefix) &&
               std::strcmp(reinterpret_cast<const char*>(at + 1), prefix) == 0 && sizeOf(at + size, end) != 0 &&
               at[size] == static_cast<uint8_t>(type);
    }

    // Pushes the value that begins here, steps over it, and opens it when it is a container.
    // Numbers come first, so that they need no second look at their type.
    Outcome readElement(const uint8_t*& at, const uint8_t* end) {
        const uint8_t* const from = at;
        const auto left = static_cast<unsigned>(end - from);
        if (left == 0) return Outcome::End;
        switch (static_cast<ValueType>(from[0])) {
        case ValueType::Int8:
            if (left >= 2) return pushInteger(at, static_cast<int8_t>(from[1]), 2);
            return Outcome::End;
        case ValueType::Int16:
            if (left >= 3) return pushInteger(at, loadUnaligned<int16_t>(from + 1), 3);
            return Outcome::End;
        case ValueType::Int32:
            if (left >= 5) return pushInteger(at, loadUnaligned<int32_t>(from + 1), 5);
            return Outcome::End;
        case ValueType::Int64:
            if (left >= 9) return pushInteger(at, loadUnaligned<int64_t>(from + 1), 9);
            return Outcome::End;
        case ValueType::String:
            if (const unsigned size = kiv::internal::sizeOfText(from, left)) {
                at += size;
                pushText(from + 1, size - 2);
                return Outcome::Value;
            }
            return Outcome::End;
        default:
            return readOther(at, end);
        }
    }
    Outcome pushInteger(const uint8_t*& at, int64_t value, unsigned size) {
        at += size;
        sq_pushinteger(m_vm, value);
        return Outcome::Value;
    }
    Outcome readOther(const uint8_t*& at, const uint8_t* end) {
        const uint8_t* const from = at;
        const unsigned size = sizeOf(from, end);
        if (size == 0) return Outcome::End;
        at += size;
        switch (static_cast<ValueType>(from[0])) {
        case ValueType::Float:
            sq_pushfloat(m_vm, loadUnaligned<double>(from + 1));
            break;
        case ValueType::Prefix:
            return readPrefix(from, at, end, size);
        case ValueType::Buffer:
            pushText(from + 5, size - 5);
            break;
        case ValueType::SubItem:
            return open(false, from + 5, at);
        case ValueType::GUID:
            pushGUID(from + 1);
            break;
        case ValueType::False:
        case ValueType::True:
            sq_pushbool(m_vm, from[0] == static_cast<uint8_t>(ValueType::True) ? SQTrue : SQFalse);
            break;
        default:
            sq_pushnull(m_vm);
            break;
        }
        return Outcome::Value;
    }
    Outcome readPrefix(const uint8_t* from, const uint8_t*& at, const uint8_t* end, unsigned size) {
        const uint8_t* const next = from + size;
        if (isPairOf(from, end, size, tablePrefix, ValueType::SubItem)) {
            at += sizeOf(next, end);
            return open(true, next + 5, at);
        }
        if (isPairOf(from, end, size, codePrefix, ValueType::Buffer)) {
            at += sizeOf(next, end);
            pushClosure({next + 5, static_cast<unsigned>(at - next - 5)});
        } else {
            pushText(from + 1, size - 2);
        }
        return Outcome::Value;
    }
    Outcome open(bool isTable, const uint8_t* at, const uint8_t* end) {
        if (m_depth == static_cast<unsigned>(Item::maximumDepth)) return Outcome::TooDeep;
        if (isTable) {
            sq_newtableex(m_vm, countElements(at, end) / 2);
        } else {
            sq_newarray(m_vm, 0);
        }
        Frame& frame = m_frames[m_depth++];
        frame.container = handleAt(m_vm, -1);
        frame.at = at;
        frame.end = end;
        frame.hasKey = false;
        frame.pairs = 0;
        return Outcome::Container;
    }
    // Up to a limit: larger tables grow as they are filled.
    static SQInteger countElements(const uint8_t* at, const uint8_t* end) {
        constexpr SQInteger most = 64;
        SQInteger count = 0;
        for (; count < most; ++count) {
            const unsigned size = sizeOf(at, end);
            if (size == 0) break;
            at += size;
        }
        return count;
    }
    void pushText(const uint8_t* text, unsigned size) {
        sq_pushstring(m_vm, reinterpret_cast<const SQChar*>(text), size);
    }
    void pushGUID(const uint8_t* bytes) {
        GUID guid;
        std::memcpy(guid.getBytePointer(), bytes, sizeof guid);
        if (!Access<GUID>::push(m_vm, guid)) sq_pushnull(m_vm);
    }
    void pushClosure(const kiv::ConstByteSpan& bytecode) {
        const VM* const vm = VM::current();
        (vm && m_trust == Trust::Code ? vm->newClosure(bytecode) : Object()).push(m_vm);
    }

    SQVM* const m_vm;
    const Trust m_trust;
    bool m_checksKeys = false; // whether they are there
    bool m_hasEqualKeys = false;
    unsigned m_depth = 0;
    Frame m_frames[Item::maximumDepth]; // as many as the depth
};

void logRefusal(const char* reason) {
    kiv::logging::MessageStream(2, 2) << "[SQ] no conversion between item and script value: " << reason;
}

} // namespace

namespace internal {

const char* addValue(SQVM* v, SQInteger index, Item& to) {
    const StackGuard guard(v);
    return ValueWriter(v, to).write(index) ? nullptr : tooDeep;
}

const char* pushValue(SQVM* v, Item::Iterator& from, Trust trust) {
    return ValueReader(v, trust).read(from) ? nullptr : tooDeep;
}

const char* pushValueOf(SQVM* v, const Item& item, Trust trust) {
    Item::Iterator it = item.getIterator();
    const unsigned size = it.getValueSize();
    if (size != 0 && item.decodeGetSizeOfNextElement(static_cast<int>(size)) == 0) return pushValue(v, it, trust);
    sq_newarray(v, 0);
    while (it.hasNextElement()) {
        if (const char* reason = pushValue(v, it, trust)) {
            sq_poptop(v);
            return reason;
        }
        sq_arrayappend(v, -2);
    }
    return nullptr;
}

} // namespace internal

bool Access<Item>::push(SQVM* v, const Item& value) {
    const char* const reason = internal::pushValueOf(v, value, Trust::Data);
    if (reason) sq_throwerror(v, reason);
    return !reason;
}

} // namespace kivSq

namespace kiv {

Item::Item(const kivSq::Object& value) : Item() {
    addSquirrel(value);
}

void Item::addSquirrel(const kivSq::Object& value) {
    SQVM* const v = kivSq::internal::currentEngine();
    const char* reason = "there is no engine";
    if (v) {
        const kivSq::StackGuard guard(v);
        value.push(v);
        reason = kivSq::internal::addValue(v, -1, *this);
    }
    if (!reason) return;
    kivSq::logRefusal(reason);
    addNIL();
}

bool Item::decodeElementAsSquirrel(int offset, kivSq::Object& out, Trust trust) const {
    return Iterator(*this, offset).asSquirrel(out, trust);
}

bool ItemIterator::asSquirrel(kivSq::Object& out, Trust trust) {
    if (!hasNextElement()) return false;
    SQVM* const v = kivSq::internal::currentEngine();
    const char* reason = "there is no engine";
    if (v) {
        const kivSq::StackGuard guard(v);
        reason = kivSq::internal::pushValue(v, *this, trust);
        if (!reason) out = kivSq::Object(v, -1);
    }
    if (reason) kivSq::logRefusal(reason);
    return !reason;
}

} // namespace kiv
