#pragma once

#include <string>
#include <vector>

/// The candidate that a misspelt word was probably meant to be; "" when none
/// is near.
std::string Suggest(const std::string& word, const std::vector<std::string>& candidates);
