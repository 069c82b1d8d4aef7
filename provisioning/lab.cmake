# The lab's values in place of a deployment's secrets. They are fictional and give access to nothing. sample.cmake
# describes the settings.

# A URL belongs to an environment when it contains one of its markers.
set(DROAGENT_MARKERS_NONPRODUCTION qa.dro.localhost dev.dro.localhost stag.dro.localhost)
set(DROAGENT_MARKER_PRODUCTION api.dro.localhost)

# Shared with the cloud: 16 bytes, as hexadecimal pairs.
set(DROAGENT_TOKEN_SECRET 6c 61 62 2d 6f 6e 6c 79 2d 73 65 63 72 65 74 21)

# API keys, each in the two parts that the binary stores separately.
set(DROAGENT_KEY_PRODUCTION LABPROD0LABPROD0LABPROD0LABPROD0 LABPROD1LABPROD1LABPROD1LABPROD1)
set(DROAGENT_KEY_NONPRODUCTION 0123456789abcd ef0123456789abc)

# The agent's CA bundle paths; the first readable file is used.
set(DROAGENT_CA_BUNDLES
    /usr/share/ostra/certs/ca-bundle-mega.crt
    /opt/jorvagent/certs/ca-bundle-mega.crt
    ${CMAKE_SOURCE_DIR}/build/lab/lab/ca-bundle.crt)
