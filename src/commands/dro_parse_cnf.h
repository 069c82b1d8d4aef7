// dro_parse_cnf.h - whether a message from the cloud is a command: JSON with a UUID. Called under mutex_all.
#pragma once

namespace dro {

// Hands a command to the command layer and returns its result; 0 for a message that is no JSON or no command.
int parseConfigBuff(const char* message);

}  // namespace dro
