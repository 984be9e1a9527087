#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/core/SmartPointer.h"
#include "kiv/core/String.h"
#include "kiv/data/Item.h"
#include "kiv/data/PacketElement.h"
#include "kiv/data/PacketScheme.h"
#include "kiv/platform/Compiler.h"

#include <concepts>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace kiv {

class ByteConsumer;

// One record: an 8-byte header and a payload that a PacketScheme describes. Made for a scheme it can be filled and
// read by field; made from received bytes it is raw until fit() has checked them against a scheme, and then reads them
// where they lie. Writing to such a packet copies the static part first, borrowed and received bytes are never written.
// Unknown fields, fields of another kind and values that do not fit are logged and change nothing; readers then give
// 0, null or empty. Pointers and views into a packet are valid until it is changed or deleted. One thread at a time.
class KIV_API Packet : public Object {
    KIV_OBJECT(Packet, Object)
public:
    // Little-endian on the wire, in this order.
    struct RawHeader {
        int16_t port = 0;
        int16_t replyPort = 0;
        int16_t id = 0; // of the scheme
        int16_t flags = 0;
    };
    // The halves of the header: what the record is, which is stored with it, and whom it is for.
    struct Manifest {
        int16_t id;
        int16_t flags;
    };
    struct Association {
        int16_t port;
        int16_t replyPort;
    };

    // Of the flags: the payload ends with a version suffix.
    static const short VersionedFlag = 2;
    // The largest payload that packet files and lines carry.
    static const unsigned maximumStreamedPayload = 0xFFFFFF;

    // Raw packets from the texts and bytes the conversions below make; null, and a log line, for anything else.
    static SmartPointer<Packet> createFromBufferWithManifest(const ConstByteSpan& bytes);
    static SmartPointer<Packet> createFromBase16String(TextArg text);

    // An empty record with all defaults; reply port -1. Null makes a raw packet of no bytes.
    Packet(const PacketScheme* scheme, short port);
    // A raw packet of `size` unspecified bytes, to be written through getPayloadPointer().
    explicit Packet(unsigned size);
    // A raw packet over bytes that `owner` keeps alive; with null the caller does.
    Packet(unsigned size, const uint8_t* bytes, Object* owner);
    // Copies own all their bytes. Null makes a raw packet of no bytes.
    explicit Packet(const Packet* other);
    Packet(const Packet& other);
    Packet& operator=(const Packet& other);
    ~Packet() override;
    void swap(Packet& other) noexcept;

    // Null while the packet is raw.
    const PacketScheme* getScheme() const { return m_scheme; }
    RawHeader& rawHeader() { return m_header; }
    const RawHeader& rawHeader() const { return m_header; }
    Manifest manifest() const { return {m_header.id, m_header.flags}; }
    Association association() const { return {m_header.port, m_header.replyPort}; }
    short getID() const { return m_header.id; }
    void setID(short id) { m_header.id = id; }
    short getPort() const { return m_header.port; }
    void setPort(short port) { m_header.port = port; }
    short getReplyPort() const { return m_header.replyPort; }
    void setReplyPort(short port) { m_header.replyPort = port; }
    short getFlags() const { return m_header.flags; }
    void setFlags(short flags) { m_header.flags = flags; }
    void addFlag(short flag) { m_header.flags = static_cast<int16_t>(m_header.flags | flag); }
    void clearFlag(short flag) { m_header.flags = static_cast<int16_t>(m_header.flags & ~flag); }
    // True when any bit of `flag` is set.
    bool hasFlag(short flag) const { return (m_header.flags & flag) != 0; }
    // Asks the writer of a file to flush behind this packet. Not transmitted.
    bool getFlushAfterThis() const { return m_flushAfterThis; }
    void setFlushAfterThis(bool flush) { m_flushAfterThis = flush; }
    // From now on the packet is written as version 0, without version suffix.
    void disableVersioning();
    bool isVersioningDisabled() const { return m_isVersioningDisabled; }

    // Numbers, sign- or zero-extended by the field's type; wider values lose their upper bits. `index` selects one of
    // several values.
    template <std::integral T>
    void setInteger(PacketFieldArg field, T value, unsigned index = 0) {
        setInt64(field, static_cast<uint64_t>(value), index);
    }
    int64_t getInteger(PacketFieldArg field, unsigned index = 0) const;
    void setFloat(PacketFieldArg field, double value, unsigned index = 0);
    double getFloat(PacketFieldArg field, unsigned index = 0) const;
    // The same for a field whose type is known, in that type.
    template <class T>
    void set(PacketNumberField<T> field, std::type_identity_t<T> value);
    template <class T>
    T get(PacketNumberField<T> field) const;
    void setGUID(PacketFieldArg field, const GUID& guid);
    GUID getGUID(PacketFieldArg field) const;

