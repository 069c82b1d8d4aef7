// dro_get_set_config_envelope.h - the envelope of a cloud command. Runs on the thread that delivers the command and
// holds it until the command is through, its acknowledgement, if it has one at once, included.
#pragma once

namespace dro {

// Carries out the command in the envelope text `message`. Returns 0 when a handler was called or an unknown command was
// acknowledged, -1 on every other failure.
int parseUUIDBaseBuffer(const char* message);

}  // namespace dro
