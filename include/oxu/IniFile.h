/// Reads configuration files of sections with keys, and answers typed lookups with defaults.
///
///     # a comment, which may also follow anything else: there is no quoting and no escaping
///     key = value          before the first header: belongs to the section with the empty name
///     [section]            what follows the bracket is ignored
///     key = a=b            the key ends at the first "="
///
/// - A line ends at a line feed and has any length. Any line of another form is skipped without a message.
/// - Lines, names, keys and values lose the blanks, tabs, carriage returns and vertical tabs at their ends. A name, a
///   key or a value may be empty.
/// - The last assignment to a key wins. A header that repeats a name empties that section first, as [] does with the
///   section of the empty name.
/// - Bytes pass unchanged, in any encoding, NUL included. Names and keys are compared byte by byte and listed in the
///   order of their bytes, not in that of the file. Those that a caller gives are not trimmed.
///
/// An IniFile owns all its text; a copy is a deep copy. Only load reports a failure. Where memory runs out,
/// std::bad_alloc passes to the caller.
///
/// Threads: has, sections, the getters, str and show may run on one object at the same time. While one thread is in
/// load or operator[], or writes through the reference that operator[] returned, no other thread uses the same object.
#ifndef OXU_INIFILE_H
#define OXU_INIFILE_H

#include <map>
#include <string>
#include <vector>

#include "oxu/Export.h"

class OXU_EXPORT IniFile {
 public:
  /// Replaces the whole table by the content of the file.
  ///
  /// False when the file cannot be opened for reading: "Failed to open file PATH" is on standard output, and the table
  /// is empty. A read error counts as the end of the file: the whole lines before it are kept, and the result is true.
  /// So a directory, which opens but cannot be read, gives true and an empty table. Where memory runs out, the table
  /// keeps the lines that were read until then.
  bool load(const std::string& path);

  /// True when the section exists, with or without keys.
  bool has(const std::string& section);

  /// True when the section exists and holds the key, with or without a value.
  bool has(const std::string& section, const std::string& key);

  /// The names of all sections. The empty name, where its section exists, comes first.
  std::vector<std::string> sections() const;

  /// The keys and values of a section, to be read or changed; a missing section is created empty. The reference is
  /// valid until the object is loaded, assigned or destroyed.
  std::map<std::string, std::string>& operator[](const std::string& section);

  /// The value of a key. This and each getter below return the default where the section or the key is missing, and
  /// create neither. The value of a key that is present is always converted, whatever its text. errno stays as it was.
  std::string getString(const std::string& section, const std::string& key, const std::string& defaultValue);

  /// The decimal number at the start of the text, as strtol reads it; 0 when there is none. Of a number that an int
  /// cannot hold the low 32 bits are returned: 4294967297 gives 1. A number beyond 64 bits is taken for the nearest
  /// 64-bit number first, and so gives -1 or 0.
  int getInt(const std::string& section, const std::string& key, int defaultValue);

  /// The number at the start of the text, as strtod reads it in the current locale; 0.0 when there is none, an infinity
  /// beyond the range.
  double getDouble(const std::string& section, const std::string& key, double defaultValue);

  /// True for "1", and for "true" in any mix of upper and lower case; false for every other text.
  bool getBool(const std::string& section, const std::string& key, bool defaultValue);

  /// The table as text: for each section a line [name], a line key=value for each key, and an empty line. Loading that
  /// text gives an equal table, unless the host has set what no file can hold, such as a "#".
  std::string str() const;

  /// Writes the text of str to std::cout and does not flush it.
  void show();

 private:
  std::map<std::string, std::map<std::string, std::string>> m_sections;
};

#endif
