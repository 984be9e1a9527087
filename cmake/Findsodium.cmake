# Finds libsodium and defines sodium::sodium. It brings no CMake package, so header and library are looked for by name.
include(FindPackageHandleStandardArgs)
find_path(sodium_INCLUDE_DIR sodium.h)
find_library(sodium_LIBRARY NAMES sodium libsodium)
if(sodium_INCLUDE_DIR)
    file(STRINGS "${sodium_INCLUDE_DIR}/sodium/version.h" sodium_VERSION REGEX "define SODIUM_VERSION_STRING ")
    string(REGEX REPLACE ".*\"([0-9.]+)\".*" "\\1" sodium_VERSION "${sodium_VERSION}")
endif()
find_package_handle_standard_args(sodium
    REQUIRED_VARS sodium_LIBRARY sodium_INCLUDE_DIR VERSION_VAR sodium_VERSION)
mark_as_advanced(sodium_INCLUDE_DIR sodium_LIBRARY)

if(sodium_FOUND AND NOT TARGET sodium::sodium)
    add_library(sodium::sodium UNKNOWN IMPORTED)
    set_target_properties(sodium::sodium PROPERTIES
        IMPORTED_LOCATION "${sodium_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${sodium_INCLUDE_DIR}")
    if(sodium_LIBRARY MATCHES "\\.(a|lib)$" AND NOT sodium_LIBRARY MATCHES "\\.dll\\.a$")
        # Else the header marks its functions as visible outside.
        set_property(TARGET sodium::sodium PROPERTY INTERFACE_COMPILE_DEFINITIONS SODIUM_STATIC)
        if(MINGW) # Its own build checks the sizes of copies, which MinGW has in a library of its own.
            set_property(TARGET sodium::sodium PROPERTY INTERFACE_LINK_LIBRARIES -l:libssp.a)
        endif()
    endif()
endif()
