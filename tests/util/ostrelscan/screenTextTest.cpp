#include <gtest/gtest.h>

#include <clocale>
#include <string>
#include <string_view>

#include "util/ostrelscan/screenText.h"

namespace {

/// A test in a locale for characters, which it gives back.
class ScreenText : public testing::Test {
  protected:
    ~ScreenText() override { std::setlocale(LC_CTYPE, before_.c_str()); }

    static void Speak(const char* locale) {
        ASSERT_NE(std::setlocale(LC_CTYPE, locale), nullptr) << locale;
    }

    static std::wstring Shown(std::string_view text) {
        std::wstring shown;
        while (!text.empty()) {
            const ScreenCharacter first = FirstScreenCharacter(text);
            shown += first.shown;
            text.remove_prefix(first.bytes);
        }
        return shown;
    }

  private:
    const std::string before_ = std::setlocale(LC_CTYPE, nullptr);
};

TEST_F(ScreenText, IsItsCharactersWhereTheLocaleHoldsThem) {
    Speak("C.UTF-8");
    EXPECT_EQ(Shown("gr\xC3\xB6\xC3\x9F"
                    "e \xE4\xB8\xAD \xF0\x9F\x91\x8D"),
              L"gr\u00F6\u00DFe \u4E2D \U0001F44D");
}

TEST_F(ScreenText, IsOneSubstituteForEachCharacterThatTheLocaleDoesNotHold) {
    Speak("C");
    EXPECT_EQ(Shown("gr\xC3\xB6\xC3\x9F"
                    "e \xE4\xB8\xAD \xF0\x9F\x91\x8D"),
              L"gr??e ? ?");
}

TEST_F(ScreenText, IsOneSubstituteForEachByteThatIsNoCharacter) {
    Speak("C.UTF-8");
    EXPECT_EQ(Shown("a\xFF"
                    "b\xE4\xB8.\xC0\xAF\xED\xA0\x80"),
              L"a?b??.?????");
}

TEST_F(ScreenText, KeepsACombiningMarkAndNothingElseWithoutAWidth) {
    Speak("C.UTF-8");
    EXPECT_EQ(Shown("e\xCC\x81"), L"e\u0301");
    EXPECT_EQ(Shown("\xE1\x84\x92\xE1\x85\xA1\xE1\x86\xAB"), L"\u1112\u1161\u11AB");
    // Marks of direction, joiners, the byte order's mark.
    EXPECT_EQ(Shown("\xE2\x80\xAE|\xE2\x81\xA6|\xE2\x80\x8B|\xE2\x80\x8D|\xEF\xBB\xBF"),
              L"?|?|?|?|?");
}

TEST_F(ScreenText, SubstitutesControlsBeyondAsciiAndWhatIsNoCharacterYet) {
    Speak("C.UTF-8");
    EXPECT_EQ(Shown("\xC2\x85|\xC2\x9B|\xE2\x80\xA8|\xCD\xB8"), L"?|?|?|?");
}

}  // namespace
