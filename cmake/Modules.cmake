# dro_module(NAME FOLDER USES library... SOURCES file...): builds a folder as a static library. Its headers are visible to
# the libraries that use it, directly or indirectly. Including any other library's header does not compile.
function(dro_module name folder)
    cmake_parse_arguments(MODULE "" "" "USES;SOURCES" ${ARGN})
    list(TRANSFORM MODULE_SOURCES PREPEND ${folder}/ REGEX "^[^/]")
    add_library(${name} STATIC ${MODULE_SOURCES})
    target_include_directories(${name} PUBLIC ${folder})
    target_link_libraries(${name} PUBLIC ${MODULE_USES} PRIVATE dro_flags)
endfunction()
