#pragma once

#include "kiv/core/Buffer.h"
#include "kiv/core/TextArg.h"
#include "kiv/data/Item.h"
#include "kiv/platform/Compiler.h"

#include <cstdint>
#include <cstdio>
#include <string>

namespace kiv {

// Reads a store file entry by entry, in the order of the keys, a damaged one up to the damage. Entries come before the
// checksum behind them is known: they are right for sure only once isWhole(). Needs no more memory than the largest
// entry. Logs nothing.
class KIV_API StoreFileReader {
public:
    // A UTF-8 path.
    explicit StoreFileReader(TextArg path);
    StoreFileReader(const StoreFileReader&) = delete;
    StoreFileReader& operator=(const StoreFileReader&) = delete;
    ~StoreFileReader();

    bool isOpen() const { return m_file != nullptr; }

    // Makes both views of the next entry, valid until the next call. False at the end and at damage.
    bool read(Item& key, Item& value);

    // The end was reached, and everything is as it should be.
    bool isWhole() const { return m_state == State::Whole; }
    // Where the next entry begins; at damage, where the first byte is that is wrong or missing, as far as can be told.
    uint64_t getOffset() const { return m_offset; }
    // Of the damage; empty when there is none so far.
    const std::string& getReason() const { return m_reason; }
    // As the file says; 0 when it does not.
    uint64_t getLength() const { return m_length; }
    uint64_t getNumberOfEntries() const { return m_entries; }

private:
    enum class State { Start, Entries, Whole, Damaged };

    bool readHeader();
    bool readTrailer();
    bool readNested(unsigned& at, ConstByteSpan& nested);
    bool readKey(unsigned& at);
    bool need(unsigned at, uint64_t size);
    bool fill(uint64_t wanted);
    void consume(unsigned size);
    bool damage(unsigned at, std::string reason);
    const uint8_t* bytes(unsigned at) const { return m_buffer.getBytePointer() + m_begin + at; }

    std::FILE* m_file;
    State m_state = State::Start;
    uint64_t m_length = 0;
    uint64_t m_entries = 0;
    uint64_t m_offset = 0; // in the file, of m_begin
    std::string m_reason;
    Buffer m_buffer;       // bytes of the file; those before m_begin are done with
    unsigned m_begin = 0;  // where the next entry begins
    unsigned m_summed = 0; // up to here they are in the checksum
    uint32_t m_checksum = 0;
    Item m_last; // the key before
};

} // namespace kiv
