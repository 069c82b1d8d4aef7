#include "program_folder.h"

namespace lab {

const std::filesystem::path& programFolder() {
    static const std::filesystem::path kFolder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return kFolder;
}

std::string besideUs(const std::string& program) {
    return (programFolder() / program).string();
}

}  // namespace lab
