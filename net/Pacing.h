#pragma once

/// Questions that a client may have on their way to a server at a time. One
/// that sends more without waiting for answers floods: a manager that listens
/// answers the further ones with pauses of some milliseconds, so that others
/// do not wait for it. None is lost.
constexpr int kQuestionsAtOnce = 256;
