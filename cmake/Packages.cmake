# Debian packages that `cpack` builds from the installed components: droagent, libhab1, habctl and libhab-dev.
if(DROAGENT_PLATFORM_DIR)
    return() # router firmware takes the installed tree instead of packages
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR droagent)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_COMPONENTS_ALL agent platform habctl dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The droagent developers <droagent@dro.invalid>")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
# libhab1 is built in the same run, so dpkg-shlibdeps cannot find it. The other packages name it explicitly.
set(own_library "libhab1 (>= ${PROJECT_VERSION})")

# dro_package(COMPONENT NAME SECTION DEPENDS SUMMARY EXTENDED)
function(dro_package component name section depends summary extended)
    string(TOUPPER ${component} COMPONENT)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION "${summary}\n${extended}" PARENT_SCOPE)
endfunction()

dro_package(agent droagent net "${own_library}, habctl (>= ${PROJECT_VERSION}), libcurl4 (>= 7.85), adduser, init-system-helpers"
    "device agent of a home Wi-Fi router"
    "A daemon that joins the router's configuration store with its cloud:\nit obeys cloud commands that a local connector hands it, and reports\nresults, device lists and device events.")
dro_package(platform libhab1 libs ""
    "configuration store and log of a router, for a PC"
    "The store's client library and the log library that router services\nare written against, as host libraries with a store of one file.")
dro_package(habctl habctl utils "${own_library}"
    "command line of the hab store"
    "Makes store files, reads and writes values, shows changes as they\nhappen, and says how the device agent stands.")
dro_package(dev libhab-dev libdevel "${own_library}"
    "configuration store of a router - development files"
    "Headers, pkg-config and CMake package files for programs that use the\nhab store, and habconform, which checks a platform's own libraries.")

set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA
    ${CMAKE_SOURCE_DIR}/packaging/debian/postinst
    ${CMAKE_SOURCE_DIR}/packaging/debian/prerm
    ${CMAKE_SOURCE_DIR}/packaging/debian/postrm)
include(CPack)