    // Texts end at their first zero. One too long for its field is cut between two characters, with a warning. What is
    // received without terminating zero, and the unset text of a dynamic array, are logged and read as "".
    void setString(PacketFieldArg field, TextArg text);
    const char* getString(PacketFieldArg field) const;
    // Zero-terminated texts one after another, into List, Set, UnorderedSet or Vector of String.
    template <class Container>
    requires std::same_as<typename Container::value_type, String>
    void setStringList(PacketFieldArg field, const Container& texts);
    template <class Container>
    requires std::same_as<typename Container::value_type, String>
    void getStringList(PacketFieldArg field, Container& out) const;

    void setItem(PacketFieldArg field, const kiv::Item& item);
    // The complete elements, borrowed.
    kiv::Item getItem(PacketFieldArg field) const;
    kiv::Item getItemCopy(PacketFieldArg field) const {
        return kiv::Item(kiv::Item::PlainMode(), getItem(field).getConstByteSpan());
    }

    // The bytes of buffers and of numbers, all values of a field at once; a fixed field is filled up with zeros. With
    // `copy` false a dynamic array borrows the bytes, which must outlive the packet; fixed fields always copy.
    void setBuffer(PacketFieldArg field, const uint8_t* bytes, unsigned size, bool copy = true);
    void setBuffer(PacketFieldArg field, const ConstByteSpan& bytes, bool copy = true);
    void setBuffer(PacketFieldArg field, const kiv::Buffer& buffer, bool copy = true);
    // Unaligned in received packets.
    const uint8_t* getBuffer(PacketFieldArg field) const;
    unsigned getBufferSize(PacketFieldArg field) const;
    ConstByteSpan getByteSpan(PacketFieldArg field) const;
    // Room for `size` bytes, all zero or unspecified, to be filled in; null when they do not fit.
    uint8_t* allocateBuffer(PacketFieldArg field, unsigned size, bool zero);
    // All values of a plain field, copied. Refused, like a wrong name, when T has not the size of its values.
    template <class T>
    void setArray(PacketFieldArg field, const T* values, size_t count) {
        setValues(field, values, count, sizeof(T));
    }
    template <class T>
    bool getArray(PacketFieldArg field, Vector<T>& out) const;

    // The free tail of a packet whose scheme declares one; packets with a version suffix have none.
    void setCargo(const uint8_t* bytes, unsigned size, bool copy = true);
    void setCargo(const kiv::Buffer& buffer, bool copy = true);
    void setCargo(const ConstByteSpan& bytes, bool copy = true);
    // The text and its terminating zero.
    void setCargoString(TextArg text);
    uint8_t* allocateCargo(unsigned size, bool zero);
    const uint8_t* getCargo() const;
    unsigned getCargoSize() const;
    // Up to the first zero, or the end.
    String getCargoString() const;

    // Takes received bytes for a record of `scheme`. False, with a log line, when they are none: the packet is raw then
    // and may be fitted to another scheme. A packet made for a scheme, changed, or brought up from an older version
    // stays with its scheme. Records of the newest version are not copied. Never reads outside the bytes received.
    bool fit(const PacketScheme* scheme);
    // Gives the fields that version `fromVersion` and later ones declare their defaults.
    void setDefaultValues(unsigned fromVersion);

    // Of the wire form; throws std::length_error above 4 GiB.
    unsigned getPayloadSize() const;
    // Writes getPayloadSize() bytes.
    void copyPayloadTo(uint8_t* to) const;
    void getPayloadConsumed(ByteConsumer* consumer) const;
    unsigned getCachedPayloadSize() const { return m_cachedPayloadSize; }
    void updateCachedPayloadSize() { m_cachedPayloadSize = getPayloadSize(); }
    // The bytes of a raw packet, the static part of any other. Requires: writers write to raw packets of their own
    // only.
    uint8_t* getPayloadPointer() { return m_payload; }
    const uint8_t* getPayloadPointer() const { return m_payload; }

    // Id, flags and payload.
    kiv::Buffer convertToBufferWithManifest() const;
    // "PKTB16[", header and payload in hexadecimal digits, "]".
    String convertToBase16String() const;
    // The same at the end of `text`.
    void appendBase16To(std::string& text) const;
    // The same in pieces for writers with memory of their own: the length, and the text with another header.
    size_t getBase16Size() const;
    void writeBase16To(char* to, const RawHeader& header) const;

private:
    // Where an attachment's bytes are: a view shows bytes of the received payload, of the defaults, or the caller's.
    enum class Storage : uint8_t { View, Inline, Heap };

    // A dynamic array or the cargo.
    struct Attachment {
        uint8_t* bytes;
        uint32_t size;
        Storage storage;
    };

    // What fit() knows of the received bytes.
    struct Received {
        unsigned version = 0;
        PacketScheme::Version expected; // what is known of it here
        uint64_t usable = 0;            // bytes without the version suffix
        uint64_t cursor = 0;
    };

    static constexpr unsigned inlineAttachments = 4;
    static constexpr unsigned inlineBytes = 192;

