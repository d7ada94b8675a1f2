#pragma once

#include <list>
#include <string>

namespace EU {

/// String and path helpers. "\" and "/" both separate, on every operating
/// system; bytes are never re-encoded.
class CExpertUtils {
 public:
  /// Cut `s` in place to its first / last `n` characters: all of it when it
  /// has no more, "" for n <= 0. @return true.
  static bool Left(std::string& s, int n);
  static bool Right(std::string& s, int n);

  /// Splits `s` at every `sep` and appends the pieces, empty ones included;
  /// "" gives none. @return the number of pieces.
  static int BreakString(const std::string& s, std::list<std::string>& out, const std::string& sep);

  /// The part through the last separator; "" when there is none.
  static std::string PickDirectory(const std::string& path);

  /// A directory above the file: level 1 is the path itself, level 2 the
  /// directory that holds it, each further level one directory more.
  static std::string PickDirectory(const std::string& path, int level);

  /// The last component, trailing separators ignored: "D:\Prj\" gives "Prj".
  static std::string PickFileName(const std::string& path);

  /// What follows the last "." of the last component, without the dot.
  static std::string PickFileExt(const std::string& path);

  /// `name` without its last extension and dot.
  static std::string EreaseFileExt(const std::string& name);

  static void RelaceString(std::string& s, const std::string& from, const std::string& to);

  /// Lowers A to Z in place; every other byte stays.
  static std::string& ToLower(std::string& s);

  /// Creates every missing directory of `path`, up to its last separator.
  /// @return 1 when all exist afterwards, 0 otherwise.
  static int CreateAllDir(const std::string& path);
};

}  // namespace EU
