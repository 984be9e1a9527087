// Packets under keys. Both forms keep id, flags and payload as one buffer; the one of several keys names the scheme.

#include "kiv/data/Item.h"
#include "kiv/data/Packet.h"
#include "kiv/data/PacketScheme.h"
#include "kiv/logging/MessageStream.h"
#include "kiv/store/ScopedTransaction.h"
#include "kiv/store/Store.h"

namespace kiv {
namespace {

bool hasScheme(const Packet* packet) {
    if (packet && packet->getScheme()) return true;
    logging::MessageStream(3, 2) << "trying to store packet without scheme";
    return false;
}

bool isScheme(const PacketScheme* scheme) {
    if (scheme) return true;
    logging::MessageStream(3, 2) << "trying to fetch packet without scheme";
    return false;
}

Item valueOf(const Packet& packet) {
    Item value;
    value.addBuffer(packet.convertToBufferWithManifest());
    return value;
}

// Null without a log line for null.
SmartPointer<Packet> packetOf(const Item* value, const PacketScheme* scheme) {
    if (!value) return {};
    ConstByteSpan bytes; // empty, which is no packet, when the value is something else
    value->getIterator().asWeakBytes(ValueType::Buffer, bytes);
    SmartPointer<Packet> packet = Packet::createFromBufferWithManifest(bytes);
    if (packet && !packet->fit(scheme)) packet = nullptr;
    return packet;
}

} // namespace

void Item::storePacket(const Packet* packet) const {
    if (!hasScheme(packet)) return;
    const Item value = valueOf(*packet);
    const unsigned size = m_size;
    if (!m_store) return store(value); // which logs it
    Item part(*this);                  // a copy, as this key may borrow bytes of the store
    ScopedTransaction transaction(m_store);
    part.remove();
    part.store(Item());
    part.addString("scheme");
    part.store(packet->getScheme()->getFullName());
    part.resizePlain(size);
    part.addString("data");
    part.store(value);
    transaction.commit();
}

void Item::storePacketCompact(const Packet* packet) const {
    if (hasScheme(packet)) store(valueOf(*packet));
}

SmartPointer<Packet> Item::fetchPacket(const PacketScheme* scheme) const {
    if (!isScheme(scheme)) return {};
    const Item* value = fetch();
    if (!value || !value->empty()) return packetOf(value, scheme);
    Item data(*this);
    data.addString("data");
    return packetOf(data.fetch(), scheme);
}

SmartPointer<Packet> Item::fetchPacketCompact(const PacketScheme* scheme) const {
    return isScheme(scheme) ? packetOf(fetch(), scheme) : SmartPointer<Packet>();
}

} // namespace kiv
