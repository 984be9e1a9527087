#include "ScriptLine.h"

#include "kiv/script/Class.h"
#include "kiv/script/VM.h"
#include "kiv/script/VMThread.h"

#include <memory>
#include <optional>
#include <stdexcept>

using kivSq::Access;
using kivSq::VM;

void ScriptLine::bind(const char* name, kiv::RpcChannel& channel, kiv::RpcProvider& provider) {
    if (!kivSq::AdapterData::of<ScriptLine>().isInitialized()) {
        kivSq::Class<ScriptLine>(VM::current()->getNamespace("example"), "Line")
            .native<&ScriptLine::call>("call")
            .method("answer", &ScriptLine::answer);
    }
    VM::current()->getRootTable().set(name, kivSq::Object::from(kiv::makeObject<ScriptLine>(channel, provider)));
}

SQInteger ScriptLine::call(SQVM* v) {
    ScriptLine* line = nullptr;
    kiv::String method;
    kiv::Item arguments;
    if (!Access<ScriptLine*>::get(v, 1, line) || !line || !Access<kiv::String>::get(v, 2, method) ||
        (sq_gettop(v) > 2 && !Access<kiv::Item>::get(v, 3, arguments)))
        return sq_throwerror(v, "call needs the name of a method, and its arguments");
    const auto answer = std::make_shared<std::optional<kiv::RpcChannel::Answer>>();
    line->m_channel->call(method.c_str(), arguments,
                          [answer](const kiv::RpcChannel::Answer& given) { *answer = given; });
    return VM::current()->suspend(v, kivSq::WakeCondition([answer](SQVM* engine) {
                                      if (!*answer) return false;
                                      if (!(*answer)->isGood) throw std::runtime_error((*answer)->error.c_str());
                                      return Access<kiv::Item>::push(engine, (*answer)->result);
                                  }));
}

void ScriptLine::answer(const kiv::String& method, const kivSq::Functor& function) {
    m_provider->addRPC(
        method.c_str(),
        [function](const kiv::RpcContext& call) {
            function.call(call.getArguments()).to(call.result());
            call.finish();
        },
        "answered by a script", nullptr);
}
