# Generates provisioning.h from the checked provisioning file. Stores no secret in one piece.
if(NOT DROAGENT_PROVISIONING)
    message(FATAL_ERROR
        "No provisioning file. Name the deployment's with -DDROAGENT_PROVISIONING=FILE: it supplies the cloud's host "
        "markers, the token secret, the API keys and the CA bundle paths. Start with a copy of "
        "provisioning/sample.cmake.")
endif()
include(provisioning/check.cmake)
dro_read_provisioning(${DROAGENT_PROVISIONING})

# Sets `out` to the texts as a C++ initialiser list.
function(dro_texts out)
    list(TRANSFORM ARGN PREPEND "\"")
    list(TRANSFORM ARGN APPEND "\"")
    list(JOIN ARGN ", " joined)
    set(${out} "${joined}" PARENT_SCOPE)
endfunction()

# Sets `out` to every second byte of the secret, starting at byte `first`. Each byte is masked by its position.
function(dro_secret_half out first)
    set(bytes "")
    foreach(i RANGE ${first} 15 2)
        list(GET DROAGENT_TOKEN_SECRET ${i} byte)
        math(EXPR mask "(0x5b + 29 * ${i}) % 256")
        math(EXPR stored "0x${byte} ^ ${mask}" OUTPUT_FORMAT HEXADECIMAL)
        list(APPEND bytes ${stored})
    endforeach()
    list(JOIN bytes ", " joined)
    set(${out} "${joined}" PARENT_SCOPE)
endfunction()

set(DRO_REQUIRE_CA_BUNDLE false)
if(DROAGENT_REQUIRE_CA_BUNDLE)
    set(DRO_REQUIRE_CA_BUNDLE true)
endif()
dro_secret_half(DRO_SECRET_EVEN 0)
dro_secret_half(DRO_SECRET_ODD 1)
dro_texts(DRO_MARKERS_NONPRODUCTION ${DROAGENT_MARKERS_NONPRODUCTION})
dro_texts(DRO_MARKER_PRODUCTION ${DROAGENT_MARKER_PRODUCTION})
dro_texts(DRO_KEY_PRODUCTION ${DROAGENT_KEY_PRODUCTION})
dro_texts(DRO_KEY_NONPRODUCTION ${DROAGENT_KEY_NONPRODUCTION})
dro_texts(DRO_CA_BUNDLES ${DROAGENT_CA_BUNDLES})
configure_file(${CMAKE_SOURCE_DIR}/cmake/provisioning.h.in ${CMAKE_BINARY_DIR}/generated/provisioning.h @ONLY)
