# Install rules. The components become packages: the agent, the platform's host libraries, habctl, and the files needed
# to build against the libraries. The lab is installed only when its component is requested.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
    # The agent is a system service: its unit and its libraries are expected under /usr.
    set(CMAKE_INSTALL_PREFIX /usr CACHE PATH "Where to install" FORCE)
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(default_init systemd)
if(DROAGENT_PLATFORM_DIR)
    set(default_init procd)
endif()
set(DROAGENT_INIT ${default_init} CACHE STRING "Who starts the agent: systemd, procd or none")
set_property(CACHE DROAGENT_INIT PROPERTY STRINGS systemd procd none)

set(DROAGENT_GENERATED ${CMAKE_BINARY_DIR}/packaging)

# dro_install_man(COMPONENT PAGE...): installs pages of docs/man, gzipped.
find_program(GZIP gzip REQUIRED)
function(dro_install_man component)
    foreach(page ${ARGN})
        set(compressed ${DROAGENT_GENERATED}/${page}.gz)
        add_custom_command(OUTPUT ${compressed}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${DROAGENT_GENERATED}
            COMMAND ${GZIP} -9nc ${CMAKE_SOURCE_DIR}/docs/man/${page} > ${compressed}
            DEPENDS ${CMAKE_SOURCE_DIR}/docs/man/${page} VERBATIM)
        add_custom_target(man-${page} ALL DEPENDS ${compressed})
        string(REGEX MATCH "[0-9]$" section ${page})
        install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component}
            ${DROAGENT_INSTALL_RULE})
    endforeach()
endfunction()

# ---- The agent ----
install(TARGETS droagent DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT agent)
install(FILES ${CMAKE_SOURCE_DIR}/CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/droagent COMPONENT agent)
dro_install_man(agent droagent.8)
math(EXPR DROAGENT_TASKS "${DROAGENT_THREAD_LIMIT} + 96")
set(units droagent.service droagent-health.service droagent-health.timer)
list(TRANSFORM units PREPEND ${DROAGENT_GENERATED}/)
foreach(unit ${units})
    cmake_path(GET unit FILENAME name)
    configure_file(packaging/systemd/${name}.in ${unit} @ONLY)
endforeach()
configure_file(packaging/procd/droagent.init.in ${DROAGENT_GENERATED}/droagent.init @ONLY)
if(DROAGENT_INIT STREQUAL "systemd")
    install(FILES ${units} DESTINATION lib/systemd/system COMPONENT agent)
elseif(DROAGENT_INIT STREQUAL "procd")
    install(PROGRAMS ${DROAGENT_GENERATED}/droagent.init DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/init.d
        RENAME droagent COMPONENT agent)
elseif(NOT DROAGENT_INIT STREQUAL "none")
    message(FATAL_ERROR "DROAGENT_INIT is '${DROAGENT_INIT}': systemd, procd or none")
endif()

# ---- habconform, a development file. Firmware receives it only when the component dev is requested. ----
if(DROAGENT_PLATFORM_DIR)
    set(DROAGENT_INSTALL_RULE EXCLUDE_FROM_ALL)
endif()
install(TARGETS habconform DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev ${DROAGENT_INSTALL_RULE})
dro_install_man(dev habconform.1)

if(DROAGENT_PLATFORM_DIR)
    return() # the platform supplies its own libraries and tools
endif()

# ---- The platform's host libraries and habctl ----
install(TARGETS hablib habdynlog EXPORT hab
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT platform NAMELINK_COMPONENT dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hab)
install(TARGETS habctl DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT habctl)
dro_install_man(habctl habctl.1)
set(DROAGENT_COMPLETIONS ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES packaging/completion/drolab DESTINATION ${DROAGENT_COMPLETIONS} RENAME habctl COMPONENT habctl)

# ---- Development files ----
set(DROAGENT_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hablib)
install(FILES platform/include/hablib.h platform/include/habdynlog.h platform/include/habhost.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hab COMPONENT dev)
install(EXPORT hab FILE hablib-targets.cmake NAMESPACE hab:: DESTINATION ${DROAGENT_PACKAGE_DIR} COMPONENT dev)
configure_package_config_file(packaging/cmake/hablib-config.cmake.in ${DROAGENT_GENERATED}/hablib-config.cmake
    INSTALL_DESTINATION ${DROAGENT_PACKAGE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${DROAGENT_GENERATED}/hablib-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${DROAGENT_GENERATED}/hablib-config.cmake ${DROAGENT_GENERATED}/hablib-config-version.cmake
    DESTINATION ${DROAGENT_PACKAGE_DIR} COMPONENT dev)
# The .pc file computes the prefix from its own location, so an installed tree can be moved.
file(RELATIVE_PATH DROAGENT_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(packaging/cmake/libhablib.pc.in ${DROAGENT_GENERATED}/libhablib.pc @ONLY)
install(FILES ${DROAGENT_GENERATED}/libhablib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# ---- The lab: `cmake --install BUILD --component lab` ----
install(TARGETS drolab droagent-quick DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT lab EXCLUDE_FROM_ALL)
set(DROAGENT_INSTALL_RULE EXCLUDE_FROM_ALL)
dro_install_man(lab drolab.1)
install(FILES packaging/completion/drolab DESTINATION ${DROAGENT_COMPLETIONS} COMPONENT lab EXCLUDE_FROM_ALL)
