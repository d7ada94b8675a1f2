#pragma once

#include <string>
#include <string_view>

#include "KQFileTransServiceExport.h"

/// Why one part of a path cannot be the name of a file or directory of this
/// machine; "" when it can. On POSIX every byte but the separator and NUL may
/// stand in a name. On Windows names are UTF-8 here, without `<>:"|?*` and
/// control characters (":" would reach a stream beside the file), do not end
/// with a dot or a blank, and are not those of devices, whatever their
/// extension: CON, PRN, AUX, NUL, COM1, LPT1 and the like.
KQFT_API std::string WhyNoLocalName(std::string_view name);

/// The name as this machine compares names: two that fold to the same name one
/// file. The letters as they are on POSIX; on Windows in upper case.
KQFT_API std::string FoldLocalName(const std::string& name);
