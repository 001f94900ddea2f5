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

void Fuzz::Target(std::string_view input) {
  const std::string text(input);
  Succeeds([&text] {
    const OptionParser parser(text, "", false);
    const std::string compact = parser.CompactOptionList();
    FUZZ_CHECK(Succeeds([&] {
                 for (std::size_t begin = 0; begin < compact.size();) {
                   const std::size_t equals = FindWhileParsingFast(compact, begin, '=');
                   const std::size_t end = FindWhileParsingFast(compact, equals + 1, ';');
                   CheckPair(parser, compact.substr(begin, equals - begin),
                             compact.substr(equals + 1, end - equals - 1));
                   begin = end + 1;
                 }
                 parser.TerminateIfThereAreUnusedOptions();
                 FUZZ_CHECK(OptionParser(compact, "", false).CompactOptionList() == compact, text);
               }),
               compact);
  });
}
