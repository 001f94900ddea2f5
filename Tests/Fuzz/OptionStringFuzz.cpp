// The input is an option list. What is read of it must be what stands in it, under every type.
#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/StringParsing/OptionParser.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

namespace {

void CheckPair(const OptionParser& parser, const std::string& key, const std::string& value) {
  Fuzz::Succeeds([&] { parser.Get<int>(key); });
  Fuzz::Succeeds([&] { parser.Get<double>(key); });
  Fuzz::Succeeds([&] { parser.Get<bool>(key); });
  Fuzz::Succeeds([&] { parser.Get<char>(key); });
  const bool isTagged = Fuzz::Succeeds([&] {
    const std::string text = parser.GetStringWithTag(key, "Tag");
    FUZZ_CHECK(value.starts_with("Tag") && value.find(text) != std::string::npos, value);
  });
  Fuzz::Succeeds([&] {
    const MyVector<std::string> texts = parser.GetMyVectorStringWithTag(key, "Tag");
    FUZZ_CHECK(!isTagged || texts.Size() == 1, value);
  });
  Fuzz::Succeeds([&] {
    const auto list = parser.Get<MyVector<std::string>>(key);
    FUZZ_CHECK(list.Size() >= 1, value);
    for (const std::string& piece : list) {
      FUZZ_CHECK(piece == RemoveLeadingAndTrailingWhitespace(piece), piece);
      FUZZ_CHECK(value.find(piece) != std::string::npos, piece);
    }
  });
  FUZZ_CHECK(parser.Get<std::string>(key) == value, key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(Fuzz::Text(data, size));
  Fuzz::Succeeds([&text] {
    const OptionParser parser(text, "", false);
    const std::string compact = parser.CompactOptionList();
    // Takes the list "key=value;key=value;" apart by its parentheses alone.
    std::string pieces[2];
    std::size_t current = 0;
    int depth = 0;
    for (const char c : compact) {
      depth += c == '(' ? 1 : c == ')' ? -1 : 0;
      FUZZ_CHECK(depth >= 0, compact);
      if (depth != 0 || (c != ';' && (c != '=' || current == 1))) {
        pieces[current] += c;
      } else if (current == 0) {
        FUZZ_CHECK(c == '=', compact);
        current = 1;
      } else {
        CheckPair(parser, pieces[0], pieces[1]);
        pieces[0] = pieces[1] = "";
        current = 0;
      }
    }
    FUZZ_CHECK(depth == 0 && current == 0 && pieces[0].empty(), compact);
    FUZZ_CHECK(Fuzz::Succeeds([&] { parser.TerminateIfThereAreUnusedOptions(); }), compact);
    FUZZ_CHECK(Fuzz::Succeeds([&] {
                 FUZZ_CHECK(OptionParser(compact, "", false).CompactOptionList() == compact, text);
               }),
               compact);
  });
  return 0;
}
