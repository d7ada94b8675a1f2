#pragma once

/// The standard streams as a person meets them.

enum class EStream { kInput, kOutput, kError };

/// True when the stream is a terminal, not a file or a pipe.
bool IsTerminal(EStream stream);

/// Columns of the terminal behind the output stream; 80 when it tells none.
int TerminalWidth();
