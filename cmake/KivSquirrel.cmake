# The script engine: target kivUtilSquirrel, a shared library of its own, because users' binding templates call the
# engine as kivCore does. Compiled from its sources in every build tree, so that sanitizers see into it.
find_path(KIV_SQUIRREL_SOURCE include/squirrel.h PATH_SUFFIXES src/squirrel NO_CMAKE_SYSTEM_PATH
    DOC "Sources of the engine Squirrel 3.1: the folder of include/, squirrel/ and sqstdlib/")
if(NOT KIV_SQUIRREL_SOURCE)
    message(FATAL_ERROR "The sources of the script engine Squirrel 3.1 were not found. Name their folder by "
        "-DKIV_SQUIRREL_SOURCE=/folder/of/it, or have them in src/squirrel of CMAKE_PREFIX_PATH.")
endif()
file(STRINGS "${KIV_SQUIRREL_SOURCE}/squirrel/sqclass.cpp" patched REGEX MEMBER_MAX_COUNT)
if(NOT patched)
    message(WARNING "${KIV_SQUIRREL_SOURCE} lacks the distribution's security patches")
endif()

file(GLOB engine_sources "${KIV_SQUIRREL_SOURCE}/squirrel/*.cpp" "${KIV_SQUIRREL_SOURCE}/sqstdlib/*.cpp")
file(GLOB engine_headers "${KIV_SQUIRREL_SOURCE}/include/*.h")
add_library(kivUtilSquirrel SHARED ${engine_sources})
add_library(kivCore::kivUtilSquirrel ALIAS kivUtilSquirrel)
target_sources(kivUtilSquirrel PUBLIC
    FILE_SET HEADERS BASE_DIRS "${KIV_SQUIRREL_SOURCE}/include" FILES ${engine_headers})

# The one place of the types' sizes; every includer gets them from here, pkg-config too.
target_compile_definitions(kivUtilSquirrel PUBLIC _SQ64 SQUSEDOUBLE)

# This is foreign C++14: without the project's warnings, and without _UNICODE, which would make its characters wide.
set_target_properties(kivUtilSquirrel PROPERTIES
    COMPILE_OPTIONS "-U_UNICODE" CXX_STANDARD 14 CXX_EXTENSIONS OFF SYSTEM ON
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
# The interpreter and the functions that natives call are compiled as one, so that the short ones get inlined.
set_source_files_properties("${KIV_SQUIRREL_SOURCE}/squirrel/sqvm.cpp" "${KIV_SQUIRREL_SOURCE}/squirrel/sqapi.cpp"
    PROPERTIES UNITY_GROUP calls)
set_target_properties(kivUtilSquirrel PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
if(WIN32)
    set_target_properties(kivUtilSquirrel PROPERTIES PREFIX "") # kivUtilSquirrel.dll
    target_compile_definitions(kivUtilSquirrel
        PRIVATE SQUIRREL_API=__declspec\(dllexport\) INTERFACE SQUIRREL_API=__declspec\(dllimport\))
else()
    target_compile_definitions(kivUtilSquirrel PRIVATE "SQUIRREL_API=extern __attribute__((visibility(\"default\")))")
    target_link_options(kivUtilSquirrel PRIVATE LINKER:-Bsymbolic)
endif()
if(MSVC)
    target_compile_options(kivUtilSquirrel PRIVATE /w /EHsc /GR- /utf-8)
else()
    # Natives may throw C++ exceptions, so frames of the engine keep what unwinding needs. Integers of scripts wrap.
    target_compile_options(kivUtilSquirrel PRIVATE -w -fexceptions -fno-rtti -fno-strict-aliasing -fwrapv
        $<$<CONFIG:Release,RelWithDebInfo>:-O3>)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU") # else that file is too large for it to inline all it should
        target_compile_options(kivUtilSquirrel PRIVATE --param=inline-unit-growth=300 --param=large-unit-insns=100000)
    endif()
    if(NOT WIN32)
        target_compile_options(kivUtilSquirrel PRIVATE -fno-semantic-interposition -fno-plt)
    endif()
endif()
if(KIV_SANITIZE) # without "undefined": numbers and shifts of scripts come out as the processor has them
    target_compile_options(kivUtilSquirrel PRIVATE -fsanitize=${KIV_SANITIZE} -fno-omit-frame-pointer)
endif()
