# A router platform: the vendor's headers and shared libraries in one folder.
find_library(HABLIB hablib PATHS ${DROAGENT_PLATFORM_DIR}/lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
find_library(HABDYNLOG habdynlog PATHS ${DROAGENT_PLATFORM_DIR}/lib NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH REQUIRED)
foreach(name hablib habdynlog)
    string(TOUPPER ${name} variable)
    add_library(${name} SHARED IMPORTED GLOBAL)
    set_target_properties(${name} PROPERTIES
        IMPORTED_LOCATION ${${variable}}
        INTERFACE_INCLUDE_DIRECTORIES ${DROAGENT_PLATFORM_DIR}/include)
endforeach()
