#include "Executables/KelmorInfo/Text.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

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

TEST(Text, NamesThatAreShortenedKeepWhatDiffers) {
  const std::string dots = "\xE2\x80\xA6";
  const std::tuple<std::vector<std::string>, std::size_t, std::vector<std::string>> cases[] = {
      {{"a.h5", "b.h5"}, 4, {"a.h5", "b.h5"}},
      {{"/long/way/run10/out/x.h5", "/long/way/run12/out/x.h5"},
       16,
       {dots + "way/run10" + dots + "x.h5", dots + "way/run12" + dots + "x.h5"}},
      {{"/long/way/größe/x.h5", "/long/way/graß/x.h5"}, 9, {dots + "größe" + dots + "5", ""}},
      {{"first/of/many/x.h5", "second/of/many/y.h5"}, 12, {"", ""}},
      {{"aaaaaaaaaaaaaaaa0aaaaaaaaaaaaaaaaa", "aaaaaaaaaaaaaaaa1aaaaaaaaaaaaaaaaa"},
       10,
       {"1: aaa" + dots + "aaa", "2: aaa" + dots + "aaa"}},
      {{"the-same-name.h5", "the-same-name.h5"}, 8, {"", ""}},
  };
  for (const auto& [names, most, expected] : cases) {
    const std::vector<std::string> shown = ShortenedAlike(names, most);
    for (std::size_t i = 0; i < names.size(); ++i) {
      EXPECT_LE(Characters(shown[i]), most) << shown[i];
      EXPECT_EQ(ValidUtf8(shown[i]), shown[i]);
      EXPECT_TRUE(expected[i].empty() || shown[i] == expected[i]) << shown[i];
    }
    EXPECT_EQ(shown[0] == shown[1], names[0] == names[1]) << shown[0];
  }
}

}  // namespace
