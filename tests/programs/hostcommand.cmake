# kiv host, kiv worker: plug-ins that are not booted or not in order, options that do not survive, ends that are told
# wrong. Interrupts and kills at any moment are with PluginHostTest.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(kiv kiv)

# plugin(name file text): of the directory "plugins".
function(plugin name file text)
    file(WRITE "${WORK}/plugins/${name}/${file}.sq" "${text}")
endfunction()

# A plug-in that counts its starts with a module, and one that ends the host once all workers have begun.
plugin(b autoexec "if (\"host\" in getroottable()) host.options.declare(\"b:starts\", \"0\", \"Starts\")")
plugin(b main "import(\"counting\")
if (\"host\" in getroottable()) host.options.set(\"b:starts\", util.next(host.options.getInteger(\"b:starts\")))")
plugin(b counting "util.next <- @(n) n + 1")
plugin(a autoexec "print(\"autoexec of a\")")
plugin(a main "if (!(\"host\" in getroottable())) return std.file(\"worker-\" + std.worker_index, \"w\").close()
for (local i = 0; i < host.options.getInteger(\"host:workers\"); std.sleep(1))
    try { std.file(\"worker-\" + i, \"r\").close(); ++i } catch (missing) {}
while (host.options.getInteger(\"b:starts\") == 0) std.sleep(1)
host.end(\"all is done\")")
set(host ${kiv} host --plugins plugins)

foreach(starts 1 2)
    run(COMMAND ${host} --store options.store --workers 0 --trace trace.json)
    expect_equal("status" "${status}" "0")
    expect_equal("standard error" "${err}" "")
    expect_part("what is booted first" "${out}" "autoexec of a\n")
    expect_part("the end" "${out}" "kiv host: all is done, after ")
    expect_part("what there was" "${out}" " s with 2 plug-ins; 0 worker starts\n")
    run(COMMAND ${kiv} store get options.store "[\"options\",\"b:starts\"]")
    expect_equal("starts" "${out}" "\"${starts}\"\n")
endforeach()
file(READ "${WORK}/trace.json" trace)
string(JSON events ERROR_VARIABLE error LENGTH "${trace}" traceEvents)
expect_equal("the trace as JSON" "${error}" "NOTFOUND")

# Its workers boot the same, and are asked to end.
run(COMMAND ${host} --set host:workers=2)
expect_equal("status with workers" "${status}" "0")
expect_part("a worker's plug-in" "${out}" "[SUBPROCESS] autoexec of a\n")
expect_part("a worker's end" "${out}" "[SUBPROCESS] [WORKER] ends: its parent has asked it to\n")
expect_part("how many there were" "${out}" " s with 2 plug-ins; 2 worker starts\n")

# What is wrong from the beginning.
function(fails message)
    run(COMMAND ${kiv} host ${ARGN})
    expect_equal("status of kiv host ${ARGN}" "${status}" "1")
    expect_part("message of kiv host ${ARGN}" "${err}" "kiv host: ${message}")
    set(rows ${rows} PARENT_SCOPE)
endfunction()
fails("none: no directory" --plugins none)
fails("none: no file" --plugins plugins --worker none)
fails("none/s: no directory for it" --plugins plugins --store none/s)
fails("novalue: an option is set by name=value" --plugins plugins --set novalue)
file(WRITE "${WORK}/damaged.store" "no store")
fails("not started" --plugins plugins --store damaged.store)
run(COMMAND ${kiv} host)
expect_equal("status without plug-ins" "${status}" "2")

# A worker without parent ends with its input.
file(WRITE "${WORK}/nothing" "")
run(INPUT "${WORK}/nothing" COMMAND ${kiv} worker --plugins plugins)
expect_equal("status of a worker" "${status}" "0")
expect_part("its words" "${out}" "[WORKER] ends: its parent is gone\n")
finish()
