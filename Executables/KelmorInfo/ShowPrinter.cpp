#include "Executables/KelmorInfo/ShowPrinter.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <ostream>
#include <set>
#include <utility>
#include <vector>

#include "Executables/KelmorInfo/Text.hpp"
#include "Utils/ErrorHandling/Require.hpp"

namespace {

constexpr std::size_t sLongText = 256 * 1024;

// Tables of so many numbers are looked at as a whole to find the widths of their columns.
constexpr std::size_t sMostHeld = 20000;
// What any double needs.
constexpr std::size_t sWidestNumber = 24;

constexpr double sLargestWhole = 1e15;

bool IsPlainWhole(double number) {
  return std::abs(number) < sLargestWhole && number == std::trunc(number) &&
         !(number == 0 && std::signbit(number));
}

// A number as text.
class Digits {
 public:
  explicit Digits(double number) {
    if (std::isnan(number)) {  // which may have a sign that nobody wants to see
      mLength = 3;
      mText = {'n', 'a', 'n'};
      return;
    }
    char* const end = mText.data() + mText.size();
    const auto result = IsPlainWhole(number)
                            ? std::to_chars(mText.data(), end, static_cast<std::int64_t>(number))
                            : std::to_chars(mText.data(), end, number);
    mLength = static_cast<std::size_t>(result.ptr - mText.data());
  }
  std::string_view Text() const { return {mText.data(), mLength}; }

