// SoC property files as data: `name[.scope]=value` lines with where they stand, and the lines that
// can't be read with why. Pure parsing, no model; `BoardLoader` applies the result.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace Board {

/// One property. At most one of `chip` (not empty) and `unit` is given; with neither the property
/// holds for everything.
struct PropertyLine {
  unsigned int number = 0;  ///< counted from 1
  std::string name;
  std::string chip;
  std::optional<unsigned int> unit;
  std::string value;
};

/// One line that was refused.
struct Refusal {
  unsigned int number = 0;
  std::string cause;
};

/// What a file may ask of this process. Reading stops behind the last three.
struct PropertyFileLimits {
  std::size_t lineBytes = 4096;
  std::size_t nameBytes = 255;  ///< a name is a key, and a key has to fit one message
  std::size_t fileBytes = 16u << 20;
  std::size_t properties = 200'000;
  std::size_t refusals = 10'000;
};

/// A file that has been read. Both lists are in the order of the file.
///
/// The form of a line: blanks around name and value don't count. A line that begins with `#` is a
/// comment, and so is the rest of a line from a `#` with a blank before it. The name reaches to the
/// first `=`. What stands in it behind the last dot is the scope, a unit number (digits alone) or a
/// chip id (a letter first, and a digit somewhere); names are letters, digits and `_ . -`. Lines
/// end with LF or CR LF, the last one also with the file.
struct PropertyFile {
  std::string name;
  std::vector<PropertyLine> lines;
  std::vector<Refusal> refusals;
};

/// Reads all of `in`; `name` is what messages call it. Uses memory for what it keeps, never for
/// what it refuses: a line over the limit is passed over as it is read.
PropertyFile readProperties(std::istream& in, std::string name,
                            PropertyFileLimits const& limits = {});

/// The same from the file system. Throws std::runtime_error "PATH: cause" if it can't be read.
PropertyFile readPropertyFile(std::string const& path, PropertyFileLimits const& limits = {});

/// A chip id as it compares: ids differ only where these do, since files mix their case.
std::string chipKey(std::string const& chip);

}  // namespace Board
