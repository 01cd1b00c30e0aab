#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace zsbtool {

struct Settings;

/// Binds a command's options and arguments to its members: what the parser finds is stored there.
/// The parser's own header stays behind this one. Names are as the parser takes them
/// ("-o,--output"), `what` is a line of the help.
class Arguments {
  public:
    Arguments(CLI::App& parser, Settings& settings) : parser_(parser), settings_(settings) {}

    // The shared options.

    /// `--json`, for a command that reports.
    void Reports();
    /// `--jobs N`, for a command that works on several files at once.
    void Parallel();
    /// `--prefix T|C` and `--ending zsb|zrb`, for a command that looks for a set.
    void ChoosesSet();

    // Positional arguments, in this order.

    void Required(const std::string& name, std::string& value, const std::string& what);
    void Optional(const std::string& name, std::string& value, const std::string& what);
    /// One or more.
    void Several(const std::string& name, std::vector<std::string>& values,
                 const std::string& what);

    // Options.

    void Flag(const std::string& names, bool& value, const std::string& what);
    void Text(const std::string& names, std::string& value, const std::string& what);
    void RequiredText(const std::string& names, std::string& value, const std::string& what);
    /// A decimal number without sign.
    void Number(const std::string& names, std::optional<std::uint64_t>& value,
                const std::string& what);

  private:
    CLI::App& parser_;
    Settings& settings_;
};

}  // namespace zsbtool
