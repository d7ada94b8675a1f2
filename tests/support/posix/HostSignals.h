#pragma once

// The signals of a POSIX system are those of <csignal>.

// The system closes what a program that was killed had open.
constexpr bool kMayKeepSockets = false;
