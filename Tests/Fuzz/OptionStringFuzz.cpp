// The input is an option list. What is read of it must be what stands in it, under every type.
#include <vector>

#include "Tests/Fuzz/Fuzz.hpp"
#include "Utils/StringParsing/OptionParser.hpp"
#include "Utils/StringParsing/SplitStrings.hpp"

namespace {

struct Pair {
  std::string mKey;
  std::string mValue;
};

// Takes apart a list "key=value;key=value;" by its parentheses alone.
std::vector<Pair> PairsOf(const std::string& compact) {
  std::vector<Pair> pairs;
  Pair current;
  bool inKey = true;
  int depth = 0;
  for (const char c : compact) {
    depth += c == '(' ? 1 : c == ')' ? -1 : 0;
    FUZZ_CHECK(depth >= 0, compact);
    if (depth == 0 && c == '=' && inKey) {
      inKey = false;
    } else if (depth == 0 && c == ';') {
      FUZZ_CHECK(!inKey, compact);
      pairs.push_back(current);
      current = {};
      inKey = true;
    } else {
      (inKey ? current.mKey : current.mValue) += c;
    }
  }
  FUZZ_CHECK(inKey && depth == 0 && current.mKey.empty(), compact);
  return pairs;
}

template <class T>
void TryToGet(const OptionParser& parser, const std::string& key) {
  Fuzz::Succeeds([&] { parser.Get<T>(key); });
}

void CheckPair(const OptionParser& parser, const Pair& pair) {
  const auto& [key, value] = pair;
  TryToGet<int>(parser, key);
  TryToGet<double>(parser, key);
  TryToGet<bool>(parser, key);
  TryToGet<char>(parser, key);
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
    const std::vector<Pair> pairs = PairsOf(compact);
    for (const Pair& pair : pairs) {
      CheckPair(parser, pair);
    }
    FUZZ_CHECK(Fuzz::Succeeds([&] { parser.TerminateIfThereAreUnusedOptions(); }), compact);
    FUZZ_CHECK(!Fuzz::Succeeds([&] { parser.CheckKeyExists("no such key"); }) ||
                   compact.find("no such key") != std::string::npos,
               compact);
    FUZZ_CHECK(Fuzz::Succeeds([&] {
                 FUZZ_CHECK(OptionParser(compact, "", false).CompactOptionList() == compact, text);
               }),
               compact);
  });
  return 0;
}
