/// Reads configuration files of sections with keys, and answers typed lookups with defaults.
///
///     # a comment, also behind anything else: there is no quoting and no escaping
///     key = value          before the first header: in the section with the empty name
///     [section]            what follows the bracket is ignored
///     key = a=b            up to the first "=" it is the key
///
/// A line ends at a line feed, has any length, and loses the blanks, tabs, carriage returns and vertical tabs
/// at its ends; so do names, keys and values, each of which may be empty. The last assignment to a key wins. A
/// header that repeats a name empties that section first; [] does so for the section with the empty name. Any
/// other line is skipped without a word. Bytes pass unchanged, NUL and any encoding included.
///
/// Names are compared byte by byte and with case, and are listed in that order, not in that of the file. Those
/// that a caller gives are not trimmed.
///
/// An IniFile owns all its text; a copy is a deep copy. No call but load reports a failure of its own; where
/// memory runs out, std::bad_alloc passes to the caller.
///
/// | threads at the same time          | has, sections, getters, str, show | load, operator[]         |
/// |-----------------------------------|-----------------------------------|--------------------------|
/// | has, sections, getters, str, show | allowed                           | not on the same object   |
/// | load, operator[]                  | not on the same object            | not on the same object   |
///
/// A write through the reference of operator[] counts as a call of it. Distinct objects are independent.
#ifndef OXU_INIFILE_H
#define OXU_INIFILE_H

#include <map>
#include <string>
#include <vector>

#include "oxu/Export.h"

class OXU_EXPORT IniFile {
 public:
  /// Replaces the whole table by the content of the file. False when it cannot be opened for reading: a line
  /// on standard output says so, and the table is empty. A read error ends the file like its last line; the
  /// lines before it are kept and the result is true. So a directory, which opens and cannot be read, gives
  /// true and an empty table. Where memory runs out, the table keeps what it had got until then.
  bool load(const std::string& path);

  /// True when the section exists, with or without keys.
  bool has(const std::string& section);

  /// True when the section exists and holds the key, be its value empty.
  bool has(const std::string& section, const std::string& key);

  /// The names of all sections, with or without keys, ordered by their bytes. The empty name comes first, where
  /// its section exists.
  std::vector<std::string> sections() const;

  /// The keys and values of a section, to be read or changed; a missing section is created empty. The
  /// reference is valid until the next load or the end of the object.
  std::map<std::string, std::string>& operator[](const std::string& section);

  /// Each getter returns the default where the section or the key is missing, and creates neither. A key that
  /// is present is always converted, whatever its text, and leaves errno alone.
  std::string getString(const std::string& section, const std::string& key, const std::string& defaultValue);

  /// The decimal number at the start of the text as strtol reads it, 0 when there is none. Of a number beyond
  /// 32 bits it is the low 32: 4294967297 gives 1. Beyond 64 bits the limit is taken first: -1 or 0.
  int getInt(const std::string& section, const std::string& key, int defaultValue);

  /// The number at the start of the text as strtod reads it in the current locale, 0.0 when there is none, an
  /// infinity beyond the range.
  double getDouble(const std::string& section, const std::string& key, double defaultValue);

  /// True for "1", and for "true" in upper or lower case; false for every other text.
  bool getBool(const std::string& section, const std::string& key, bool defaultValue);

  /// The table as text: for each section [name], its lines key=value, and an empty line. Loading that text
  /// gives an equal table, as long as nothing was set that no file can hold, such as a "#".
  std::string str() const;

  /// Writes the text of str to std::cout, and does not flush it.
  void show();

 private:
  std::map<std::string, std::map<std::string, std::string>> m_sections;
};

#endif