 private:
  std::array<char, 32> mText;
  std::size_t mLength;
};

// A field of CSV, in quotes if it has to be.
std::string CsvField(const std::string& text) {
  if (!text.empty() && text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string quoted = "\"";
  for (const char c : text) {
    quoted.append(c == '"' ? 2 : 1, c);
  }
  return quoted + '"';
}

class CsvPrinter : public RowPrinter {
 public:
  CsvPrinter(std::ostream& os, const std::vector<std::string>& columns) : mOutput(os) {
    for (std::size_t c = 0; c < columns.size(); ++c) {
      mOutput.Add(c == 0 ? "" : ",");
      mOutput.Add(CsvField(columns[c]));
    }
    mOutput.Add("\n");
  }
  void Print(std::span<const double> row) override {
    for (std::size_t c = 0; c < row.size(); ++c) {
      mOutput.Add(c == 0 ? "" : ",");
      mOutput.Add(row[c]);
    }
    mOutput.Add("\n");
    mOutput.WriteIfLong();
  }
  void Finish() override { mOutput.Finish(); }

 private:
  ShowOutput mOutput;
};

// The widths of columns follow from all rows where the table is small; else the first rows are
// printed when there are too many, with widths that do for all that may come.
class TextPrinter : public RowPrinter {
 public:
  TextPrinter(std::ostream& os, const std::vector<std::string>& columns)
      : mOs(os), mOutput(os), mNames(columns) {
    std::ranges::transform(mNames, mNames.begin(),
                           [](const std::string& name) { return Vexa::Printable(name); });
  }
  void Print(std::span<const double> row) override {
    if (!mIsWide && mHeld.size() * row.size() < sMostHeld) {
      Hold(row);
      return;
    }
    if (!mIsWide) {
      mIsWide = true;
      for (std::string& name : mNames) {
        const std::size_t length = Characters(name);
        mWidths.push_back(std::max(length, sWidestNumber));
        name.insert(0, mWidths.back() - length, ' ');
      }
      PrintHeld();
    }
    for (std::size_t c = 0; c < row.size(); ++c) {
      const Digits digits(row[c]);
      mPadding.assign(mWidths[c] + (c == 0 ? 0 : 2) - digits.Text().size(), ' ');
      mOutput.Add(mPadding);
      mOutput.Add(digits.Text());
    }
    mOutput.Add("\n");
    mOutput.WriteIfLong();
  }
  void Finish() override {
    if (!mIsWide) {
      PrintHeld();
    }
    mOutput.Finish();
  }

 private:
  void Hold(std::span<const double> row) {
    std::vector<std::string>& cells = mHeld.emplace_back();
    for (const double number : row) {
      cells.emplace_back(Digits(number).Text());
    }
  }
  void PrintHeld() {
    std::set<std::size_t> all;
    for (std::size_t c = 0; c < mNames.size(); ++c) {
      all.insert(c);
    }
    AlignedLines lines(std::move(all));
    lines.Add(mNames);
    for (std::vector<std::string>& cells : mHeld) {
      lines.Add(std::move(cells));
    }
    lines.Print(mOs, "");
    mHeld.clear();
  }

  std::ostream& mOs;
  ShowOutput mOutput;
  std::vector<std::string> mNames;
  std::vector<std::vector<std::string>> mHeld;
  bool mIsWide = false;
  std::vector<std::size_t> mWidths;
  std::string mPadding;
};

class JsonRowPrinter : public RowPrinter {
 public:
  JsonRowPrinter(std::ostream& os, const std::vector<std::string>& columns, Json document)
      : mList(os, WithColumns(std::move(document), columns), "rows") {}
  void Print(std::span<const double> row) override {
    mList.BeginList();
    for (const double number : row) {
      mList.Add(number);
    }
    mList.EndList();
  }
  void Finish() override { mList.Finish(); }

 private:
  static Json WithColumns(Json document, const std::vector<std::string>& columns) {
    document["columns"] = columns;
    return document;
  }
  JsonListPrinter mList;
};

}  // namespace

void ShowOutput::Add(double number) {
  mText += Digits(number).Text();
}

void ShowOutput::AddAsJson(double number) {
  if (number == 0 && std::signbit(number)) {
    mText += "-0.0";  // "-0" is read as a whole number, which has no sign
  } else if (std::isfinite(number)) {
    Add(number);
  } else {
    mText += NumberAsJson(number).dump();
  }
}

void ShowOutput::WriteIfLong() {
  if (mText.size() >= sLongText) {
    Finish();
  }
}

void ShowOutput::Finish() {
  mOs.write(mText.data(), static_cast<std::streamsize>(mText.size()));
  REQUIRE(mOs.good(), "Writing to standard output failed");
  mText.clear();
}

JsonListPrinter::JsonListPrinter(std::ostream& os, const Json& document, std::string_view key)
    : mOutput(os) {
  std::string text = document.dump(2, ' ', false, Json::error_handler_t::replace);
  text.erase(text.rfind("\n}"));
  mOutput.Add(text);
  mOutput.Add(",\n  \"");
  mOutput.Add(key);
  mOutput.Add("\": [");
}

void JsonListPrinter::BeginElement() {
  mOutput.Add(mIsInList ? mIsFirst ? "" : ", " : mIsFirst ? "\n    " : ",\n    ");
  mIsFirst = false;
}

void JsonListPrinter::BeginList() {
  BeginElement();
  mOutput.Add("[");
  mIsInList = true;
  mIsFirst = true;
}

void JsonListPrinter::Add(double number) {
  BeginElement();
  mOutput.AddAsJson(number);
  mOutput.WriteIfLong();
}

void JsonListPrinter::EndList() {
  mOutput.Add("]");
  mIsInList = false;
  mIsFirst = false;
}

void JsonListPrinter::Finish() {
  mOutput.Add(mIsFirst ? "]\n}\n" : "\n  ]\n}\n");
  mOutput.Finish();
}

std::unique_ptr<RowPrinter> RowPrinter::Make(ShowOptions::Format format, std::ostream& os,
                                             const std::vector<std::string>& columns,
                                             const Json& document) {
  switch (format) {
    case ShowOptions::Format::CSV:
      return std::make_unique<CsvPrinter>(os, columns);
    case ShowOptions::Format::JSON:
      return std::make_unique<JsonRowPrinter>(os, columns, document);
    case ShowOptions::Format::Aligned:
      break;
  }
  return std::make_unique<TextPrinter>(os, columns);
}
