#pragma once

#include <cstdint>
#include <string>

/// Numbers and names as people read them.

/// "512 B", "1.5 GiB".
std::string FormatSize(std::int64_t bytes);

/// "1.5 GiB (1,610,612,736 bytes)"; below 1 KiB "512 bytes".
std::string FormatExactSize(std::int64_t bytes);

/// "0:07", "1:02:03".
std::string FormatDuration(std::int64_t seconds);

/// "9,996".
std::string FormatCount(std::size_t count);

/// "1 file", "12 files".
std::string FormatFiles(std::size_t count);

/// A name that is safe to show: control characters, which could move the
/// cursor of a terminal or fake a line, become "\xNN".
std::string Printable(const std::string& name);

/// The same for the protocol's names: "\" becomes "/".
std::string PrintableServerName(std::string name);

/// True for text that every UTF-8 reader accepts.
bool IsUtf8(const std::string& text);

/// The text with every byte that is part of no UTF-8 character replaced by
/// U+FFFD.
std::string ReplaceNonUtf8(const std::string& text);
