// What plug-ins see of the host.
//     study.slices, study.maximum   how many there will be, and the greatest possible sample; 0 before the first tile
//     study.tiles                   how many have come
//     study.missing()               the tiles that have not come: first, count, first, count ...
//     study.request(ranges)         asks the device for these tiles, and for its last word behind them
//     study.isComplete              complete() was called
//     study.complete()              nothing is to come
//     study.giveUp(why)             there is no hope
//     study.report(table)           text, min, max, mean, histogram: see Report.h
//     host.options                  of every PluginHost
//     worker.call(...), worker.answer(...): see ScriptLine.h
// Events, each with a table:
//     device:hello  process             it is there, and waits for a request
//     device:quit   deaths              it has died; another one will be started
//     device:end    isWhole, missing    its last word
//     study:slice   slice, findings     one was measured: min, max, mean, deviation, histogram
//     study:over                        the time to hand in the report

#include "Host.h"

#include "examples/study/ScriptLine.h"
#include "examples/study/ScriptTable.h"

#include "kiv/plugins/Plugins.h"
#include "kiv/script/Class.h"
#include "kiv/script/VM.h"

#include <stdexcept>
#include <vector>

void Host::bindScripts() {
    kivSq::VM& vm = *kivSq::VM::current();
    kivSq::Class<Host>(vm.getNamespace("example"), "Host")
        .property("slices", &Host::getSlices)
        .property("maximum", &Host::getMaximum)
        .property("tiles", &Host::getTiles)
        .property("isComplete", &Host::isComplete)
        .method("missing", &Host::getMissing)
        .method("request", &Host::request)
        .method("complete", &Host::complete)
        .method("giveUp", &Host::giveUp)
        .method("report", &Host::report);
    vm.getRootTable().set("study", kivSq::Object::from(kiv::SmartPointer<Host>(this)));
}

void Host::setUpWorker(kiv::WorkerProcess& worker) {
    PluginHost::setUpWorker(worker);
    if (worker.getIndex() == 0) ScriptLine::bind("worker", worker.getRpc(), getRpcProvider());
}

void Host::raise(const char* event, std::initializer_list<std::pair<const char*, kiv::Item>> table) {
    getPlugins().callListeners(event, makeTable(table));
}

int64_t Host::getSlices() const {
    const study::Geometry* geometry = m_folder.getCollection().getGeometry();
    return geometry ? geometry->slices : 0;
}

int64_t Host::getMaximum() const {
    const study::Geometry* geometry = m_folder.getCollection().getGeometry();
    return geometry ? geometry->maximum : 0;
}

kivSq::Object Host::getMissing() const {
    const kivSq::Object numbers = kivSq::VM::current()->newArray(0);
    for (const study::TileRange& range : m_folder.getCollection().getMissingRanges()) {
        numbers.asArray().append(kivSq::Object::from(range.first));
        numbers.asArray().append(kivSq::Object::from(range.count));
    }
    return numbers;
}

void Host::request(const kivSq::Object& ranges) {
    if (getWorkerCount() == 0) throw std::runtime_error("there is no worker");
    std::vector<uint32_t> numbers;
    for (const kivSq::Object& number : ranges.asArray().getValues())
        if (!number.to(numbers.emplace_back())) throw std::invalid_argument("ranges are numbers of tiles");
    const auto packet = kiv::makeObject<kiv::Packet>(&m_requestScheme, short{0});
    packet->setArray(m_requestScheme.ranges, numbers.data(), numbers.size());
    getWorker(0).send(packet.get());
}
