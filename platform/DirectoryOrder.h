#pragma once

#include <string>

/// Whether one name of a listing stands before the other: ASCII letters in
/// either case are the same, then the bytes decide.
bool IsListedBefore(const std::string& a, const std::string& b);
