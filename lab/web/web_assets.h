// web_assets.h - the page's files, embedded in the program. Constants only.
#pragma once

#include <span>

namespace lab {

struct WebAsset {
    const char* path;
    const char* type;
    const char* text;
};

extern const std::span<const WebAsset> kWebAssets;

}  // namespace lab
