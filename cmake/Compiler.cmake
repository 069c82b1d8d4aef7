# Compiler and linker flags of all our targets: warnings are errors, the binaries are hardened, and no build path
# remains in them.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

add_library(dro_flags INTERFACE)
target_compile_options(dro_flags INTERFACE
    -Wall -Wextra -Wshadow -Wconversion -Werror
    -fstack-protector-strong
    -ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=.)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 and older report the standard library's string concatenation as overlapping copies at -O3.
    target_compile_options(dro_flags INTERFACE $<$<AND:$<CONFIG:Release>,$<COMPILE_LANGUAGE:CXX>>:-Wno-restrict>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(dro_flags INTERFACE -Wthread-safety)
endif()
target_link_options(dro_flags INTERFACE -Wl,-z,relro,-z,now -Wl,--as-needed)
if(DROAGENT_SANITIZE)
    add_compile_options(-fsanitize=${DROAGENT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${DROAGENT_SANITIZE})
    target_sources(dro_flags INTERFACE
        $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:${CMAKE_SOURCE_DIR}/cmake/sanitizer_options.c>)
else()
    target_compile_options(dro_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()
# Stack of every thread that our code starts, in bytes: at least twice the deepest use (docs/architecture.md). It does
# not depend on the C library's default. Frames are several times larger without optimisation or with a sanitizer.
math(EXPR DRO_THREAD_STACK "384 * 1024")
if(DROAGENT_SANITIZE OR CMAKE_BUILD_TYPE STREQUAL "Debug")
    math(EXPR DRO_THREAD_STACK "10 * ${DRO_THREAD_STACK}")
endif()
target_compile_definitions(dro_flags INTERFACE DRO_THREAD_STACK=${DRO_THREAD_STACK})
if(DROAGENT_COVERAGE)
    # The counters are mapped to the profile file, so a killed process keeps its counts.
    add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:SHELL:-fprofile-instr-generate -fcoverage-mapping -mllvm -runtime-counter-relocation>")
    add_link_options(-fprofile-instr-generate)
endif()

include(CheckPIESupported)
check_pie_supported()
