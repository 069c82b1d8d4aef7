# A deployment's provisioning file. Copy it out of the repository, replace every <placeholder>, and check the copy:
#
#     cmake -P provisioning/check.cmake FILE
#
# The check fails while a placeholder is left. Every variable set here must be a setting; start the names of your own
# variables with an underscore.

# ---- Required ----

# A base URL that contains one of these belongs to the non-production environment. Three texts: the QA, the development
# and the staging host. No marker may contain another one. Where host names contain each other, add what surrounds them:
# //api.example/ is not part of https://qa.api.example/.
set(DROAGENT_MARKERS_NONPRODUCTION "<QA host>" "<development host>" "<staging host>")

# A base URL that contains this text, and none of the above, belongs to the production environment.
set(DROAGENT_MARKER_PRODUCTION "<production host>")

# The secret that signs every request, shared with the cloud: 16 bytes, as pairs of hexadecimal digits, such as
# 00 01 02.
set(DROAGENT_TOKEN_SECRET "<16 pairs>")

# The cloud's API keys, one for each environment. The binary stores each in two pieces.
set(DROAGENT_KEY_PRODUCTION "<32 letters and digits>" "<32 letters and digits>")
set(DROAGENT_KEY_NONPRODUCTION "<14 lower-case hexadecimal digits>" "<15 lower-case hexadecimal digits>")

# Absolute paths on the router, of files with trusted certificates. Each request uses the first readable one.
set(DROAGENT_CA_BUNDLES "<path>" "<path>")

# ---- Optional, with their defaults ----

# ON: without a readable CA bundle nothing is sent, and the request counts as unanswered. OFF: it is sent, and the
# server's certificate is not verified.
# set(DROAGENT_REQUIRE_CA_BUNDLE OFF)

# Seconds for a whole request, up to 86400. 0: no limit.
# set(DROAGENT_TRANSFER_LIMIT 0)

# Bytes of an answer, up to 999999999. A longer one is a failed request. Parsing takes up to 40 times that much memory.
# 0: no limit.
# set(DROAGENT_LARGEST_ANSWER 262144)

# Seconds for which a TLS session is resumed after its full handshake, up to 604800. Until then the server's certificate
# is not verified again. 0: never resumed.
# set(DROAGENT_TLS_SESSION_LIFE 0)

# The most monitors of orders and producers of events at a time, together, from 1 to 9999. Beyond it, orders are refused
# and events are dropped.
# set(DROAGENT_THREAD_LIMIT 256)
