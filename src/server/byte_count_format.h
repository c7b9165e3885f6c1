#pragma once

#include <QString>
#include <cstdint>

/// A byte count as a file manager shows sizes: decimal units (1 KB = 1000 bytes), "bytes"
/// ("1 byte") below a kilobyte, whole kilobytes, one decimal for megabytes, two from gigabytes
/// up, trailing fraction zeros dropped, "." as the decimal point; zero reads "0 bytes".
/// Negative counts keep their sign: "-1.5 MB".
QString formatByteCount(std::int64_t bytes);
