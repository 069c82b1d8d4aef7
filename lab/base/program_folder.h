// program_folder.h - where this program lies, and with it the agent's binaries. Any thread.
#pragma once

#include <filesystem>
#include <string>

namespace lab {

// Looked up by the first call, which must come before namespaces are entered: the path is lost when /tmp is covered.
const std::filesystem::path& programFolder();

// The path of a program beside this one.
std::string besideUs(const std::string& program);

}  // namespace lab
