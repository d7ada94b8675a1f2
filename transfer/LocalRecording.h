#pragma once

#include <string>

/// Recordings that an application has left at the server as a chain of
/// segments, or with ranges that are missing: side files beside them, with
/// the endings ".li" and ".fi", tell. Their bytes are not those of one file.

/// @return "" when the file is whole by itself, else why not
std::string WhyInPieces(const std::string& path);

/// The recording that a segment or a side file belongs to, without its
/// extension: for "a/run(2).tm" and "a/run.li" it is "a/run". "" for others.
std::string StemOfPiece(const std::string& path);
