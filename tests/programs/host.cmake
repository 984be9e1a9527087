# host: studies that are not complete after all, workers that are not started again or begin anew, statistics that are
# wrong, options that are forgotten or change nothing, plug-ins that fail or are not the host's, traces that no viewer
# reads.
include("${CMAKE_CURRENT_LIST_DIR}/Programs.cmake")
program(kiv kiv)
program(acquire acquire)
program(host host)

# Everything arrives, though workers have died: `packets` of `slices` slices. The arguments are host's.
function(completes folder packets slices deaths)
    run(COMMAND ${host} --out "${folder}" --no-picture ${ARGN})
    expect_equal("status of host ${ARGN}" "${status}" "0")
    expect_equal("standard error" "${err}" "")
    expect_part("verdict" "${out}" "read again gives the same pictures bit for bit, and they have the sender's checksum")
    expect_part("verdict on the store" "${out}" "is record for record what arrived")
    expect_part("a log line of the worker" "${out}" "] [SUBPROCESS] [DEVICE] acquiring slice 1 of ${slices}\n")
    string(REGEX MATCH "host: [^\n]*\n$" line "${out}")
    string(REGEX REPLACE ", [0-9]+ bytes in [^,]*" "" line "${line}")
    expect_part("how far the report was" "${out}" "[REPORT] ${slices} of ${slices} slices |")
    string(REGEX MATCH "report of ${slices} slices, .*the brightest [^\n]*\n" report "${out}")
    set(report "${report}" PARENT_SCOPE)
    set(said "${out}" PARENT_SCOPE)
    expect_equal("summary" "${line}" "host: ${packets} packets, ${slices} slices measured, ${deaths} survived, \
0 lost, 0 refused, 0 repeated\n")
    run(COMMAND ${kiv} packets "${folder}/study.packets")
    expect_part("what is kept" "${err}" "kiv packets: ${packets} records, ")
    run(COMMAND ${kiv} store tree "${folder}/study.store" log)
    expect_part("log of the store" "${out}" ";[SUBPROCESS] [DEVICE] ")
    set(rows ${rows} PARENT_SCOPE)
endfunction()

# A known picture: its statistics are known, too.
string(REPEAT "#" 48 full)
string(REPEAT " " 48 none)
file(WRITE "${WORK}/digits.pgm" "P5\n5 2\n255\n0123456789")
completes(digits 4 1 "0 deaths" -- --image digits.pgm --tile 2)
run(COMMAND ${kiv} store get digits/study.store [=[["study","slices",0]]=])
string(REPLACE "0,0,0,10,0,0,0,0,0,0,0,0,0,0,0,0" "all in the fourth" out "${out}")
expect_equal("statistics" "${out}" "{\"min\":48,\"max\":57,\"mean\":52.5,\"deviation\":2.8722813232690143,\
\"histogram\":[all in the fourth]}\n")
expect_part("the report" "${report}" "\n     32 | ${none}         0\n     48 | ${full}        10\n     64 | ${none}         0\n")
expect_part("its end" "${report}"
    "\n     57 | the greatest; mean 52.50, the least 48; the brightest slice is 1, mean 52.50\n")
file(READ "${WORK}/digits/slice-0000.pgm" picture)
file(READ "${WORK}/digits.pgm" original)
expect_equal("the picture" "${picture}" "${original}")

# Options change what the device and the report do, and are kept. A worker dies in the middle of the second study.
set(study --size 40 --slices 12 --tile 16 --pace 60)
completes(undisturbed 109 12 "0 deaths" --set device:noise=20 --set device:order=inward --set report:bins=4
    --trace undisturbed.json -- ${study})
set(undisturbed_report "${report}")
completes(disturbed 109 12 "1 death" --chaos --kills 1 --seed 4 --trace disturbed.json -- ${study})
foreach(plugin common device report)
    string(REGEX MATCH "[[]HOST[]] plug-in ${plugin}, digest [0-9a-f]+\n" line "${said}")
    expect_part("what is booted" "${line}" "${plugin}")
endforeach()
expect_part("what the worker answers" "${said}"
    "[HOST] device_info of acquire: a phantom of 12 slices, inward, noise 20\n")
string(REGEX MATCHALL "\n +[0-9]+ [|] " bins "${report}")
list(LENGTH bins count)
expect_equal("lines of the report: bins and the greatest" ${count} 5)
run(COMMAND ${kiv} store get host.store [=[["options","device:noise"]]=])
expect_equal("a kept option" "${out}" "\"20\"\n")
file(GLOB pictures RELATIVE "${WORK}/undisturbed" "${WORK}/undisturbed/slice-*.pgm")
list(LENGTH pictures count)
expect_equal("pictures" ${count} 12)
foreach(picture IN LISTS pictures)
    file(SHA256 "${WORK}/undisturbed/${picture}" expected)
    file(SHA256 "${WORK}/disturbed/${picture}" hash)
    expect_equal("${picture} in spite of a death" ${hash} ${expected})
endforeach()
expect_part("the report" "${report}" "report of 12 slices, 19200 samples")
expect_equal("the report in spite of a death" "${report}" "${undisturbed_report}")
expect_part("how it is killed" "${said}" "[WARNING] [CHAOS] killing the worker")
expect_part("that it was noticed" "${said}" "[WARNING] subprocess quit unexpectedly, restarting")
expect_part("how it goes on" "${said}" "[WARNING] [SUBPROCESS] [DEVICE] resuming at tile ")
completes(clean 109 12 "0 deaths" --set device:noise=0 -- ${study})
file(SHA256 "${WORK}/clean/slice-0006.pgm" hash)
file(SHA256 "${WORK}/disturbed/slice-0006.pgm" noisy)
if(hash STREQUAL noisy)
    message(SEND_ERROR "noise changes nothing")
