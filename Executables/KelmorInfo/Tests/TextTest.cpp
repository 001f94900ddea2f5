#include "Executables/KelmorInfo/Text.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "Executables/KelmorInfo/Svg.hpp"

namespace {

TEST(Text, NamesOfAnyBytesCanBeShown) {
  const std::string no = "\xEF\xBF\xBD";
  const std::pair<std::string, std::string> cases[] = {
      {"größe 中 \xF0\x9F\x98\x80", "größe 中 \xF0\x9F\x98\x80"},
      {"a\xFF", "a" + no},
      {"\xED\xA0\x80", no + no + no},  // half a surrogate
      {"\xEF\xBF\xBE", no},            // no character in XML
      {"a\nb\tc\x1b[K\x7F", "a\nb\tc" + no + "[K\x7F"},
      {"<a & 'b'> \"c\"", "&lt;a &amp; 'b'&gt; &quot;c&quot;"},
  };
  for (const auto& [text, xml] : cases) {
    EXPECT_EQ(Svg::Escaped(text), xml);
  }
  EXPECT_EQ(OneLine("two\nlines\n\n"), "two lines");
}

TEST(Text, LongNamesAreShortenedBetweenCharacters) {
  EXPECT_EQ(Svg::Fitted("short", 10, 1000), "short");
  const std::string fitted = Svg::Fitted("ääääääääääääääääääääEnde", 10, 60);
  EXPECT_EQ(ValidUtf8(fitted), fitted);
  EXPECT_LE(Svg::TextWidth(fitted, 10), 60);
  EXPECT_GT(Svg::TextWidth(fitted, 10), 53) << "all room is taken";
  EXPECT_TRUE(fitted.ends_with("Ende")) << fitted;
}

}  // namespace
