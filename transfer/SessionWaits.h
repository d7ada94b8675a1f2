#pragma once

// How long a session waits, and how often it tries.

constexpr int kMomentMs = 5;
constexpr int kAnswerWaitMs = 10000;
constexpr int kFileEndWaitMs = 30000;
constexpr int kRoomWaitMs = 50;

// A server that has sent the end of a file is a moment later ready for the
// next one.
constexpr int kReadyTries = 2000;
constexpr int kReadyPauseMs = 1;
