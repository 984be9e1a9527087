# Finds utf8proc and defines utf8proc::utf8proc. Releases before 2.9 install no CMake package, so header and library are
# looked for by name where there is none.
find_package(utf8proc CONFIG QUIET)
include(FindPackageHandleStandardArgs)
if(utf8proc_FOUND AND TARGET utf8proc::utf8proc)
    find_package_handle_standard_args(utf8proc CONFIG_MODE)
    return()
endif()

find_path(utf8proc_INCLUDE_DIR utf8proc.h)
find_library(utf8proc_LIBRARY NAMES utf8proc utf8proc_static libutf8proc)
if(utf8proc_INCLUDE_DIR)
    file(STRINGS "${utf8proc_INCLUDE_DIR}/utf8proc.h" utf8proc_VERSION
        REGEX "define UTF8PROC_VERSION_(MAJOR|MINOR|PATCH)")
    list(TRANSFORM utf8proc_VERSION REPLACE ".* ([0-9]+).*" "\\1")
    list(JOIN utf8proc_VERSION "." utf8proc_VERSION)
endif()
find_package_handle_standard_args(utf8proc
    REQUIRED_VARS utf8proc_LIBRARY utf8proc_INCLUDE_DIR VERSION_VAR utf8proc_VERSION)
mark_as_advanced(utf8proc_INCLUDE_DIR utf8proc_LIBRARY)

if(utf8proc_FOUND AND NOT TARGET utf8proc::utf8proc)
    add_library(utf8proc::utf8proc UNKNOWN IMPORTED)
    set_target_properties(utf8proc::utf8proc PROPERTIES
        IMPORTED_LOCATION "${utf8proc_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${utf8proc_INCLUDE_DIR}")
    if(WIN32 AND NOT utf8proc_LIBRARY MATCHES "\\.dll\\.a$")
        # Else the header declares its functions as imported from a DLL.
        set_property(TARGET utf8proc::utf8proc PROPERTY INTERFACE_COMPILE_DEFINITIONS UTF8PROC_STATIC)
    endif()
endif()
