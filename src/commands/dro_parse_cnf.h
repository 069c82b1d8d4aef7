// dro_parse_cnf.h - recognises commands among the cloud's messages: JSON with a UUID. Called under mutex_all.
#pragma once

namespace dro {

// Passes a command to the command layer and returns its result. Returns 0 for a message that is not JSON or not a
// command.
int parseConfigBuff(const char* message);

}  // namespace dro