endif()

# Sets `count`, how many events of the trace have this part.
function(count_events trace part)
    string(REPLACE ";" " " text "${trace}")
    string(REGEX MATCHALL "${part}" events "${text}")
    list(LENGTH events count)
    set(count ${count} PARENT_SCOPE)
endfunction()
foreach(pair "undisturbed 1" "disturbed 2")
    string(REPLACE " " ";" pair "${pair}")
    list(GET pair 0 name)
    list(GET pair 1 lives)
    file(READ "${WORK}/${name}.json" trace)
    string(JSON events ERROR_VARIABLE error LENGTH "${trace}" traceEvents)
    expect_equal("the trace as JSON" "${error}" "NOTFOUND")
    foreach(phase b e)
        count_events("${trace}" "\"ph\":\"${phase}\",\"cat\":\"supervisor\",\"name\":\"worker\"")
        expect_equal("lives of workers, \"${phase}\"" "${count}" "${lives}")
    endforeach()
    count_events("${trace}" "\"name\":\"statistics\"")
    expect_equal("slices measured" "${count}" "12")
    foreach(part "\"cat\":\"pump\",\"name\":\"Scheduler\"" "\"cat\":\"pump\",\"name\":\"VM\""
            "\"cat\":\"queue\",\"name\":\"I/O queue\"" "\"cat\":\"queue\",\"name\":\"parallel queue\"")
        expect_part("the trace" "${trace}" "${part}")
    endforeach()
endforeach()

# An option that there is not, and what the others are.
run(COMMAND ${host} --out none --set no:option=1)
expect_equal("status" "${status}" "1")
expect_part("message" "${out}" "[ERROR] [HOST] there is no option 'no:option'\n")
run(COMMAND ${host} --options --set report:style=line)
expect_equal("status of a listing" "${status}" "0")
foreach(line "device:noise = 0            In thousandths" "device:order = inward       In which order the device acquires"
        "report:bins = 4             Into how many" "report:style = line         bars, or")
    expect_part("options" "${out}" "${line}")
endforeach()

# Runs the study of the digits with these plug-ins and the files beside them: pairs of a path and a text.
function(run_with plugins)
    file(COPY "${BIN}/Plugins/" DESTINATION "${WORK}/${plugins}")
    while(ARGN)
        list(POP_FRONT ARGN path text)
        file(WRITE "${WORK}/${plugins}/${path}" "${text}")
    endwhile()
    run(COMMAND ${host} --out digits --no-picture --plugins ${plugins} --set report:bins=2 -- --image digits.pgm)
    foreach(variable status out err)
        set(${variable} "${${variable}}" PARENT_SCOPE)
    endforeach()
endfunction()

# Reports that are wrong, fail, or have a script that is none: the study is complete all the same.
set(listen "import(\"kiv.System\")\nkiv.System.getPlugins().addListener")
foreach(case
        "wrong;${listen}(\"study:over\", @(_) study.report({text = \"wrong\", min = 48, max = 58, mean = 52.5, histogram = [10]}))"
        "failing;${listen}(\"study:over\", @(_) study.nothing())" "none;this is no script")
    list(POP_FRONT case name)
    run_with(${name} report/main.sq "${case}")
    expect_equal("status with report ${name}" "${status}" "1")
    expect_part("message" "${err}" "host: the report is missing or wrong\n")
    expect_part("verdict" "${out}" "host: 2 packets,")
endforeach()

# A plug-in that is changed when the host has booted it is not booted by the worker; this one works without it.
run_with(changed changer/autoexec.sq "if (!(\"worker_index\" in std)) std.file(\"changed/report/more.sq\", \"wb\").close()")
expect_equal("status with a changed plug-in" "${status}" "0")
expect_part("what the worker says" "${out}"
    "[ERROR] [SUBPROCESS] [PLUGINS] [report] is left out: its digest is another\n")

# The host dies in the middle, by a trap: an option it was given is kept, or is as it was.
run_with(dying report/main.sq "${listen}(\"study:slice\", @(_) (-0x7fffffffffffffff - 1) / -1)")
run(COMMAND ${host} --options)
string(REGEX MATCH "report:bins = [24] " line "${out}")
expect_part("an option that was set" "${line}" "report:bins")

# A worker that nobody asks for anything ends with its input.
file(WRITE "${WORK}/nothing" "")
run(INPUT "${WORK}/nothing" COMMAND ${acquire} --worker)
expect_equal("status of an idle worker" "${status}" "0")
expect_part("its words" "${out}" "[DEVICE] 0 tiles sent")

# No worker, a folder that can't be made.
run(COMMAND ${host} --out none --worker nowhere)
expect_equal("status without a worker" "${status}" "1")
expect_part("message" "${err}" "host: there is no worker \"")
expect_part("which one" "${err}" "nowhere\"\n")
expect_part("summary" "${out}" "host: 0 packets, 0 bytes in 0.000 s (0.0 MB/s), 0 slices measured, 0 deaths survived, 1 lost")
run(COMMAND ${host} --out none --plugins nowhere)
expect_equal("status without plug-ins" "${status}" "1")
expect_part("message" "${err}" "host: no plug-in knows the device\n")
run(COMMAND ${host} --out digits.pgm/none)
expect_equal("status without a folder" "${status}" "1")
expect_equal("message" "${err}" "host: digits.pgm/none/study.packets can't be created\n")
finish()
