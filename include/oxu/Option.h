/// A host's command-line options: registered by name, read from the argument vector, asked for by name.
///
/// | kind          | long form, any name             | short form, names of one byte               |
/// |---------------|---------------------------------|---------------------------------------------|
/// | NoValue       | --name                          | -n, and several in one argument: -nmk       |
/// | RequiredValue | --name=VALUE, or --name VALUE   | -n VALUE, where VALUE does not begin with - |
/// | OptionalValue | --name=VALUE, or --name         | -nVALUE, or -n                              |
///
/// - Arguments that do not begin with a dash, and are no VALUE, may stand anywhere; arguments() returns them.
/// - There is no mark that ends the options: a lone dash, or two dashes alone, is an option with the empty name.
/// - Names and values are bytes, compared exactly.
/// - The last occurrence of an option counts.
///
/// Threads: there is no lock. While one thread calls addOption or parse, no other thread uses the same object. The
/// const operations may run at the same time as each other.
#ifndef OXU_OPTION_H
#define OXU_OPTION_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "oxu/Export.h"

class OXU_EXPORT Option {
 public:
  enum OptionType : std::uint8_t {
    Undefined = 0,      ///< no option; parse refuses a name that is registered with this kind
    NoValue = 1,        ///< a flag
    RequiredValue = 2,  ///< must be given a value
    OptionalValue = 3   ///< may be given a value
  };

  /// One registered option.
  struct OptionProperty {
    OptionType type = Undefined;
    std::string name;
    std::string value;  ///< empty until parse records a text; "true" for a flag that was given
    std::string description;
  };

  /// Registers an option; `name` is without the dashes. A name that is already registered keeps its kind, description
  /// and value. The name is not checked: one of several bytes with a '=' among them is stored, and can never be given.
  void addOption(const std::string& name, OptionType type, const std::string& description);

  /// Records the values that `argv[1]` to `argv[argc - 1]` give to the registered options. Values that earlier calls
  /// recorded stay until an occurrence replaces them. In a group of short flags, a byte that names no flag is skipped,
  /// unless it is the first.
  ///
  /// Throws std::runtime_error at the first argument that breaks the rules of the table above. The arguments before
  /// that one are recorded; those after it are not looked at.
  ///
  /// - "Option --NAME is not defined.": the name is not registered, with or without "=VALUE"
  /// - "Option --NAME does not accept a value.": a flag with "="
  /// - "Option --NAME requires a value.": nothing after "=", or no argument after a RequiredValue option
  /// - "Option -N is not defined.": the first byte after the dash is not registered
  /// - "Option -N requires a value.": a RequiredValue option with text directly after its name, with no argument
  ///   after it, or with one that begins with a dash
  ///
  /// Throws std::out_of_range at an empty argument, unless that is the value of the option before it.
  void parse(int argc, char** argv);

  /// The arguments of the latest parse that belong to no option, in their order; after a parse that threw, those before
  /// the bad argument. The reference lives as long as the object; the next parse replaces its content.
  const std::vector<std::string>& arguments() const;

  /// The registered kind; Undefined for a name that is not registered.
  OptionType type(const std::string& name) const;

  /// True when the name is registered, whether or not the command line gave it.
  bool hasOption(const std::string& name) const;

  /// Stores the recorded value, or "true" for a flag, and returns true. Returns false, and leaves `value` as it was,
  /// when the option is not registered, when it was not given, or when its last occurrence had no value.
  bool getOptionValue(const std::string& name, std::string& value) const;

  /// The value that getOptionValue finds. Without one: "", and the line "Option NAME not found" on standard output,
  /// from the getters below too.
  std::string getString(const std::string& name) const;

  /// The number at the start of getString's text, as std::stoi reads it; 0 for an empty text. Throws
  /// std::invalid_argument ("stoi") when the text begins with no number, and std::out_of_range ("stoi") when an int
  /// cannot hold the number.
  int getInt(const std::string& name) const;

  /// The number at the start of getString's text, as std::stod reads it in the notation of the host's locale; 0.0 for
  /// an empty text. Throws std::invalid_argument ("stod") and std::out_of_range ("stod") in the same cases.
  double getDouble(const std::string& name) const;

  /// True when getString's text is exactly "true" or "1".
  bool getBool(const std::string& name) const;

  /// Writes the list of options to std::cout, each with one dash, ordered by the bytes of their names.
  void printUsage() const;

 private:
  struct Arguments;
  void parseLong(const std::string& body, Arguments& rest);
  void parseLongWithValue(const std::string& name, const std::string& value);
  void parseLongAlone(const std::string& name, Arguments& rest);
  void parseShort(const std::string& body, Arguments& rest);
  void recordFlags(const std::string& characters);
  void record(const std::string& name, const std::string& value);

  std::map<std::string, OptionProperty> m_options;
  std::vector<std::string> m_arguments;
};

#endif
