#pragma once

#include <array>
#include <string_view>

/// One choice of the bandwidth menu: its title and the value stored in the configuration file
/// under max_download_kbps or max_upload_kbps (0 is no limit; 1000 is "1 MB/s").
struct BandwidthPreset {
    std::string_view title;
    int value;
};

/// The bandwidth choices, in menu order.
inline constexpr std::array<BandwidthPreset, 10> BANDWIDTH_PRESETS{{
    {"Unlimited", 0},
    {"250 KB/s", 250},
    {"500 KB/s", 500},
    {"1 MB/s", 1000},
    {"2.5 MB/s", 2500},
    {"5 MB/s", 5000},
    {"10 MB/s", 10000},
    {"20 MB/s", 20000},
    {"50 MB/s", 50000},
    {"100 MB/s", 100000},
}};
