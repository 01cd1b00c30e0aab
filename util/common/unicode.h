#pragma once

#include <iosfwd>
#include <string>

/// Compares two UTF-16 texts unit by unit: the difference of the first unequal units, 0 when both
/// end together. The same pointer twice is equal unread.
int LB_unicmp(const char16_t* a, const char16_t* b);

/// Copies a UTF-16 text with its end; returns the destination, which must hold it.
char16_t* LB_unicpy(char16_t* destination, const char16_t* source);

namespace Ostrel {

/// Appends the UTF-8 form of each unit by itself: the halves of a surrogate pair come out as two
/// three-byte sequences. A null source appends nothing.
void uni2utf(const char16_t* source, std::string& out);

}  // namespace Ostrel

/// The UTF-8 form of a UTF-16 text, for streams.
class UnicodeString {
  public:
    explicit UnicodeString(const char16_t* text) { Ostrel::uni2utf(text, utf8_); }

    friend std::ostream& operator<<(std::ostream& stream, const UnicodeString& text);

  private:
    std::string utf8_;
};
