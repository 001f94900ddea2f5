// Rows of numbers on their way to people and programs: printed as they come, whatever their number.
#pragma once

#include <iosfwd>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Executables/KelmorInfo/Json.hpp"
#include "Executables/KelmorInfo/ShowOptions.hpp"

/// What is printed, written in large pieces. Numbers have the fewest digits that read back as the
/// same double, and no exponent if they are whole and below 1e15.
class ShowOutput {
 public:
  explicit ShowOutput(std::ostream& os) : mOs(os) {}

  void Add(std::string_view text) { mText += text; }
  /// Numbers that are not finite are "inf", "-inf" and "nan", or, in JSON, texts as in
  /// NumberAsJson().
  void Add(double number);
  void AddAsJson(double number);

  /// Writes what has come together, if it is much. Fails if it cannot be written.
  void WriteIfLong();
  /// Writes the rest.
  void Finish();

 private:
  std::ostream& mOs;
  std::string mText;
};

/// A document in JSON that ends in one long list. The list may hold lists, which may hold numbers.
class JsonListPrinter {
 public:
  /// Prints the document and the beginning of the list under `key`.
  JsonListPrinter(std::ostream& os, const Json& document, std::string_view key);
  void BeginList();
  void Add(double number);
  void EndList();
  /// Ends the document.
  void Finish();

 private:
  void BeginElement();

  ShowOutput mOutput;
  bool mIsInList = false;
  bool mIsFirst = true;
};

/// Prints a table.
class RowPrinter {
 public:
  /// `document` is what JSON says besides.
  static std::unique_ptr<RowPrinter> Make(ShowOptions::Format format, std::ostream& os,
                                          const std::vector<std::string>& columns,
                                          const Json& document);
  virtual ~RowPrinter() = default;
  /// Prints the values of a row, one per column.
  virtual void Print(std::span<const double> row) = 0;
  /// Prints what stands after the last row.
  virtual void Finish() = 0;
};
