#pragma once

#include "Sender.h"

#include "kiv/system/PluginWorker.h"

// The device as the worker of a host: plug-ins, the same as the host's, decide what becomes of its requests. They see
//     device.slices, device.kind    how many there are, and of what
//     device.noise                  see Volume::setNoise()
//     device.sendHello()            names this process to the host
//     device.wants(slice)           whether the request wants any tile of it
//     device.sendSlice(slice)       acquires the slice, and sends what is wanted of it
//     device.sendEnd()              the last word on the study
//     parent.call(...), parent.answer(...): see ScriptLine.h
// and the event "device:request", a table: `tiles`, how many are wanted, and `first`, the first of them.
class Worker : public kiv::PluginWorker {
    KIV_OBJECT(Worker, PluginWorker)
public:
    // Volume and sender outlive this.
    Worker(const kiv::String& pluginsDirectory, Volume& volume, Sender& sender)
        : PluginWorker(pluginsDirectory.c_str()), m_volume(volume), m_sender(sender) {}

protected:
    void onBoot(int32_t index) override;
    void onParentPacket(kiv::Packet& packet) override;

private:
    int64_t getSlices() const { return m_volume.getGeometry().slices; }
    const char* getKind() const { return m_volume.getKind(); }
    uint32_t getNoise() const { return m_volume.getNoise(); }
    void setNoise(uint32_t noise) { m_volume.setNoise(noise); }
    bool wants(int64_t slice) const { return m_sender.wants(checked(slice)); }
    void sendSlice(int64_t slice) { m_sender.sendSlice(checked(slice)); }
    void sendHello() { m_sender.sendHello(); }
    void sendEnd() { m_sender.sendEnd(); }
    uint32_t checked(int64_t slice) const;

    Volume& m_volume;
    Sender& m_sender;
    const study::RequestScheme m_requestScheme;
};
