#include "kiv/kivCore.h"
#include "kiv/script/Engine.h"

#include <cstdio>
#include <cstring>

namespace {

// A class of the user's own in the library's tree, and a scheme of its own records.
class Note : public kiv::Object {
    KIV_OBJECT(Note, kiv::Object)
};

struct NoteScheme : kiv::PacketScheme {
    NoteScheme() : PacketScheme(77, "Consumer", "Note", nullptr) {}
    const Field text = String("text", UpTo(64));
};

bool recordsCross() {
    const NoteScheme scheme;
    const auto sent = kiv::makeObject<kiv::Packet>(&scheme, short{0});
    sent->setString(scheme.text, "across");
    const auto received = kiv::Packet::createFromBase16String(sent->convertToBase16String());
    return received && received->fit(&scheme) && std::strcmp(received->getString(scheme.text), "across") == 0;
}

// The engine's library has the types that this program was compiled for.
bool engineFits() {
    const HSQUIRRELVM engine = sq_open(64);
    sq_pushstring(engine, "kiv", -1);
    const bool fits = sq_getsize(engine, -1) == 3 && sq_getversion() == SQUIRREL_VERSION_NUMBER;
    sq_close(engine);
    return fits;
}

} // namespace

int main() {
    const auto note = kiv::makeObject<Note>();
    const bool named = std::strcmp(note->getDynamicClassChain()[1], "Note") == 0 && note->getReferenceCount() == 1;
    kiv::Item item;
    item.add("kiv");
    item.add(4294967296LL);
    const bool encoded = item.asBrowsableString() == "kiv;INT:4294967296";
    if (!named || !encoded || !recordsCross() || !engineFits()) return 1;
    std::puts("consumer: linked and ran");
    return 0;
}
