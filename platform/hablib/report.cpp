#include "report.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "stderr_lines.h"

namespace hab {

namespace {

std::string lostReport(std::uint64_t lost) {
    return "hablib: lines lost here, because they could not be written: " + std::to_string(lost) + "\n";
}

}  // namespace

void complain(std::string_view path, std::string_view text, std::string_view cause) noexcept {
    static constinit host::StderrLines lines(lostReport);
    std::array<char, 8192> line;
    const auto length = [](std::string_view part) { return static_cast<int>(part.size()); };
    const int size = std::snprintf(line.data(), line.size() - 1, "hablib: %.*s: %.*s%s%.*s", length(path), path.data(),
                                   length(text), text.data(), cause.empty() ? "" : ": ", length(cause), cause.data());
    const std::size_t end = std::min(static_cast<std::size_t>(size), line.size() - 2);
    line[end] = '\n';
    try {
        lines.write({line.data(), end + 1});
    } catch (const std::exception&) {  // no memory for the number of lost lines; the next line reports it
    }
}

void Episode::failed(std::string_view cause) noexcept {
    if (!failing_.exchange(true)) {
        complain(path_, begin_, cause);
    }
}

void Episode::end() noexcept {
    if (failing_.exchange(false)) {
        complain(path_, end_);
    }
}

}  // namespace hab
