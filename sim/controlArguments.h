#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/busHub.h"

namespace sim {

/// A control command that is wrong in itself; the text says how.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The words behind a command's name, options apart from the others. The methods throw
/// `UsageError` for what is missing or does not convert.
class ControlArguments {
  public:
    explicit ControlArguments(const std::vector<std::string>& words);

    /// How many words there are.
    std::size_t Count() const { return words_.size(); }
    const std::string& Word(std::size_t index) const;
    /// `other` where there are not so many words.
    std::string WordOr(std::size_t index, const std::string& other) const;
    /// Whether the option was given, with a value or without.
    bool Has(const std::string& option) const { return options_.contains(option); }
    /// The value of an option, `other` when it is not given.
    std::string Option(const std::string& option, const std::string& other) const;

    /// The value of a number option, `other` when it is not given, `largest` at most.
    std::uint64_t Number(const std::string& option, std::uint64_t other,
                         std::uint64_t largest) const;

    /// Of "--timeout SECONDS", with fractions; no end when it is not given.
    BusHub::Timeout Timeout() const;

    /// Throws unless there are `least` to `most` words and no option but those.
    void Expect(std::size_t least, std::size_t most, const std::vector<std::string>& known) const;

  private:
    std::vector<std::string> words_;
    std::map<std::string, std::string> options_;
};

}  // namespace sim
