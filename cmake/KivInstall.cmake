# What an installed kivCore consists of, and how find_package and pkg-config find it.
include(CMakePackageConfigHelpers)
set(KIV_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/kivCore")

set(KIV_ENGINE_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/kivUtilSquirrel")
install(TARGETS kivCore EXPORT kivCoreTargets FILE_SET HEADERS)
install(TARGETS kivUtilSquirrel EXPORT kivCoreTargets FILE_SET HEADERS DESTINATION ${KIV_ENGINE_INCLUDE_DIR})
if(NOT WIN32)
    set_target_properties(kivCore PROPERTIES INSTALL_RPATH "$ORIGIN") # the engine is beside it
endif()
install(FILES "${KIV_SQUIRREL_SOURCE}/COPYRIGHT" DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright.squirrel)
install(EXPORT kivCoreTargets NAMESPACE kivCore:: DESTINATION ${KIV_PACKAGE_DIR})
if(MINGW)
    install(FILES ${KIV_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/kivCoreConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/kivCoreConfig.cmake" INSTALL_DESTINATION ${KIV_PACKAGE_DIR})
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kivCoreConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/kivCoreConfig.cmake" "${PROJECT_BINARY_DIR}/kivCoreConfigVersion.cmake"
    DESTINATION ${KIV_PACKAGE_DIR})

# The prefix in kivCore.pc is relative to the file, so an installed tree can be moved.
file(RELATIVE_PATH KIV_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
get_target_property(KIV_ENGINE_DEFINITIONS kivUtilSquirrel INTERFACE_COMPILE_DEFINITIONS)
list(TRANSFORM KIV_ENGINE_DEFINITIONS REPLACE ".+" "\"-D\\0\"")
list(JOIN KIV_ENGINE_DEFINITIONS " " KIV_ENGINE_DEFINITIONS)
configure_file("${PROJECT_SOURCE_DIR}/cmake/kivCore.pc.in" "${PROJECT_BINARY_DIR}/kivCore.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kivCore.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(PROJECT_IS_TOP_LEVEL)
    if(WIN32)
        set(CPACK_GENERATOR ZIP)
    else()
        set(CPACK_GENERATOR TGZ)
    endif()
    set(CPACK_STRIP_FILES ON)
    set(CPACK_VERBATIM_VARIABLES ON)
    include(CPack)
endif()
