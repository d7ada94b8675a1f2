#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// What the small text files beside a project have in common: lines, names of
/// any bytes in them, and a last line that tells a torn or changed one.

/// The text with its last line, the digest over all before it.
std::string Seal(std::string text);

/// Takes the last line off.
/// @return false when the text was cut off, went on, or is not what was sealed
bool Unseal(std::string_view& text);

/// A name as one word of a line: blanks, "%", control characters and DEL
/// become "%XX", other bytes stay. "" becomes "%".
std::string EscapeName(std::string_view name);
bool UnescapeName(std::string_view word, std::string& name);

/// The whole text as a number that is not negative; false for anything else.
/// With `negative` a sign is allowed.
bool ParseNumber(std::string_view text, std::int64_t& number, int base = 10, bool negative = false);

/// Takes the front off up to `end`, which goes too. Without an `end` in the
/// text it is all taken.
std::string_view TakeUpTo(std::string_view& text, char end);

/// Takes `front` off where the text begins with it.
bool TakeFront(std::string_view& text, std::string_view front);
