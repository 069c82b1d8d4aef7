# dro_module(NAME FOLDER USES library... SOURCES file...): a folder as a static library that shows its headers to those who
# use it. A module sees the headers of the libraries that it may use, and of theirs; including any other does not compile.
function(dro_module name folder)
    cmake_parse_arguments(MODULE "" "" "USES;SOURCES" ${ARGN})
    list(TRANSFORM MODULE_SOURCES PREPEND ${folder}/ REGEX "^[^/]")
    add_library(${name} STATIC ${MODULE_SOURCES})
    target_include_directories(${name} PUBLIC ${folder})
    target_link_libraries(${name} PUBLIC ${MODULE_USES} PRIVATE dro_flags)
endfunction()
