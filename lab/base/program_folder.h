// program_folder.h - the folder of this program and the agent's binaries. Any thread may call it.
#pragma once

#include <filesystem>
#include <string>

namespace lab {

// Determined on the first call, which must precede enterOwnNamespaces(): a private /tmp would hide the path.
const std::filesystem::path& programFolder();

// The path of another program in the same folder.
std::string besideUs(const std::string& program);

}  // namespace lab
