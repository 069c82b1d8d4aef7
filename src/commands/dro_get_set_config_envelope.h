// dro_get_set_config_envelope.h - the envelope of a cloud command. Runs on the thread that delivers the command and
// blocks until the command is complete, including an immediate acknowledgement.
#pragma once

namespace dro {

// Executes the command in the envelope text `message`. Returns 0 when a handler was called or an unknown command was
// acknowledged, -1 on any other failure.
int parseUUIDBaseBuffer(const char* message);

}  // namespace dro