    Packet() = default;
    bool isOfScheme(const PacketElement* element) const {
        return KIV_EXPECT(element) && KIV_EXPECT(element->scheme == m_scheme);
    }
    const PacketElement* resolve(PacketFieldArg field) const {
        const PacketElement* element = field.getElement();
        return isOfScheme(element) ? element : resolveByName(field);
    }
    const PacketElement* resolveByName(PacketFieldArg field) const;
    // Null and a log line when there is no such element.
    const PacketElement* resolve(PacketFieldArg field, PacketElementKind kind, const char* operation) const;
    const PacketElement* resolveBytes(PacketFieldArg field, const char* operation) const;
    const PacketElement* complain(const char* operation, const char* what, PacketFieldArg field, int level = 3) const;

    const uint8_t* singleGetInternal(const PacketElement& element, unsigned index) const;
    uint8_t* singleSetInternal(const PacketElement& element, unsigned index);
    inline ConstByteSpan arrayGetInternal(const PacketElement& element) const;
    void arraySetInternal(const PacketElement& element, const uint8_t* bytes, unsigned size, bool copy);
    uint8_t* allocateInternal(const PacketElement& element, unsigned size);
    bool isSizeAllowed(const PacketElement& element, uint64_t size, const char* operation) const;
    inline void setInt64(PacketFieldArg field, uint64_t value, unsigned index);
    // What the inline readers and writers leave: names, dynamic arrays, received static parts, the last bytes of the
    // static part, and what is refused.
    void setIntegerSlowly(PacketFieldArg field, uint64_t value, unsigned index);
    int64_t getIntegerSlowly(PacketFieldArg field, unsigned index) const;
    void setFloatSlowly(PacketFieldArg field, double value, unsigned index);
    double getFloatSlowly(PacketFieldArg field, unsigned index) const;
    const char* getStringSlowly(PacketFieldArg field) const;
    // Of this packet's scheme, and a fixed field that has a value of this index.
    bool hasFixedValue(const PacketElement* element, unsigned index) const {
        return isOfScheme(element) && KIV_EXPECT(index < element->count);
    }
    void setValues(PacketFieldArg field, const void* values, uint64_t count, unsigned valueSize);
    bool getValues(PacketFieldArg field, ConstByteSpan& out, unsigned valueSize) const;
    void setStringListInternal(PacketFieldArg field, std::string_view bytes);
    std::string_view getStringListInternal(PacketFieldArg field) const;
    Attachment* writableCargo(uint64_t size, const char* operation);

    void movePointersTo(Packet& other) noexcept;
    uint8_t* takeInline(uint64_t size);
    void makePayload(unsigned size);
    inline void allocateAttachments(size_t count);
    void allocateManyAttachments(size_t count);
    void dropAttachments() noexcept {
        if (m_hasHeapAttachments) freeAttachments();
        m_attachmentCount = 0;
    }
    void freeAttachments() noexcept;
    void replaceAttachment(Attachment& attachment, const uint8_t* bytes, unsigned copied, unsigned size);
    void makeStaticWritable();
    void storeCounts(uint8_t* staticPart, size_t dynamicArrays) const;
    void copyFrom(const Packet& other);
    // Makes one block of the first bytes of another packet's (or its own) static part and of its arrays and cargo, and
    // becomes a record of the scheme. Changes nothing that is in use before all memory is there.
    void copyContents(const Packet& from, const PacketScheme* scheme, unsigned staticSize);

    bool checkReceived(const PacketScheme& scheme, Received& received);
    bool readVersion(const PacketScheme& scheme, Received& received) const;
    bool placeArrays(const PacketScheme& scheme, Received& received);
    bool placeCargo(const PacketScheme& scheme, const Received& received);

    const PacketScheme::Version& getWrittenVersion() const;
    uint64_t computePayloadSize() const;
    template <class Sink>
    void writeBehindStatic(Sink& sink) const;

    const PacketScheme* m_scheme = nullptr;
    uint8_t* m_payload = nullptr; // the static part; all bytes received, while they are in use
    uint32_t m_payloadSize = 0;
    RawHeader m_header;
    uint32_t m_cachedPayloadSize = 0;
    bool m_isPayloadBorrowed = true; // not freed by the packet
    bool m_isSchemeFixed = false;
    bool m_flushAfterThis = false;
    bool m_isVersioningDisabled = false;
    bool m_hasHeapAttachments = false;
    bool m_isStaticReceived = false; // the static part is that of the received bytes
    uint8_t m_inlineUsed = 0;
    uint8_t* m_received =
        nullptr; // received bytes that arrays still lie in, when the static part is not there any more
    SmartPointer<Object> m_owner;
    // One for each dynamic array of the scheme, and the cargo; none while the packet is raw.
    Attachment* m_attachments = nullptr;
    size_t m_attachmentCount = 0;
    Attachment m_firstAttachments[inlineAttachments]; // uninitialised until they are in use, like the bytes
    alignas(8) uint8_t m_inline[inlineBytes];
};

inline void swap(Packet& a, Packet& b) noexcept {
    a.swap(b);
}

} // namespace kiv

#include "kiv/data/PacketInline.h"
