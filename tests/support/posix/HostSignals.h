#pragma once

// The signals of a POSIX system are those of <csignal>.
