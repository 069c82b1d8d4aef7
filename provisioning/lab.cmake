# What the lab supplies in place of a deployment's secrets. Nothing here opens anything: the values are made up.
# A deployment writes a file of its own with the same variables and keeps it out of the repository (docs/provisioning.md).

# A URL belongs to an environment when it contains one of its markers.
set(DROAGENT_MARKERS_NONPRODUCTION qa.dro.localhost dev.dro.localhost stag.dro.localhost)
set(DROAGENT_MARKER_PRODUCTION api.dro.localhost)

# Shared with the cloud: 16 bytes, as hexadecimal pairs.
set(DROAGENT_TOKEN_SECRET 6c 61 62 2d 6f 6e 6c 79 2d 73 65 63 72 65 74 21)

# API keys, each in the two pieces that the binary keeps apart.
set(DROAGENT_KEY_PRODUCTION LABPROD0LABPROD0LABPROD0LABPROD0 LABPROD1LABPROD1LABPROD1LABPROD1)
set(DROAGENT_KEY_NONPRODUCTION 0123456789abcd ef0123456789abc)

# Where the agent looks for the certificates that it trusts; the first file that can be read is taken.
set(DROAGENT_CA_BUNDLES
    /usr/share/ostra/certs/ca-bundle-mega.crt
    /opt/jorvagent/certs/ca-bundle-mega.crt
    ${CMAKE_SOURCE_DIR}/build/lab/lab/ca-bundle.crt)
