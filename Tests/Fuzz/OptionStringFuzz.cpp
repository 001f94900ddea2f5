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
  const auto checkPieces = [&value](const MyVector<std::string>& pieces) {
    FUZZ_CHECK(pieces.Size() >= 1, value);
    for (const std::string& piece : pieces) {
      FUZZ_CHECK(piece == RemoveLeadingAndTrailingWhitespace(piece), piece);
      FUZZ_CHECK(value.find(piece) != std::string::npos, piece);
    }
  };
  Fuzz::Succeeds([&] { checkPieces({parser.GetStringWithTag(key, "Tag")}); });
  Fuzz::Succeeds([&] { checkPieces(parser.GetMyVectorStringWithTag(key, "Tag")); });
  Fuzz::Succeeds([&] { checkPieces(parser.Get<MyVector<std::string>>(key)); });
  FUZZ_CHECK(parser.Get<std::string>(key) == value, key);
}

}  // namespace

void Fuzz::Target(std::string_view input) {
  const std::string text(input);
  std::string compact;
  if (!Succeeds([&] { compact = OptionParser(text, "", false).CompactOptionList(); })) {
    return;
  }
  const auto check = [&compact] {
    const OptionParser parser(compact, "", true);
    FUZZ_CHECK(parser.CompactOptionList() == compact, compact);
    for (std::size_t begin = 0; begin < compact.size();) {
      const std::size_t equals = FindWhileParsingFast(compact, begin, '=');
      const std::size_t end = FindWhileParsingFast(compact, equals + 1, ';');
      CheckPair(parser, compact.substr(begin, equals - begin),
                compact.substr(equals + 1, end - equals - 1));
      begin = end + 1;
    }
  };
  FUZZ_CHECK(Succeeds(check), compact);
}
