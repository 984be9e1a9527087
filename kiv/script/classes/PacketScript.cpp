// The script classes kiv.Packet, kiv.FilePacketReader and kiv.FilePacketWriter.

#include "kiv/data/FilePacketReader.h"
#include "kiv/data/FilePacketWriter.h"
#include "kiv/data/Packet.h"
#include "kiv/data/PacketSchemeRegistry.h"
#include "kiv/script/Class.h"
#include "kiv/script/ItemObject.h"
#include "kiv/script/NativeTable.h"
#include "kiv/script/TypeName.h"
#include "kiv/script/VM.h"
#include "kiv/script/classes/Bindings.h"

#include <fmt/format.h>

#include <stdexcept>

namespace kivSq {
namespace {

using kiv::FilePacketReader;
using kiv::FilePacketWriter;
using kiv::GUID;
using kiv::Item;
using kiv::Packet;
using kiv::PacketElement;
using kiv::PacketElementKind;
using kiv::PacketField;
using kiv::PacketNumber;
using kiv::PacketScheme;
using kiv::SmartPointer;
using kiv::String;

const PacketScheme& schemeOf(const std::string& name) {
    const PacketScheme* const scheme = kiv::PacketSchemeRegistry::find(std::string_view(name));
    if (!scheme) throw std::runtime_error("there is no packet scheme " + name);
    return *scheme;
}

const PacketScheme& schemeOf(const Packet& packet) {
    if (!packet.getScheme()) throw std::runtime_error("the packet is raw: fit() gives it its scheme");
    return *packet.getScheme();
}

const PacketElement& elementOf(const Packet& packet, std::string_view name) {
    const PacketScheme& scheme = schemeOf(packet);
    const PacketElement* const element = scheme.findElement(name);
    if (!element) throw std::runtime_error(fmt::format("{} has no field '{}'", scheme.getFullName().view(), name));
    return *element;
}

[[noreturn]] void refuse(const PacketElement& element, const std::string& what) {
    throw std::runtime_error(
        fmt::format("field '{}' of {}: {}", element.name.view(), element.scheme->getFullName().view(), what));
}

[[noreturn]] void refuseType(SQVM* v, const PacketElement& element, const char* expected, SQInteger index) {
    refuse(element, fmt::format("expected {}, got {}", expected, internal::typeNameAt(v, index)));
}

// One number, as opposed to an array of them.
bool isSingle(const PacketElement& element) {
    return !element.isDynamic() && element.count == 1;
}

bool isGUID(const PacketElement& element) {
    return element.kind == PacketElementKind::Plain && isSingle(element) && element.elementSize == sizeof(GUID);
}

// ---- Reading.

void pushNumber(SQVM* v, const Packet& packet, const PacketElement& element, unsigned index) {
    const PacketField field(&element);
    if (element.isFloat()) {
        sq_pushfloat(v, packet.getFloat(field, index));
    } else {
        sq_pushinteger(v, packet.getInteger(field, index));
    }
}

void pushNumbers(SQVM* v, const Packet& packet, const PacketElement& element) {
    const unsigned count = packet.getBufferSize(PacketField(&element)) / element.elementSize;
    sq_newarray(v, 0);
    for (unsigned i = 0; i < count; ++i) {
        pushNumber(v, packet, element, i);
        sq_arrayappend(v, -2);
    }
}

void pushField(SQVM* v, const Packet& packet, const PacketElement& element) {
    const PacketField field(&element);
    if (element.kind == PacketElementKind::Text) {
        Access<const char*>::push(v, packet.getString(field));
    } else if (element.kind == PacketElementKind::Item) {
        if (!Access<Item>::push(v, packet.getItem(field))) refuse(element, "nested deeper than 128 levels");
    } else if (element.number == PacketNumber::None) {
        if (isGUID(element)) {
            Access<GUID>::push(v, packet.getGUID(field));
            return;
        }
        const kiv::ConstByteSpan bytes = packet.getByteSpan(field);
        Access<std::string_view>::push(
            v, {reinterpret_cast<const char*>(bytes.getBytePointer()), static_cast<size_t>(bytes.getSize())});
    } else if (isSingle(element)) {
        pushNumber(v, packet, element, 0);
    } else {
        pushNumbers(v, packet, element);
    }
}

// ---- Writing.

struct Limits {
    int64_t smallest;
    int64_t largest;
};

// What fits the width, signed or not.
Limits limitsOf(const PacketElement& element) {
    if (element.elementSize == 8) return {INT64_MIN, INT64_MAX};
    const unsigned bits = element.elementSize * 8;
    return {-(int64_t{1} << (bits - 1)), (int64_t{1} << bits) - 1};
}

struct Number {
    int64_t integer = 0;
    double number = 0;
};

Number readNumber(SQVM* v, const PacketElement& element, SQInteger slot) {
    Number out;
    if (element.isFloat()) {
        if (!Access<double>::get(v, slot, out.number)) refuseType(v, element, "float", slot);
        return out;
    }
    const Limits limits = limitsOf(element);
    if (!internal::getInteger(v, slot, limits.smallest, limits.largest, out.integer))
        refuseType(v, element, fmt::format("{}-bit integer", element.elementSize * 8).c_str(), slot);
    return out;
}

void writeNumber(Packet& packet, const PacketElement& element, unsigned index, const Number& value) {
    const PacketField field(&element);
    if (element.isFloat()) {
        packet.setFloat(field, value.number, index);
    } else {
        packet.setInteger(field, value.integer, index);
    }
}

void writeNumbers(SQVM* v, Packet& packet, const PacketElement& element, SQInteger slot) {
    if (sq_gettype(v, slot) != OT_ARRAY) refuseType(v, element, "array", slot);
    const auto count = static_cast<uint64_t>(sq_getsize(v, slot));
    if (element.isDynamic() ? count > element.maximumCount : count != element.count)
        refuse(element, fmt::format("{} values, and it has {}{}", count, element.isDynamic() ? "at most " : "",
                                    element.maximumCount));
    std::vector<Number> numbers; // all of them, before the first is written
    for (unsigned i = 0; i < count; ++i) {
        sq_pushinteger(v, i);
        sq_rawget(v, slot);
        numbers.push_back(readNumber(v, element, sq_gettop(v)));
        sq_poptop(v);
    }
    if (element.isDynamic())
        packet.allocateBuffer(PacketField(&element), static_cast<unsigned>(count) * element.elementSize, true);
    for (unsigned i = 0; i < count; ++i) writeNumber(packet, element, i, numbers[i]);
}

// Of a text, bytes or an encoded item.
void requireRoom(const PacketElement& element, uint64_t size) {
    const uint64_t maximum = element.getMaximumSize();
    if (size > maximum) refuse(element, fmt::format("{} bytes, and it has {}", size, maximum));
}

void writeText(SQVM* v, Packet& packet, const PacketElement& element, SQInteger slot) {
    std::string_view text;
    if (!Access<std::string_view>::get(v, slot, text)) refuseType(v, element, "string", slot);
    if (text.find('\0') != std::string_view::npos) refuse(element, "a zero byte in a text");
    requireRoom(element, text.size() + 1);
    packet.setString(PacketField(&element), text);
}

void writeBytes(SQVM* v, Packet& packet, const PacketElement& element, SQInteger slot) {
    const PacketField field(&element);
    GUID guid;
    if (isGUID(element)) {
        if (!Access<GUID>::get(v, slot, guid)) refuseType(v, element, "GUID", slot);
        packet.setGUID(field, guid);
        return;
    }
    std::string_view bytes;
    if (!Access<std::string_view>::get(v, slot, bytes)) refuseType(v, element, "string", slot);
    requireRoom(element, bytes.size());
    if (bytes.size() % element.elementSize != 0)
        refuse(element, fmt::format("{} bytes, which are no whole values", bytes.size()));
    packet.setBuffer(field, reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<unsigned>(bytes.size()));
}

void writeField(SQVM* v, Packet& packet, const PacketElement& element, SQInteger slot) {
    if (element.kind == PacketElementKind::Text) {
        writeText(v, packet, element, slot);
    } else if (element.kind == PacketElementKind::Item) {
        Item item;
        if (!Access<Item>::get(v, slot, item)) refuseType(v, element, Access<Item>::name(), slot);
        requireRoom(element, item.getPlainSize());
        packet.setItem(PacketField(&element), item);
    } else if (element.number == PacketNumber::None) {
        writeBytes(v, packet, element, slot);
    } else if (isSingle(element)) {
        writeNumber(packet, element, 0, readNumber(v, element, slot));
    } else {
        writeNumbers(v, packet, element, slot);
    }
}

// ---- What scripts call.

// The field that a name in a stack slot says.
const PacketElement& elementAt(SQVM* v, const Packet& packet, SQInteger index) {
    std::string_view name;
    if (!Access<std::string_view>::get(v, index, name))
        throw std::runtime_error("a field's name is a string, not " + internal::typeNameAt(v, index));
    return elementOf(packet, name);
}

// (packet, name)
SQInteger get(SQVM* v) {
    const Packet* const packet = internal::objectOfCall<Packet>(v, 1);
    if (!packet) return SQ_ERROR;
    pushField(v, *packet, elementAt(v, *packet, 2));
    return 1;
}

// (packet, name, value)
SQInteger set(SQVM* v) {
    Packet* const packet = internal::objectOfCall<Packet>(v, 2);
    if (!packet) return SQ_ERROR;
    writeField(v, *packet, elementAt(v, *packet, 2), 3);
    return 0;
}

// (packet)
SQInteger toTable(SQVM* v) {
    const Packet* const packet = internal::objectOfCall<Packet>(v, 0);
    if (!packet) return SQ_ERROR;
    sq_newtable(v);
    for (const PacketElement& element : schemeOf(*packet).getElements()) {
        Access<std::string_view>::push(v, element.name.view());
        pushField(v, *packet, element);
        sq_rawset(v, -3);
    }
    return 1;
}

// (packet, table): all of it or nothing.
SQInteger fromTable(SQVM* v) {
    Packet* const packet = internal::objectOfCall<Packet>(v, 1);
    if (!packet) return SQ_ERROR;
    if (sq_gettype(v, 2) != OT_TABLE) return internal::throwMismatch(v, 1, "table", 2);
    const SmartPointer<Packet> changed = new Packet(*packet);
    sq_pushnull(v);
    while (SQ_SUCCEEDED(sq_next(v, 2))) {
        writeField(v, *changed, elementAt(v, *changed, sq_gettop(v) - 1), sq_gettop(v));
        sq_pop(v, 2);
    }
    packet->swap(*changed);
    return 0;
}

Packet* make(const std::string& scheme) {
    return new Packet(&schemeOf(scheme), 0);
}

Packet* makeForPort(const std::string& scheme, int16_t port) {
    return new Packet(&schemeOf(scheme), port);
}

SmartPointer<Packet> fromBase16(const String& text) {
    return Packet::createFromBase16String(text);
}

std::optional<String> getSchemeName(Packet& packet) {
    return packet.getScheme() ? std::optional<String>(packet.getScheme()->getFullName()) : std::nullopt;
}

Object getFieldNames(Packet& packet) {
    Object names = internal::requireVM().newArray(0);
    for (const PacketElement& element : schemeOf(packet).getElements())
        names.asArray().append(Object::from(element.name));
    return names;
}

bool fit(Packet& packet, const std::string& scheme) {
    return packet.fit(&schemeOf(scheme));
}

// ---- In stores and files.

Item keyIn(kiv::Store& store, const ItemKey& key) {
    Item bound(internal::cleanKey(key));
    bound.setStore(&store);
    return bound;
}

void storeIn(Packet& packet, kiv::Store& store, const ItemKey& key) {
    schemeOf(packet);
    keyIn(store, key).storePacket(&packet);
}

SmartPointer<Packet> fetchFrom(kiv::Store& store, const ItemKey& key, const std::string& scheme) {
    return keyIn(store, key).fetchPacket(&schemeOf(scheme));
}

template <class File>
File* open(const std::string& path) {
    auto file = std::make_unique<File>(path.c_str());
    if (!file->isOpen()) throw std::runtime_error("cannot open " + path);
    return file.release();
}

// Null at the end.
SmartPointer<Packet> readPacket(FilePacketReader& reader) {
    if (reader.atEnd()) return {};
    SmartPointer<Packet> packet = reader.read();
    if (!packet) throw std::runtime_error(fmt::format("no packet at offset {}", reader.getRecordOffset()));
    const PacketScheme* const scheme = kiv::PacketSchemeRegistry::find(packet->getID());
    if (scheme) packet->fit(scheme);
    return packet;
}

void bindFields(Class<Packet, kiv::Object>& packet) {
    packet.native<&get>("get")
        .native<&set>("set")
        .native<&toTable>("toTable")
        .native<&fromTable>("fromTable")
        .method("getFieldNames", &getFieldNames)
        .method("getSchemeName", &getSchemeName)
        .method("fit", &fit)
        .method(
            "copy", +[](Packet& self) { return SmartPointer<Packet>(new Packet(self)); })
        .method("getPayloadSize", &Packet::getPayloadSize)
        .method("toBase16", &Packet::convertToBase16String)
        .staticMethod("fromBase16", &fromBase16)
        .method("storeIn", &storeIn)
        .staticMethod("fetchFrom", &fetchFrom)
        .property("id", &Packet::getID)
        .property("flags", &Packet::getFlags, &Packet::setFlags)
        .property("port", &Packet::getPort, &Packet::setPort)
        .property("replyPort", &Packet::getReplyPort, &Packet::setReplyPort);
}

} // namespace

namespace internal {

void bindPacket(const Object& table) {
    if (AdapterData::of<Packet>().isInitialized()) return;
    bindStore(table);
    Class<Packet, kiv::Object> packet(table, "Packet", Constructor<Factory<&make>, Factory<&makeForPort>>());
    bindFields(packet);
    Class<FilePacketReader, kiv::Object>(table, "FilePacketReader", Constructor<Factory<&open<FilePacketReader>>>())
        .method("atEnd", &FilePacketReader::atEnd)
        .method("read", &readPacket)
        .method("close", &FilePacketReader::close);
    Class<FilePacketWriter, kiv::Object>(table, "FilePacketWriter", Constructor<Factory<&open<FilePacketWriter>>>())
        .method(
            "write",
            +[](FilePacketWriter& self, Packet& packetToWrite) {
                if (!self.isOpen()) throw std::runtime_error("the file is closed");
                self.write(&packetToWrite);
            })
        .method("close", &FilePacketWriter::close);
}

} // namespace internal
} // namespace kivSq
