# dro_room(NAME FOLDER USES library... SOURCES file...): a folder as a static library that shows its headers to those who
# use it. A room sees the headers of the libraries that it may use, and of theirs; including any other does not compile.
function(dro_room name folder)
    cmake_parse_arguments(ROOM "" "" "USES;SOURCES" ${ARGN})
    list(TRANSFORM ROOM_SOURCES PREPEND ${folder}/ REGEX "^[^/]")
    add_library(${name} STATIC ${ROOM_SOURCES})
    target_include_directories(${name} PUBLIC ${folder})
    target_link_libraries(${name} PUBLIC ${ROOM_USES} PRIVATE dro_flags)
endfunction()
