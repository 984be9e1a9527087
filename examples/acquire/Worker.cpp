#include "Worker.h"

#include "examples/study/ScriptLine.h"
#include "examples/study/ScriptTable.h"

#include "kiv/plugins/Plugins.h"
#include "kiv/script/Class.h"
#include "kiv/script/VM.h"
#include "kiv/system/System.h"

#include <stdexcept>

void Worker::onBoot(int32_t) {
    kivSq::VM& vm = *kivSq::VM::current();
    kivSq::Class<Worker>(vm.getNamespace("example"), "Device")
        .property("slices", &Worker::getSlices)
        .property("kind", &Worker::getKind)
        .property("noise", &Worker::getNoise, &Worker::setNoise)
        .method("sendHello", &Worker::sendHello)
        .method("wants", &Worker::wants)
        .method("sendSlice", &Worker::sendSlice)
        .method("sendEnd", &Worker::sendEnd);
    vm.getRootTable().set("device", kivSq::Object::from(kiv::SmartPointer<Worker>(this)));
    ScriptLine::bind("parent", getParent().getRpc(), getRpcProvider());
}

void Worker::onParentPacket(kiv::Packet& packet) {
    kiv::Vector<uint32_t> numbers;
    if (!packet.fit(&m_requestScheme) || !packet.getArray(m_requestScheme.ranges, numbers)) return;
    std::vector<study::TileRange> ranges;
    for (size_t i = 0; i + 1 < numbers.size(); i += 2) ranges.push_back({numbers[i], numbers[i + 1]});
    const uint64_t tiles = m_sender.setWanted(ranges);
    kiv::System::getPlugins()->callListeners(
        "device:request", makeTable({{"tiles", tiles}, {"first", ranges.empty() ? 0 : ranges.front().first}}));
}

uint32_t Worker::checked(int64_t slice) const {
    if (slice < 0 || slice >= getSlices()) throw std::out_of_range("there is no such slice");
    return static_cast<uint32_t>(slice);
}
