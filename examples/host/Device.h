#pragma once

#include "examples/study/Collection.h"

#include "kiv/process/AsyncSupervisor.h"

#include <vector>

// The device's worker process, kept alive. Packets arrive and are fitted on a thread of the pool; what becomes of them
// is decided on the main thread, in the order in which everything has happened.
class Device : public kiv::AsyncSupervisor {
    KIV_OBJECT(Device, AsyncSupervisor)
public:
    // Called by tasks of the main queue. Outlives these.
    class Listener {
    public:
        virtual ~Listener() = default;
        // There is a worker; what the one before has sent was told of.
        virtual void onWorkerStarted() = 0;
        virtual void onWorkerQuit() = 0;
        virtual void onHello(int64_t processId) = 0;
        // Of one of the collection's schemes.
        virtual void onStudyPacket(kiv::Packet& packet) = 0;
        virtual void onMalformedPacket() = 0;
    };

    // The collection, whose schemes packets are fitted to, outlives the packets.
    Device(const char* workerPath, const kiv::List<kiv::String>& arguments, const Collection& collection,
           Listener& listener);
    ~Device() override { terminate(); }

    using AsyncSupervisor::start;
    void request(const std::vector<study::TileRange>& ranges);

private:
    void onProcessStarted() override;
    void onProcessQuit() override;
    void onPacket(kiv::Packet* packet) override;

    const study::HelloScheme m_helloScheme;
    const study::RequestScheme m_requestScheme;
    const study::TileScheme& m_tileScheme;
    const study::EndScheme& m_endScheme;
    Listener& m_listener;
};
