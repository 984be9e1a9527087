#include "Pieces.h"

#include "kiv/data/Packet.h"

#include <iostream>

namespace {

// As it was first released.
struct OldPictureScheme : kiv::PacketScheme {
    OldPictureScheme() : PacketScheme(40, "Pieces", nullptr, "Picture") {}

    const Field width = Number<uint32_t>("width");
    const Field title = String("title", UpTo(1000));
};

// Today's: the same fields, and behind NextVersion() one more.
struct PictureScheme : kiv::PacketScheme {
    PictureScheme() : PacketScheme(40, "Pieces", nullptr, "Picture") {
        NextVersion();
        exposure = Number<double>("exposure", 1.0);
    }

    const Field width = Number<uint32_t>("width");
    const Field title = String("title", UpTo(1000));
    Field exposure;
};

} // namespace

void showRecords() {
    kiv::String line;
    {
        const OldPictureScheme scheme;
        const auto packet = kiv::makeObject<kiv::Packet>(&scheme, short{0});
        packet->setInteger(scheme.width, 640);
        packet->setString("title", "hand"); // by name works, too
        line = packet->convertToBase16String();
        std::cout << line << '\n';
    }

    const PictureScheme scheme;
    const kiv::SmartPointer<kiv::Packet> received = kiv::Packet::createFromBase16String(line);
    if (received && received->fit(&scheme)) {
        std::cout << received->getString(scheme.title) << ", " << received->getInteger(scheme.width)
                  << " wide, exposure " << received->getFloat(scheme.exposure) << '\n';
    }
}
