#include "Pieces.h"

#include "kiv/data/Item.h"
#include "kiv/script/Class.h"
#include "kiv/script/Functor.h"
#include "kiv/script/VM.h"
#include "kiv/system/System.h"

#include <algorithm>
#include <iostream>

namespace {

struct Lamp {
    explicit Lamp(int power) : watts(power) {}

    void dim(int by) { percent = std::max(0, percent - by); }
    double getUsage() const { return watts * percent / 100.0; }

    const int watts;
    int percent = 100;
};

void bindLamp(kivSq::VM& vm) {
    kivSq::Class<Lamp>(vm.getNamespace("pieces"), "Lamp", kivSq::Constructor<void(int)>())
        .method("dim", &Lamp::dim)
        .member("percent", &Lamp::percent)
        .readonlyMember("watts", &Lamp::watts)
        .property("usage", &Lamp::getUsage);
}

void useClass(kivSq::VM& vm) {
    vm.executeString(R"(
        lamp <- pieces.Lamp(60)
        lamp.dim(20)
        lamp.percent += 5
        print("the lamp takes " + lamp.usage + " of " + lamp.watts + " W")
        try {
            lamp.dim("a little")
        } catch (error) {
            print(error)
        }
    )",
                     "lamp.sq");
}

void callFunction(kivSq::VM& vm) {
    vm.executeString("function cost(lamp, hours) { return lamp.usage * hours / 1000 }", "cost.sq");
    const kivSq::Functor cost(vm.getRootTable().get("cost"));
    double kilowattHours = 0;
    if (cost.call(Lamp(40), 1000).to(kilowattHours)) std::cout << kilowattHours << " kWh\n";
}

void exchangeItems(kivSq::VM& vm) {
    vm.executeString(R"(
        function plan(rooms) {
            return { lamps = rooms.map(@(room) { name = room, watts = 40 }), total = 40 * rooms.len() }
        }
    )",
                     "plan.sq");
    kiv::Item rooms, plan;
    rooms.add("hall");
    rooms.add("attic");
    const kivSq::Object array = kivSq::Object::from(rooms);
    const kivSq::Functor makePlan(vm.getRootTable().get("plan"));
    if (makePlan.call(array).to(plan)) std::cout << plan.getJSON(false) << '\n';
}

void runThreads(kivSq::VM& vm) {
    vm.executeString(R"(
        foreach (name, pause in { kettle = 30, egg = 10 }) {
            local device = name, time = pause
            std.async(function() {
                std.sleep(time)
                print(device + " is done")
            })
        }
    )",
                     "kitchen.sq");
    while (vm.threadsActive()) kiv::System::processEvents();
}

} // namespace

void showScripts() {
    kiv::System::initialize();
    kivSq::VM& vm = *kiv::System::getVM();
    bindLamp(vm);
    useClass(vm);
    callFunction(vm);
    exchangeItems(vm);
    runThreads(vm);
    kiv::System::deinitialize();
}
