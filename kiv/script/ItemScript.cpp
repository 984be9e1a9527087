// Items and script values. Both walks keep their place in a stack of their own, so that a few slots of the engine's do:
// a container that is made is entered into the one around it at once, which keeps it, and every container that is read
// is kept by the one around it, for no script runs meanwhile.

#include "kiv/core/Buffer.h"
#include "kiv/data/Item.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/script/Access.h"
#include "kiv/script/StackGuard.h"
#include "kiv/script/VM.h"

#include <cstring>

namespace kivSq {
namespace {

using kiv::GUID;
using kiv::Item;
using kiv::Trust;
using kiv::ValueType;
using kiv::internal::loadUnaligned;
using kiv::internal::storeUnaligned;

constexpr const char* tooDeep = "nested deeper than 128 levels";
constexpr const char* tablePrefix = "table";
constexpr const char* codePrefix = "squirrel";

HSQOBJECT handleAt(SQVM* v, SQInteger index) {
    HSQOBJECT handle;
    sq_getstackobj(v, index, &handle);
    return handle;
}

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

    // The value at the top, which stays there.
    bool write() {
        const StackGuard guard(m_vm);
        const HSQOBJECT value = handleAt(m_vm, -1);
        m_isDone = isContainer(value._type) ? open(value) && writeContainers() : writeElement(value);
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
                if (!writeValue(frame.value)) return false;
                continue;
            }
            if (!writeElements(frame)) return false;
        }
        return true;
    }

    // Up to the end of the container, or to one that is opened in it.
    bool writeElements(Frame& frame) {
        const bool isTable = frame.container._type == OT_TABLE;
        const unsigned depth = m_depth;
        sq_pushobject(m_vm, frame.container);
        if (frame.position < 0) {
            sq_pushnull(m_vm);
        } else {
            sq_pushinteger(m_vm, frame.position);
        }
        while (SQ_SUCCEEDED(sq_next(m_vm, -2))) {
            const HSQOBJECT key = handleAt(m_vm, -2), value = handleAt(m_vm, -1);
            frame.position = handleAt(m_vm, -3)._unVal.nInteger;
            const bool isOpening = isTable && isContainer(key._type);
            const bool isGood = isOpening ? open(key) : (!isTable || writeElementAt(key, -2)) && writeValueAtTop(value);
            if (isOpening) {
                frame.value = value;
                frame.hasValue = true;
            }
            sq_pop(m_vm, 2);
            if (!isGood || m_depth != depth) {
                sq_pop(m_vm, 2);
                return isGood;
            }
        }
        sq_pop(m_vm, 2);
        close(frame);
        return true;
    }

    bool writeValue(const HSQOBJECT& value) {
        sq_pushobject(m_vm, value);
        const bool isGood = writeValueAtTop(value);
        sq_poptop(m_vm);
        return isGood;
    }
    bool writeValueAtTop(const HSQOBJECT& value) {
        return isContainer(value._type) ? open(value) : writeElement(value);
    }
    bool writeElementAt(const HSQOBJECT& value, SQInteger index) {
        sq_push(m_vm, index);
        const bool isGood = writeElement(value);
        sq_poptop(m_vm);
        return isGood;
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

    // What is no container, and at the top. The result is true: it is simply called where one is needed.
    bool writeElement(const HSQOBJECT& value) {
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
            writeText();
            break;
        case OT_CLOSURE:
            writeClosure();
            break;
        case OT_INSTANCE:
            writeInstance();
            break;
        default:
            m_out.addNIL();
            break;
        }
        return true;
    }
    void writeText() {
        const SQChar* text = nullptr;
        sq_getstring(m_vm, -1, &text);
        const auto size = static_cast<size_t>(sq_getsize(m_vm, -1));
        if (std::memchr(text, 0, size)) {
            m_out.addBuffer(reinterpret_cast<const uint8_t*>(text), static_cast<unsigned>(size));
        } else {
            m_out.addString(text);
        }
    }
    void writeClosure() {
        kiv::Buffer bytecode;
        if (Object(m_vm, -1).asClosure().getBytecode(bytecode)) {
            m_out.addPrefix(codePrefix);
            m_out.addBuffer(bytecode);
        } else {
            m_out.addNIL();
        }
    }
    void writeInstance() {
        if (const void* guid = AdapterData::of<GUID>().getInstance(m_vm, -1)) {
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

    bool readValue(Item::Iterator& it) {
        const unsigned size = it.getValueSize();
        const uint8_t* at = it.getItem()->getPlainBytePointer() + it.getOffset();
        const uint8_t* const end = at + size;
        it.skip(size == it.getSize() ? 1 : 2);
        if (!readElement(at, end)) return false;
        // The outermost stays below the one that is filled.
        if (m_depth > 0) sq_push(m_vm, -1);
        while (m_depth > 0) {
            Frame& frame = m_frames[m_depth - 1];
            if (!(frame.container._type == OT_TABLE ? readPairs(frame) : readElements(frame))) return false;
        }
        return true;
    }

    // These read up to the end of the container, which is at the top, or to one that is opened in it and takes its
    // place.
    bool readElements(Frame& frame) {
        const unsigned depth = m_depth;
        while (isElement(frame)) {
            if (!readElement(frame.at, frame.end)) return false;
            const HSQOBJECT value = handleAt(m_vm, -1);
            sq_arrayappend(m_vm, -2);
            if (m_depth != depth) return replaceTop(value);
        }
        return close();
    }
    bool readPairs(Frame& frame) {
        const unsigned depth = m_depth;
        while (isElement(frame)) {
            if (frame.hasKey) {
                sq_pushobject(m_vm, frame.key);
                frame.hasKey = false;
            } else {
                if (!readElement(frame.at, frame.end)) return false;
                if (m_depth != depth) return enterContainerAsKey(frame);
                if (!isElement(frame)) {
                    sq_poptop(m_vm);
                    break;
                }
                if (isLeftOut()) {
                    sq_poptop(m_vm);
                    frame.at += sizeOfValue(frame.at, frame.end);
                    continue;
                }
                ++frame.pairs;
            }
            if (!readElement(frame.at, frame.end)) return false;
            const HSQOBJECT value = handleAt(m_vm, -1);
            sq_rawset(m_vm, -3);
            if (m_depth != depth) return replaceTop(value);
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
    static bool isElement(const Frame& frame) { return sizeOf(frame.at, frame.end) != 0; }
    static unsigned sizeOfValue(const uint8_t* at, const uint8_t* end) {
        const unsigned first = sizeOf(at, end);
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

    // Pushes the value that begins here, steps over it, and opens it when it is a container. Requires: it is complete.
    bool readElement(const uint8_t*& at, const uint8_t* end) {
        const uint8_t* const from = at;
        const unsigned size = sizeOf(from, end);
        at += size;
        switch (static_cast<ValueType>(from[0])) {
        case ValueType::Int8:
            sq_pushinteger(m_vm, static_cast<int8_t>(from[1]));
            break;
        case ValueType::Int16:
            sq_pushinteger(m_vm, loadUnaligned<int16_t>(from + 1));
            break;
        case ValueType::Int32:
            sq_pushinteger(m_vm, loadUnaligned<int32_t>(from + 1));
            break;
        case ValueType::Int64:
            sq_pushinteger(m_vm, loadUnaligned<int64_t>(from + 1));
            break;
        case ValueType::Float:
            sq_pushfloat(m_vm, loadUnaligned<double>(from + 1));
            break;
        case ValueType::Prefix:
            return readPrefix(from, at, end, size);
        case ValueType::String:
            pushText(from + 1, size - 2);
            break;
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
        return true;
    }
    bool readPrefix(const uint8_t* from, const uint8_t*& at, const uint8_t* end, unsigned size) {
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
        return true;
    }
    bool open(bool isTable, const uint8_t* at, const uint8_t* end) {
        if (m_depth == static_cast<unsigned>(Item::maximumDepth)) return false;
        if (isTable) {
            sq_newtable(m_vm);
        } else {
            sq_newarray(m_vm, 0);
        }
        Frame& frame = m_frames[m_depth++];
        frame.container = handleAt(m_vm, -1);
        frame.at = at;
        frame.end = end;
        frame.hasKey = false;
        frame.pairs = 0;
        return true;
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
    sq_push(v, index);
    return ValueWriter(v, to).write() ? nullptr : tooDeep;
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
