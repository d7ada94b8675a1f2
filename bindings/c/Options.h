#pragma once

#include <cstdint>
#include <string>

#include "bindings/c/Face.h"
#include "transfer/ProjectClient.h"

/// Options of the C face as the library wants them.
///
/// @param words what is wrong with a rule; else untouched
/// @return KQFT_OK, or what is wrong with the options
std::int32_t PlaceOf(const kqft_client_options* options, SServerPlace& place);
std::int32_t PutOf(const char* path, const kqft_options* options, SPutRequest& request,
                   std::string& words);
std::int32_t GetOf(const char* project, const char* into, const kqft_options* options,
                   SGetRequest& request, std::string& words);
std::int32_t VerifyOf(const char* project, const char* local, const kqft_options* options,
                      SVerifyRequest& request, std::string& words);
std::int32_t WatchOf(const char* directory, const kqft_options* options, SWatchRequest& request,
                     std::string& words);
